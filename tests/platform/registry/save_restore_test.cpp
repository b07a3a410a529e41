#include "ostrel/platform/error.h"
#include "ostrel/platform/registry.h"
#include "support/registry.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

// The tests of a process share a registry, so each has keys of its own.
HKEY made(const WCHAR *path, DWORD options = 0) {
    RegistryFolder::OfProcess();
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    return key;
}

LSTATUS set(HKEY key, const WCHAR *name, const std::string &bytes) {
    return RegSetValueExW(key, name, 0, REG_BINARY, reinterpret_cast<const BYTE *>(bytes.data()),
                          static_cast<DWORD>(bytes.size()));
}

// The bytes of a value, or "none".
std::string got(const WCHAR *path, const WCHAR *name) {
    char bytes[100];
    DWORD size = sizeof bytes;
    const LSTATUS status =
        RegGetValueW(HKEY_CURRENT_USER, path, name, RRF_RT_ANY, nullptr, bytes, &size);
    return status == ERROR_SUCCESS ? std::string(bytes, size) : "none";
}

TEST(SaveRestore, BringsAKeyBack) {
    const TempDir dir;
    const HKEY key = made(u"S"), below = made(u"S\\B\\C"), passing = made(u"S\\V", 1);
    EXPECT_EQ(set(key, u"a", "1") + set(below, nullptr, "22") + set(passing, u"v", "3"), 0);
    EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_ALREADY_EXISTS);
    set(key, u"b", "new");
    set(below, nullptr, "changed");
    EXPECT_EQ(RegRestoreKeyW(key, u"s.reg", 0), ERROR_ACCESS_DENIED);
    EXPECT_EQ(got(u"S", u"b") + got(u"S\\B\\C", nullptr), "newchanged");
    RegCloseKey(below);
    RegCloseKey(passing);
    EXPECT_EQ(RegRestoreKeyW(key, u"s.reg", 0), ERROR_SUCCESS);
    EXPECT_EQ(got(u"S", u"a") + got(u"S", u"b") + got(u"S\\B\\C", u"") + got(u"S\\V", u"v"),
              "1none22none");
    EXPECT_EQ(RegCloseKey(key) + RegDeleteTreeW(HKEY_CURRENT_USER, u"S"), 0);
}

TEST(SaveRestore, RefusesAndChangesNothing) {
    const TempDir dir;
    const std::string head = "REGEDIT4\n[HKEY_USERS\\x]\n@=\"new\"\n";
    const HKEY key = made(u"R");
    EXPECT_EQ(set(key, u"a", "old"), 0);
    const std::tuple<const char *, std::string, DWORD, LSTATUS> cases[] = {
        {"fault", head + "@=", 0, ERROR_NOT_REGISTRY_FILE},
        {"no key", "REGEDIT4\n", 0, ERROR_NOT_REGISTRY_FILE},
        {"deletes a value", head + "\"a\"=-\n", 0, ERROR_NOT_REGISTRY_FILE},
        {"deletes a key", head + "[-HKEY_USERS\\x\\y]\n", 0, ERROR_NOT_REGISTRY_FILE},
        {"key beside", head + "[HKEY_USERS\\xy]\n", 0, ERROR_NOT_REGISTRY_FILE},
        {"other root", head + "[HKEY_CURRENT_USER\\x\\y]\n", 0, ERROR_NOT_REGISTRY_FILE},
        {"flag", head, REG_WHOLE_HIVE_VOLATILE, ERROR_INVALID_PARAMETER},
    };
    for (const auto &[name, text, flags, code] : cases) {
        const std::u16string file = dir.Write("r.reg", text);
        EXPECT_EQ(RegRestoreKeyW(key, file.c_str(), flags), code) << name;
        EXPECT_EQ(got(u"R", u"a") + got(u"R", u""), "oldnone") << name;
    }
    EXPECT_EQ(RegRestoreKeyW(key, u"none.reg", 0), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegRestoreKeyW(HKEY_CURRENT_USER, u"r.reg", 0), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegSaveKeyW(HKEY_CURRENT_USER, u"root.reg", nullptr), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegSaveKeyW(key, u"none\\s.reg", nullptr), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(RegSaveKeyW(key, u"", nullptr), ERROR_PATH_NOT_FOUND);
    HKEY odd = made(u"R\\a\nb");
    EXPECT_EQ(RegSaveKeyW(key, u"s.reg", nullptr), ERROR_BADKEY);
    EXPECT_EQ(RegCloseKey(odd), 0);
    const std::u16string file = dir.Write("r.reg", head + "[hkey_users\\X\\y]\n\"v\"=\"w\"\n");
    EXPECT_EQ(RegRestoreKeyW(key, file.c_str(), 0), ERROR_SUCCESS);
    EXPECT_EQ(got(u"R", u"a") + got(u"R\\y", u"v"), std::string("nonew\0\0\0", 8));
    EXPECT_EQ(RegCloseKey(key) + RegDeleteTreeW(HKEY_CURRENT_USER, u"R"), 0);
}

}  // namespace
