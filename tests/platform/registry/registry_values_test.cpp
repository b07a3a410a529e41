// Reading, setting, deleting and listing values.

#include "ostrel/platform/codepage.h"
#include "support/bytes.h"
#include "support/registry.h"

namespace {

using namespace std::literals;

class RegistryValues : public testing::Test {
protected:
    const TestKey m_key = emptied(u"Software\\Values");
};

std::string utf16(std::u16string_view text) {
    return {reinterpret_cast<const char *>(text.data()), 2 * text.size()};
}

TEST_F(RegistryValues, KeepsBytesAsTheyAre) {
    const struct {
        const char *name;
        DWORD type;
        std::string bytes;
    } kRows[] = {
        {"no bytes", REG_NONE, ""},
        {"a string without NUL", REG_SZ, utf16(u"ab")},
        {"an unknown type", 0xFFFF1234, "x\0y"s},
        {"64 MiB", REG_SZ, std::string(64 << 20, 'y')},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(set_bytes(m_key, u"v", row.type, row.bytes), 0);
        for (int i = 0; i < 2; ++i) {  // the second time from the cache
            DWORD type = 0, size = 0;
            EXPECT_EQ(RegQueryValueExW(m_key, u"V", nullptr, nullptr, nullptr, &size), 0);
            EXPECT_EQ(size, row.bytes.size());
            EXPECT_TRUE(bytes_of(m_key, u"v", &type, size) == row.bytes);
            EXPECT_EQ(type, row.type);
        }
    }
}

TEST_F(RegistryValues, ChecksItsArguments) {
    set_bytes(m_key, u"v", REG_BINARY, "12345");
    const TestKey weak = created(HKEY_CURRENT_USER, u"Software\\Values", KEY_NOTIFY);
    BYTE data[5] = {'?'};
    DWORD size = 4, type = 0;
    const std::u16string longest(16383, u'n');
    const struct {
        const char *name;
        LSTATUS found, expected;
    } kRows[] = {
        {"too small", RegQueryValueExW(m_key, u"v", nullptr, &type, data, &size), 234},
        {"missing", RegQueryValueExW(m_key, u"w", nullptr, nullptr, nullptr, nullptr), 2},
        {"no size", RegQueryValueExW(m_key, u"v", nullptr, nullptr, data, nullptr), 87},
        {"no right to read", RegQueryValueExW(weak, u"v", nullptr, nullptr, nullptr, nullptr), 5},
        {"no right to set", set_number(weak, u"v", 1), 5},
        {"the longest name", set_number(m_key, longest.c_str(), 1), 0},
        {"a longer name", set_number(m_key, (longest + u'n').c_str(), 1), 87},
        {"null data", RegSetValueExW(m_key, u"v", 0, 3, nullptr, 1), 87},
        {"deleting", RegDeleteValueW(m_key, u"V"), 0},
        {"deleting twice", RegDeleteValueW(m_key, u"v"), 2},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(row.found, row.expected) << row.name;
    }
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(type, REG_BINARY);
    EXPECT_EQ(data[0], '?');
}

TEST_F(RegistryValues, ListsValuesInTheOrderOfTheirCreation) {
    for (const char16_t *name : {u"z", u"", u"a\\b", u"M"}) {
        set_number(m_key, name, 1);
    }
    set_number(m_key, nullptr, 2);
    EXPECT_EQ(values(m_key), u"z  a\\b M ");
    WCHAR name[3];
    DWORD count = 3, size = 3;
    BYTE data[4];
    EXPECT_EQ(RegEnumValueW(m_key, 2, name, &count, nullptr, nullptr, data, &size), 234);
    EXPECT_EQ(RegEnumValueW(m_key, 3, name, &count, nullptr, nullptr, data, &size), 234);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(RegEnumValueW(m_key, 3, name, &count, nullptr, nullptr, data, &size), 0);
}

TEST_F(RegistryValues, ConvertsTextOfTheNarrowCallsByTheCodePage) {
    const std::string kana = GetACP() == 932 ? "\x82\xA0" : "\xE3\x81\x82";  // U+3042
    const struct {
        DWORD type;
        std::string narrow, stored;
    } kRows[] = {
        {REG_SZ, kana + '\0', utf16(u"\u3042\0"sv)},
        {REG_MULTI_SZ, "a\0"s + kana + "\0\0"s, utf16(u"a\0\u3042\0\0"sv)},
        {REG_BINARY, kana, kana},
    };
    for (const auto &row : kRows) {
        ASSERT_EQ(RegSetValueExA(m_key, kana.c_str(), 0, row.type,
                                 reinterpret_cast<const BYTE *>(row.narrow.data()),
                                 static_cast<DWORD>(row.narrow.size())),
                  0);
        EXPECT_EQ(bytes_of(m_key, u"\u3042"), row.stored);
        DWORD asked = 0;
        EXPECT_EQ(RegQueryValueExA(m_key, kana.c_str(), nullptr, nullptr, nullptr, &asked), 0);
        EXPECT_EQ(asked, row.narrow.size());
        std::string bytes(asked, '?');
        EXPECT_EQ(RegQueryValueExA(m_key, kana.c_str(), nullptr, nullptr,
                                   reinterpret_cast<BYTE *>(bytes.data()), &asked),
                  0);
        EXPECT_EQ(bytes, row.narrow);
    }
}

TEST_F(RegistryValues, GetsValuesOfACertainType) {
    setenv("REGISTRY_VALUES", "here", 1);
    const TestKey sub = created(m_key, u"sub");
    set_bytes(sub, u"text", REG_SZ, utf16(u"ab"));
    set_bytes(sub, u"list", REG_MULTI_SZ, utf16(u"a\0b"sv));
    set_bytes(sub, u"expands", REG_EXPAND_SZ, utf16(u"%%Registry_Values%x%no%"));
    set_number(sub, u"number", 7);
    const struct {
        const char16_t *name;
        DWORD flags, capacity;
        LSTATUS code;
        std::string bytes;
    } kRows[] = {
        {u"text", RRF_RT_REG_SZ, 6, 0, utf16(u"ab\0"sv)},
        {u"text", RRF_RT_REG_DWORD, 9, 1630, ""},
        {u"list", RRF_RT_ANY, 20, 0, utf16(u"a\0b\0\0"sv)},
        {u"expands", RRF_RT_REG_SZ, 40, 0, utf16(u"%herex%no%\0"sv)},
        {u"expands", RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, 60, 0,
         utf16(u"%%Registry_Values%x%no%\0"sv)},
        {u"number", RRF_RT_REG_DWORD, 4, 0, "\7\0\0\0"s},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(PrintToString(row.name));
        std::string bytes(60, '?');
        DWORD size = row.capacity;
        EXPECT_EQ(RegGetValueW(m_key, u"SUB", row.name, row.flags, nullptr, bytes.data(), &size),
                  row.code);
        EXPECT_EQ(row.code == 0 ? bytes.substr(0, size) : "", row.bytes);
    }
    EXPECT_EQ(RegGetValueW(m_key, u"none", u"x", RRF_RT_ANY, nullptr, nullptr, nullptr), 2);
}

}  // namespace
