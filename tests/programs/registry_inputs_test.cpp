// Names, values and folders that nobody would choose. Each test has a registry of its own, in
// children of this program.

#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>

#include "support/registry.h"

namespace {

using Text = std::u16string;

Text repeated(std::size_t count, const Text &text) {
    Text all;
    for (; count > 0; --count) {
        all += text;
    }
    return all;
}

TEST(RegistryInputs, TakesEveryName) {
    const RegistryFolder folder;
    const Text deep = repeated(280, Text(249, u'd') + u'\\');  // 70,000 units
    const struct {
        const char *name;
        Text text;
        LSTATUS key, value;  // the codes of creating a key, of setting a value
        Text stored;         // the name that enumerations give
    } kRows[] = {
        {"nothing", u"", 0, 0, u""},
        {"a NUL, which ends a name", Text(u"a\0b", 3), 0, 0, u"a"},
        {"a high surrogate", u"x\xD83D", 0, 0, u"x\xD83D"},
        {"a low surrogate before a high one", u"\xDE00\xD83D", 0, 0, u"\xDE00\xD83D"},
        {"no character", u"\xFFFF\xFFFE", 0, 0, u"\xFFFF\xFFFE"},
        {"slashes", u"/a//b/", 0, 0, u"/a//b/"},
        {"dots", u"..", 0, 0, u".."},
        {"controls", u"\n\r\t\x01", 0, 0, u"\n\r\t\x01"},
        {"256 units", Text(256, u'n'), 0, 0, Text(256, u'n')},
        {"257 units", Text(257, u'n'), 87, 0, Text(257, u'n')},
        {"70,000 units", Text(70'000, u'n'), 87, 87, u""},
        {"280 levels", deep, 87, 87, u""},
        {"separators", u"\\\\", 161, 0, u"\\\\"},
    };
    EXPECT_TRUE(holds_in_child([&] {
        for (const auto &row : kRows) {
            const TestKey top = created(HKEY_CURRENT_USER, u"Software\\Inputs");
            HKEY made = nullptr;
            EXPECT_EQ(RegCreateKeyExW(top, row.text.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                      &made, nullptr),
                      row.key)
                << row.name;
            RegCloseKey(made);
            EXPECT_EQ(open_code(top, row.text), row.key == 87 ? 2 : row.key) << row.name;
            EXPECT_EQ(set_number(top, row.text.c_str(), 1), row.value) << row.name;
            EXPECT_EQ(number(top, row.text.c_str()).has_value(), row.value == 0) << row.name;
            WCHAR name[300] = {};
            DWORD count = 300;
            const LSTATUS code =
                RegEnumKeyExW(top, 0, name, &count, nullptr, nullptr, nullptr, nullptr);
            EXPECT_EQ(code, row.key == 0 && !row.stored.empty() ? 0 : 259) << row.name;
            EXPECT_EQ(Text(name), code == 0 ? row.stored : u"") << row.name;
            count = 300;
            EXPECT_EQ(RegEnumValueW(top, 0, name, &count, nullptr, nullptr, nullptr, nullptr),
                      row.value == 0 ? 0 : 259)
                << row.name;
            EXPECT_EQ(row.value == 0 ? Text(name, count) : u"", row.stored) << row.name;
            EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, u"Software\\Inputs"), 0) << row.name;
        }
    }));
}

TEST(RegistryInputs, TakesEveryValue) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([] {
        const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Inputs");
        for (const std::size_t size :
             {std::size_t{0}, std::size_t{1}, std::size_t{65'537}, std::size_t{64} << 20}) {
            const std::string bytes(size, '\x5A');
            EXPECT_EQ(set_bytes(key, u"v", REG_SZ, bytes), 0) << size;
            std::string found(size + 1, '?');
            auto count = static_cast<DWORD>(found.size());
            EXPECT_EQ(RegQueryValueExW(key, u"v", nullptr, nullptr,
                                       reinterpret_cast<BYTE *>(found.data()), &count),
                      0)
                << size;
            EXPECT_TRUE(count == size && found == bytes + '?') << size;
        }
    }));
}

// What a program finds: opens, sets, reads and flushes. Gives the codes.
std::vector<LSTATUS> codes_of_use() {
    HKEY key = nullptr;
    std::vector<LSTATUS> codes{RegCreateKeyExW(HKEY_CURRENT_USER, u"Software\\Inputs", 0, nullptr,
                                               0, KEY_ALL_ACCESS, nullptr, &key, nullptr)};
    if (key != nullptr) {
        codes.push_back(set_number(key, u"v", 1));
        codes.push_back(RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, nullptr));
        codes.push_back(RegFlushKey(key));
    }
    RegCloseKey(key);
    return codes;
}

