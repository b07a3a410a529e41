#include "ostrel/registry/reg_key.h"

#include "support/registry.h"
#include "support/temp_dir.h"
#include "support/text.h"

namespace {

using namespace std::literals;
using OS::CRegKey;
constexpr DWORD kUnread = 0xAAAAAAAA;

class RegKey : public testing::Test {
protected:
    RegKey() {
        m_key.Create(emptied(u"Software\\Class"), u"", nullptr, 0, KEY_ALL_ACCESS, nullptr,
                     nullptr);
    }

    CRegKey m_key;
};

TEST_F(RegKey, KeepsItsKeyWhenAnotherCannotBeOpened) {
    DWORD disposition = 7;
    const HKEY before = m_key;
    EXPECT_EQ(m_key.Open(HKEY_CURRENT_USER, TEXT("None"), KEY_READ), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(m_key.IsOpen() && m_key == before);
    EXPECT_EQ(m_key.Create(m_key, TEXT("Sub"), nullptr, 0, KEY_READ, nullptr, &disposition), 0);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    EXPECT_EQ(RegCloseKey(before), ERROR_INVALID_HANDLE);  // closed for the new one
    RegCloseKey(m_key);
    EXPECT_EQ(m_key.Open(HKEY_CURRENT_USER, TEXT("Software"), KEY_READ), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(m_key.IsOpen());  // the code was that of closing
    EXPECT_EQ(m_key.Close() | m_key.Close(), 0);
    EXPECT_FALSE(m_key.IsOpen());
}

TEST_F(RegKey, CopiesTheHandleAlone) {
    CRegKey other;
    EXPECT_EQ(other.Open(HKEY_CURRENT_USER, nullptr, KEY_READ), 0);
    const TestKey lost(other);
    EXPECT_EQ(&(other = m_key), &other);
    EXPECT_EQ(static_cast<HKEY>(other), m_key);
    other.Attach(other.Detach());
    EXPECT_EQ(subkeys(lost), u"Software ");  // still open
    EXPECT_EQ(other.Detach(), m_key);
    EXPECT_FALSE(other.IsOpen());
}

TEST_F(RegKey, WritesTypesAndBytes) {
    using Set = std::set<OS::x_wstring, OS::XWSTRICMP>;
    const Set two = {TEXT("a"), TEXT(""), TEXT("B")};
    const struct {
        const char *name;
        LONG code;
        const WCHAR *value;
        DWORD type;
        std::string bytes;
    } kRows[] = {
        {"number", m_key.SetValue(DWORD{0x1234}, TEXT("n")), TEXT("n"), 4, "\x34\x12\0\0"s},
        {"narrow", m_key.SetValue("ab", "s"), TEXT("s"), 1, "a\0b\0\0\0"s},
        {"time", m_key.SetValue(FILETIME{1, 2}, TEXT("t")), TEXT("t"), 11, "\1\0\0\0\2\0\0\0"s},
        {"set", m_key.SetValue(two, TEXT("m")), TEXT("m"), 7, "B\0\0\0a\0\0\0\0\0"s},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(row.code, 0) << row.name;
        DWORD type = 0;
        EXPECT_EQ(bytes_of(m_key, row.value, &type), row.bytes) << row.name;
        EXPECT_EQ(type, row.type) << row.name;
    }
    EXPECT_EQ(m_key.SetKeyValue(TEXT("Sub\\New"), TEXT("x"), TEXT("v")), 0);
    CRegKey sub;
    OS::x_wstring text;
    EXPECT_EQ(sub.Open(m_key, TEXT("Sub\\New"), KEY_READ) | sub.QueryValue(TEXT("v"), text), 0);
    EXPECT_EQ(text, TEXT("x"));
}

TEST_F(RegKey, ReadsNumbersOfAnyType) {
    const struct {
        const char *bytes;
        DWORD size;
        LONG code;
        DWORD number;
        int flag;
        DWORD copy;  // which QueryDWORDValue gives
    } kRows[] = {{"\5\0\0\0", 4, 0, 5, 1, 5},
                 {"\1", 1, 0, 0xAAAAAA01, 1, 1},
                 {"\1\2\3\4\5", 5, ERROR_MORE_DATA, kUnread, 0, kUnread},
                 {nullptr, 0, ERROR_FILE_NOT_FOUND, kUnread, 0, kUnread}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.size);
        m_key.DeleteValue(TEXT("n"));
        if (row.bytes != nullptr) {
            set_bytes(m_key, TEXT("n"), REG_BINARY, std::string(row.bytes, row.size));
        }
        DWORD number = kUnread, copy = kUnread;
        int flag = 5;
        EXPECT_EQ(m_key.QueryValue(number, TEXT("n")), row.code);
        EXPECT_EQ(m_key.QueryValue(flag, TEXT("n")), row.code);
        EXPECT_EQ(number, row.number);
        EXPECT_EQ(flag, row.flag);
        EXPECT_EQ(CRegKey::QueryDWORDValue(m_key, TEXT(""), TEXT("n"), &copy), row.code);
        EXPECT_EQ(copy, row.copy);
    }
}

// Units of the value, and the text that a read gives and CopyStringValue writes.
TEST_F(RegKey, EndsTextsAtTheirNulOrTheEndOfTheValue) {
    const std::u16string longest(127, u'x');
    const struct {
        const char *name;
        std::u16string stored;
        std::size_t cut;  // bytes at the end
        std::u16string text;
        LONG copied;
    } kRows[] = {
        {"with NUL", {u'a', u'b', 0}, 0, u"ab", 0},
        {"without", u"ab", 0, u"ab", 0},
        {"inner NUL", {u'a', 0, u'b', 0}, 0, u"a", 0},
        {"odd byte", u"ab", 1, u"a", 0},
        {"256 bytes without NUL", longest + u'x', 0, longest + u'x', 0},
        {"258 bytes", longest + u'x' + u'\0', 0, longest + u'x', ERROR_MORE_DATA},
    };
    for (const auto &row : kRows) {
        const std::string bytes(reinterpret_cast<const char *>(row.stored.data()),
                                row.stored.size() * 2 - row.cut);
        SCOPED_TRACE(row.name);
        EXPECT_EQ(set_bytes(m_key, TEXT("s"), REG_BINARY, bytes), 0);
        m_key.DeleteValue(TEXT("copy"));
        OS::x_wstring text, copy;
        EXPECT_EQ(m_key.QueryValue(TEXT("s"), text), 0);
        EXPECT_EQ(whole(text), row.text);
        EXPECT_EQ(m_key.CopyStringValue(m_key, TEXT("s"), TEXT("copy")), row.copied);
        EXPECT_EQ(m_key.QueryValue(TEXT("copy"), copy), row.copied == 0 ? 0 : 2);
        EXPECT_EQ(whole(copy), row.copied == 0 ? row.text : u"");
    }
    OS::x_astring kept("kept");
    EXPECT_EQ(m_key.QueryValue("none", kept), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(kept, "kept");
    EXPECT_EQ(m_key.SetValue("narrow", "copy") | m_key.QueryValue("copy", kept), 0);
    EXPECT_EQ(kept, "narrow");
    EXPECT_EQ(m_key.CopyStringValue(m_key, TEXT("none"), TEXT("new")), ERROR_FILE_NOT_FOUND);
    set_number(m_key, TEXT("n"), 7);
    EXPECT_EQ(m_key.CopyDwordValue(m_key, TEXT("n"), TEXT("new")), 0);
    EXPECT_EQ(number(m_key, TEXT("new")), 7u);
    WCHAR units[4] = {};
    EXPECT_EQ(m_key.QueryValue(TEXT("new"), units, 3), ERROR_MORE_DATA);
    EXPECT_EQ(m_key.QueryValue(TEXT("new"), units, 4), 0);
}

TEST_F(RegKey, DeletesTrees) {
    created(m_key, u"A\\B\\C");
    created(m_key, u"Keep");
    EXPECT_EQ(m_key.DeleteSubKey(TEXT("A")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(m_key.RecurseDeleteKey(TEXT("A")), 0);
    EXPECT_EQ(subkeys(m_key), u"Keep ");
    created(m_key, u"Keep\\" + std::u16string(256, u'n'));  // a name that enumeration refuses
    EXPECT_EQ(m_key.RecurseDeleteKey(TEXT("Keep")), ERROR_ACCESS_DENIED);
}

TEST_F(RegKey, SavesOverAnExistingFileAndRestores) {
    const TempDir dir;
    const std::u16string file = dir.Write("saved", "old");
    EXPECT_EQ(m_key.SetValue(DWORD{3}, TEXT("n")), 0);
    EXPECT_EQ(m_key.SaveKey(file.c_str(), nullptr), 0);
    EXPECT_EQ(m_key.SetValue(DWORD{4}, TEXT("n")), 0);
    EXPECT_EQ(m_key.RestoreKey(file.c_str(), 0), 0);
    EXPECT_EQ(number(m_key, TEXT("n")), 3u);
}

}  // namespace
