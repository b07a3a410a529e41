// Opening, creating, closing, deleting and listing keys.

#include "ostrel/platform/handle.h"
#include "support/registry.h"

namespace {

class RegistryKeys : public testing::Test {
protected:
    const TestKey m_key = emptied(u"Software\\Keys");
};

HKEY number_as_key(std::uintptr_t number) {
    return reinterpret_cast<HKEY>(number);
}

TEST_F(RegistryKeys, FindsPathsWithoutRegardToCase) {
    created(m_key, u"One\\Two \xE9\\a/b//");
    const struct {
        const char16_t *path;
        LSTATUS code;
    } kRows[] = {
        {u"one\\TWO \xC9\\", 0}, {u"One\\Two \xE9\\A/B//", 0}, {u"", 0},       {u"Missing\\Two", 2},
        {u"\\One", 161},         {u"One\\\\Two", 161},         {u"One/Two", 2}};
    for (const auto &row : kRows) {
        for (int i = 0; i < 2; ++i) {  // the second answer comes from the cache
            EXPECT_EQ(open_code(m_key, row.path), row.code) << PrintToString(row.path);
        }
    }
    EXPECT_EQ(subkeys(m_key), u"One ");
}

TEST_F(RegistryKeys, TakesEveryName) {
    using Text = std::u16string;
    const struct {
        const char *name;
        Text text;
        LSTATUS key, value;  // the codes of creating a key, of setting a value
        Text stored;         // the name that enumerations give
    } kRows[] = {
        {"nothing", u"", 0, 0, u""},
        {"no text", u"\xDE00\xD83D\xFFFF", 0, 0, u"\xDE00\xD83D\xFFFF"},
        {"a NUL, which ends a name", Text(u"a\0b", 3), 0, 0, u"a"},
        {"257 units", Text(257, u'n'), 87, 0, Text(257, u'n')},
        {"70,000 units", Text(70'000, u'n'), 87, 87, u""},
        {"separators", u"\\\\", 161, 0, u"\\\\"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        const TestKey top = emptied(u"Software\\Inputs");
        HKEY made = nullptr;
        EXPECT_EQ(RegCreateKeyExW(top, row.text.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &made, nullptr),
                  row.key);
        RegCloseKey(made);
        EXPECT_EQ(set_number(top, row.text.c_str(), 1), row.value);
        EXPECT_EQ(subkeys(top), row.key == 0 && row.stored != u"" ? row.stored + u' ' : u"");
        EXPECT_EQ(values(top), row.value == 0 ? row.stored + u' ' : u"");
    }
}

TEST_F(RegistryKeys, ChecksItsArguments) {
    HKEY out = number_as_key(4);
    const auto open = [&](HKEY key, const WCHAR *path, DWORD options, DWORD access) {
        return RegOpenKeyExW(key, path, options, access, &out);
    };
    const auto create = [&](HKEY key, const WCHAR *path) {
        return RegCreateKeyExW(key, path, 0, nullptr, 0, KEY_READ, nullptr, &out, nullptr);
    };
    std::u16string deep;
    for (int i = 0; i < 33; ++i) {
        deep += u"d\\";
    }
    const struct {
        const char *name;
        LSTATUS found, expected;
    } kRows[] = {
        {"null handle", open(nullptr, u"", 0, KEY_READ), 6},
        {"foreign handle", open(number_as_key(0x100000006), u"", 0, KEY_READ), 6},
        {"a root that is not here", open(number_as_key(0xFFFFFFFF80000004), u"", 0, KEY_READ), 6},
        {"32-bit root", open(number_as_key(0x80000001), u"Software", 0, KEY_READ), 0},
        {"both views", open(m_key, u"", 0, KEY_READ | 0x300), 87},
        {"33 new levels", create(m_key, deep.c_str()), 87},
        {"32 new levels", create(m_key, deep.c_str() + 2), 0},
        {"below HKEY_LOCAL_MACHINE", create(HKEY_LOCAL_MACHINE, u"New"), 87},
        {"missing", open(m_key, u"missing", 0, KEY_READ), 2},
        {"closed to the other table", CloseHandle(m_key), FALSE},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(row.found, row.expected) << row.name;
    }
    EXPECT_EQ(out, nullptr);
}

TEST_F(RegistryKeys, HasTheKeysOfANewStore) {
    for (const char16_t *path : {u"SOFTWARE\\Classes", u"SYSTEM\\CurrentControlSet\\Services"}) {
        EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, path), 0) << PrintToString(path);
        EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path), 5) << PrintToString(path);
    }
    EXPECT_EQ(open_code(HKEY_CURRENT_USER, u"Software\\Classes"), 0);
    const TestKey key = created(HKEY_CLASSES_ROOT, u".keys");
    EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, u"Software\\Classes\\.KEYS"), 0);
}

