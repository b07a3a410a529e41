// Names and folders that nobody would choose. Each test has a registry of its own, in
// children of this program.

#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>

#include "support/registry.h"

namespace {

using Text = std::u16string;

TEST(RegistryInputs, TakesEveryName) {
    const RegistryFolder folder;
    Text deep;  // 70,000 units
    for (int i = 0; i < 280; ++i) {
        deep += Text(249, u'd') + u'\\';
    }
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
            SCOPED_TRACE(row.name);
            const TestKey top = emptied(u"Software\\Inputs");
            HKEY made = nullptr;
            EXPECT_EQ(RegCreateKeyExW(top, row.text.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                      &made, nullptr),
                      row.key);
            RegCloseKey(made);
            EXPECT_EQ(open_code(top, row.text), row.key == 87 ? 2 : row.key);
            EXPECT_EQ(set_number(top, row.text.c_str(), 1), row.value);
            EXPECT_EQ(number(top, row.text.c_str()).has_value(), row.value == 0);
            const bool is_key = row.key == 0 && !row.stored.empty();
            EXPECT_EQ(subkeys(top), is_key ? row.stored + u' ' : u"");
            EXPECT_EQ(values(top), row.value == 0 ? row.stored + u' ' : u"");
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
    const std::vector<LSTATUS> kWorks{0, 0, 0, 0};
    const struct {
        const char *name, *command;  // run in the folder
        const char *path;            // of the registry, in the folder
        std::vector<LSTATUS> codes;
        bool is_weak = false;
    } kRows[] = {
        {"a folder", "", "", kWorks},
        {"missing, two levels", "", "a/b", kWorks},
        {"a file", "touch file", "file", {3}},
        {"a link to a folder", "mkdir real; ln -s real link", "link", kWorks},
        {"a link to itself", "ln -s loop loop", "loop", {161}},
        {"a database that is a link",
         "OSTREL_REGISTRY=$PWD/real " OSTREL_REG " add HKCU/A >real.txt; ln -s real/user.db .", "",
         kWorks},
        {"a database that is a folder", "mkdir user.db", "", {1009}},
        {"a lock that is a folder", "mkdir user.lock", "", {5}},
        {"without permission", "chmod 0 .", "", {5}, true},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        EXPECT_EQ(std::system(("cd \"$OSTREL_REGISTRY\"; " + std::string(row.command)).c_str()), 0);
        setenv("OSTREL_REGISTRY", folder.Path(row.path).c_str(), 1);
        EXPECT_TRUE(holds_in_child([&] {
            if (row.is_weak && geteuid() == 0) {  // root has every permission
                EXPECT_EQ(setresuid(65534, 65534, 65534), 0);
            }
            EXPECT_EQ(codes_of_use(), row.codes);
            EXPECT_EQ(codes_of_use(), row.codes);
        })) << row.name;
        chmod(folder.Path().c_str(), 0700);
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