TEST(RegistryInputs, FindsWhateverTheFolderIs) {
    using Codes = std::vector<LSTATUS>;
    const Codes kWorks{0, 0, 0, 0};
    const uid_t user = geteuid();
    const struct {
        const char *name;
        std::function<void(const RegistryFolder &)> make;
        Codes codes;
    } kRows[] = {
        {"a folder", [](const auto &) {}, kWorks},
        {"missing, two levels",
         [](const auto &folder) { setenv("OSTREL_REGISTRY", folder.Path("a/b").c_str(), 1); },
         kWorks},
        {"a link to a folder",
         [](const auto &folder) {
             std::filesystem::create_directory(folder.Path("real"));
             std::filesystem::create_symlink("real", folder.Path("link"));
             setenv("OSTREL_REGISTRY", folder.Path("link").c_str(), 1);
         },
         kWorks},
        {"a link to itself",
         [](const auto &folder) {
             std::filesystem::create_symlink("loop", folder.Path("loop"));
             setenv("OSTREL_REGISTRY", folder.Path("loop").c_str(), 1);
         },
         {161}},
        {"a database that is a link",
         [](const auto &folder) {
             std::filesystem::create_directory(folder.Path("real"));
             const std::string path = folder.Path();
             setenv("OSTREL_REGISTRY", folder.Path("real").c_str(), 1);
             EXPECT_TRUE(holds_in_child([] { codes_of_use(); }));
             setenv("OSTREL_REGISTRY", path.c_str(), 1);
             std::filesystem::create_symlink("real/user.db", folder.Path("user.db"));
         },
         kWorks},
        {"a database that is a folder",
         [](const auto &folder) { std::filesystem::create_directory(folder.Path("user.db")); },
         {1009}},
        {"a lock that is a folder",
         [](const auto &folder) { std::filesystem::create_directory(folder.Path("user.lock")); },
         {5}},
        {"without permission",
         [user](const auto &folder) {
             chmod(folder.Path().c_str(), 0);
             if (user == 0) {
                 EXPECT_EQ(setresuid(65534, 65534, 65534), 0);
             }
         },
         {5}},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        EXPECT_TRUE(holds_in_child([&] {
            row.make(folder);
            EXPECT_EQ(codes_of_use(), row.codes);
            EXPECT_EQ(codes_of_use(), row.codes);
        })) << row.name;
        if (std::filesystem::is_directory(folder.Path("user.db"))) {
            std::filesystem::remove(folder.Path("user.db"));
        }
        for (const char *store : {"a/b/user", "real/user"}) {
            unlink(folder.Page(store).c_str());
        }
    }
}

TEST(RegistryInputs, BeginsAnewWhereTheFolderIsRemoved) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([&] {
        const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Inputs");
        EXPECT_EQ(set_number(key, u"v", 1), 0);
        unlink(folder.Page("user").c_str());
        std::filesystem::remove_all(folder.Path());
        LSTATUS code = 0;
        while (code == 0) {  // until the files are checked again
            code = set_number(key, u"v", 2);
        }
        EXPECT_EQ(code, 1018);  // the handle leads to a key of the store that is gone
        EXPECT_EQ(codes_of_use(), std::vector<LSTATUS>(4, 0));
    }));
}

TEST(RegistryInputs, ChangesNothingOnAFullDisk) {
    const RegistryFolder folder;
    if (geteuid() != 0 || mount("none", folder.Path().c_str(), "tmpfs", 0, "size=512k") != 0) {
        GTEST_SKIP() << "needs the right to mount";
    }
    EXPECT_TRUE(holds_in_child([&] {
        const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Inputs");
        EXPECT_EQ(set_bytes(key, u"v", REG_BINARY, "before"), 0);
        std::ofstream(folder.Path("filler")) << std::string(1 << 20, 'x');
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(set_bytes(key, u"v", REG_BINARY, std::string(40'000, 'x')), 112);
        }
        // A process that comes now reads what there is.
        EXPECT_TRUE(holds_in_child([&] {
            DWORD size = 0;
            EXPECT_EQ(RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, &size), 0);
            EXPECT_EQ(size, 6u);
        }));
        std::filesystem::remove(folder.Path("filler"));
        EXPECT_EQ(set_bytes(key, u"v", REG_BINARY, std::string(40'000, 'x')), 0);
    }));
    folder.RemovePages();
    EXPECT_EQ(umount(folder.Path().c_str()), 0);
}

}  // namespace