// What needs no right of the handle.
TEST_F(RegistryKeys, CreatesAndDeletesByTheRightsOfTheUser) {
    const TestKey weak = created(HKEY_CURRENT_USER, u"Software\\Keys", KEY_QUERY_VALUE);
    created(weak, u"v\\w", KEY_READ, REG_OPTION_VOLATILE);
    EXPECT_EQ(RegDeleteKeyW(weak, u"v"), 5);
    EXPECT_EQ(RegDeleteKeyExW(weak, u"v\\w", 0x100 | KEY_SET_VALUE, 0), 0);
    EXPECT_EQ(RegDeleteKeyW(weak, u"v"), 0);
    EXPECT_EQ(RegDeleteKeyW(weak, u"v"), 2);
}

TEST_F(RegistryKeys, RefusesHandlesOfADeletedKey) {
    const TestKey inner = created(m_key, u"a\\b");
    set_number(inner, u"n", 1);
    EXPECT_EQ(RegDeleteKeyW(m_key, u"a\\b"), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RegQueryValueExW(inner, u"n", nullptr, nullptr, nullptr, nullptr), 1018);
        EXPECT_EQ(set_number(inner, u"n", 2), 1018);
        EXPECT_EQ(open_code(inner, u""), 1018);
        created(m_key, u"a\\b");  // another key with the name
    }
}

TEST_F(RegistryKeys, DeletesATreeByTheRightsOfTheHandle) {
    created(m_key, u"a\\b\\c");
    set_number(m_key, u"n", 1);
    for (const auto &[access, code] : {std::pair(KEY_READ, 5),
                                       {0x10000 | KEY_READ, 5},
                                       {0x10000 | KEY_READ | KEY_SET_VALUE, 0}}) {
        const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Keys", access);
        EXPECT_EQ(RegDeleteTreeW(key, nullptr), code) << access;
    }
    EXPECT_EQ(subkeys(m_key) + values(m_key), u"");
    EXPECT_EQ(RegDeleteTreeW(m_key, u"missing"), 2);
}

TEST_F(RegistryKeys, Has512Levels) {
    std::u16string path;
    for (int level = 4; level < 512; ++level) {  // the key of the tests is at level 3
        path += path.empty() ? u"d" : u"\\d";
        if (level % 31 == 0) {
            created(m_key, path);
        }
    }
    const TestKey deep = created(m_key, path + u"\\d");
    EXPECT_EQ(open_code(deep, u""), 0);
    HKEY out = nullptr;
    EXPECT_EQ(RegCreateKeyExW(deep, u"d", 0, nullptr, 0, KEY_READ, nullptr, &out, nullptr), 87);
}

TEST_F(RegistryKeys, ListsSubkeysByTheirUpperCase) {
    for (const char16_t *name : {u"b", u"_", u"A", u"\xE4", u"a1", u"B\x9"}) {
        created(m_key, name);
    }
    EXPECT_EQ(subkeys(m_key), u"A a1 b B\x9 _ \xE4 ");
    WCHAR name[257] = u"x";
    DWORD count = 2;
    const auto list = [&](DWORD index) {
        return RegEnumKeyExW(m_key, index, name, &count, nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(list(1), 234);
    EXPECT_TRUE(name[0] == u'x' && count == 2);
    EXPECT_EQ(list(6), 259);
    // A name of 256 units does not fit 256 with its NUL.
    created(m_key, std::u16string(256, u'a'));
    count = 256;
    EXPECT_EQ(list(2), 234);
    count = 257;
    EXPECT_EQ(list(2), 0);
}

TEST_F(RegistryKeys, GivesTheFactsOfAKey) {
    WCHAR class_name[] = u"Class";
    HKEY out = nullptr;
    RegCreateKeyExW(m_key, u"sub", 0, class_name, 0, KEY_ALL_ACCESS, nullptr, &out, nullptr);
    const TestKey sub(out);
    created(sub, u"four");
    set_bytes(sub, u"", REG_BINARY, "12345");
    set_bytes(sub, u"name", REG_BINARY, "");
    WCHAR text[6];
    DWORD count = 6;
    DWORD facts[7] = {};
    FILETIME written{};
    const auto query = [&] {
        return RegQueryInfoKeyW(sub, text, &count, nullptr, &facts[0], &facts[1], &facts[2],
                                &facts[3], &facts[4], &facts[5], &facts[6], &written);
    };
    EXPECT_EQ(query(), 0);
    EXPECT_EQ(std::u16string(text, count), u"Class");
    EXPECT_EQ((std::vector<DWORD>(facts, facts + 7)), (std::vector<DWORD>{1, 4, 0, 2, 4, 5, 0}));
    EXPECT_GT(written.dwHighDateTime, 0x01D00000u);  // after 2014
    count = 5;
    EXPECT_EQ(query(), 234);
}

TEST_F(RegistryKeys, RefusesClosedHandles) {
    const HKEY key = TestKey(created(m_key, u""));
    EXPECT_EQ(RegCloseKey(key), 6);
    std::vector<TestKey> later;
    for (int i = 0; i < 99; ++i) {  // in every place that is free
        later.push_back(created(m_key, u""));
    }
    EXPECT_EQ(open_code(key, u""), 6);
}

}  // namespace
