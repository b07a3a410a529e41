#include "ostrel/platform/error.h"
#include "ostrel/platform/registry.h"
#include "support/registry.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

// The bytes of a value, or "none".
std::string got(HKEY key, const WCHAR *path, const WCHAR *name) {
    char bytes[100];
    DWORD size = sizeof bytes;
    const LSTATUS status = RegGetValueW(key, path, name, RRF_RT_ANY, nullptr, bytes, &size);
    return status == ERROR_SUCCESS ? std::string(bytes, size) : "none";
}

TEST(SaveRestore, BringsAKeyBack) {
    const TempDir dir;
    const TestKey key = emptied(u"Software\\S");
    {
        const TestKey below = created(key, u"B\\C");
        const TestKey passing = created(key, u"V", KEY_ALL_ACCESS, REG_OPTION_VOLATILE);
        EXPECT_EQ(set_bytes(key, u"a", 3, "1"), 0);
        EXPECT_EQ(set_bytes(below, nullptr, 3, "22"), 0);
        EXPECT_EQ(set_bytes(passing, u"v", 3, "3"), 0);
        EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_SUCCESS);
        EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_ALREADY_EXISTS);
        set_bytes(key, u"b", 3, "new");
        set_bytes(below, nullptr, 3, "changed");
        EXPECT_EQ(RegRestoreKeyW(key, u"s.reg", 0), ERROR_ACCESS_DENIED);
        EXPECT_EQ(got(key, u"", u"b") + got(below, u"", nullptr), "newchanged");
    }
    EXPECT_EQ(RegRestoreKeyW(key, u"s.reg", 0), ERROR_SUCCESS);
    EXPECT_EQ(
        got(key, u"", u"a") + got(key, u"", u"b") + got(key, u"B\\C", u"") + got(key, u"V", u"v"),
        "1none22none");
}

TEST(SaveRestore, RefusesAndChangesNothing) {
    const TempDir dir;
    const std::string head = "REGEDIT4\n[HKEY_USERS\\x]\n@=\"new\"\n";
    const TestKey key = emptied(u"Software\\R");
    EXPECT_EQ(set_bytes(key, u"a", 3, "old"), 0);
    const std::pair<const char *, std::string> cases[] = {
        {"fault", head + "@="},
        {"deletes a key", head + "[-HKEY_USERS\\x\\y]\n"},
    };
    for (const auto &[name, text] : cases) {
        const std::u16string file = dir.Write("r.reg", text);
        EXPECT_EQ(RegRestoreKeyW(key, file.c_str(), 0), ERROR_NOT_REGISTRY_FILE) << name;
        EXPECT_EQ(got(key, u"", u"a") + got(key, u"", u""), "oldnone") << name;
    }
    EXPECT_EQ(RegRestoreKeyW(key, u"none.reg", 0), ERROR_FILE_NOT_FOUND);
    created(key, u"a\nb");
    EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_BADKEY);
    const std::u16string file = dir.Write("r.reg", head + "[hkey_users\\X\\y]\n\"v\"=\"w\"\n");
    EXPECT_EQ(RegRestoreKeyW(key, file.c_str(), 0), ERROR_SUCCESS);
    EXPECT_EQ(got(key, u"", u"a") + got(key, u"y", u"v"), std::string("nonew\0\0\0", 8));
}

}  // namespace
