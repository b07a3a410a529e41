// Drives, modules, the environment and temporary names.

#include "ostrel/platform/system.h"

#include <dlfcn.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <cerrno>
#include <map>
#include <memory>
#include <tuple>

#include "ostrel/platform/module.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "ostrel/platform/volume.h"
#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// An absolute path as the platform tells it.
std::u16string told(const fs::path &path) {
    std::u16string text = u"C:" + path.u16string();
    std::replace(text.begin(), text.end(), u'/', u'\\');
    return text;
}

// Sets variables; null removes one.
void set(const std::map<std::string, const char *> &values) {
    for (const auto &[name, value] : values) {
        value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
    }
}

TEST(Volume, IsWhatTheHostSays) {
    const TempDir dir;
    plant("file= dir/");
    setenv("OSTREL_DRIVE_W", "/dev/shm", 1);
    struct statfs host;
    ASSERT_EQ(statfs(".", &host), 0);
    const DWORD here = host.f_type == TMPFS_MAGIC ? DRIVE_RAMDISK : DRIVE_FIXED;
    const struct {
        const WCHAR *root;
        DWORD type, code;
    } cases[] = {{nullptr, here, 0},
                 {u"dir\\", here, 0},
                 {u"C:/proc/", DRIVE_FIXED, 0},
                 {u"W:\\", DRIVE_RAMDISK, 0},
                 {u"dir", here, ERROR_INVALID_NAME},
                 {u"X:\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
                 {u"file\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND}};
    for (const auto &[root, type, code] : cases) {
        EXPECT_EQ(GetDriveTypeW(root), type) << fs::path(root != nullptr ? root : u"");
        EXPECT_EQ(error_of(GetDiskFreeSpaceW(root, nullptr, nullptr, nullptr, nullptr)), code);
    }
    unsetenv("OSTREL_DRIVE_W");
    DWORD sectors = 0, size = 0, free = 0, total = 0;
    struct statvfs facts;
    ASSERT_EQ(statvfs(".", &facts), 0);
    ASSERT_TRUE(GetDiskFreeSpaceW(nullptr, &sectors, &size, &free, &total));
    EXPECT_EQ(std::uint64_t{total} * sectors * size, facts.f_blocks * facts.f_frsize);
    EXPECT_LE(free, total);
}

TEST(Module, IsNamedByItsFile) {
    const std::u16string program = told(fs::read_symlink("/proc/self/exe"));
    const auto length = static_cast<DWORD>(program.size());
    Dl_info own, library;
    ASSERT_NE(dladdr(reinterpret_cast<void *>(&told), &own), 0);
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "getsubopt"), &library), 0);
    WCHAR buffer[1000];
    const struct {
        void *module;
        DWORD room;
        std::u16string name;
        DWORD error;
    } cases[] = {
        {nullptr, 1000, program, 0},
        {own.dli_fbase, length + 1, program, 0},
        {library.dli_fbase, 1000, told(fs::canonical(library.dli_fname)), 0},
        {buffer, 1000, u"", ERROR_MOD_NOT_FOUND},
        {nullptr, length, program.substr(0, length - 1), ERROR_INSUFFICIENT_BUFFER},
        {nullptr, 1, u"", ERROR_INSUFFICIENT_BUFFER},
    };
    for (const auto &[module, room, name, error] : cases) {
        buffer[0] = 0;
        SetLastError(0);
        const DWORD stored = GetModuleFileNameW(static_cast<HMODULE>(module), buffer, room);
        EXPECT_EQ(stored, error == ERROR_INSUFFICIENT_BUFFER ? room : name.size());
        EXPECT_EQ(GetLastError(), error);
        EXPECT_EQ(buffer, name);
    }
}

TEST(System, TellsItsVersionAndComparesTimes) {
    OSVERSIONINFOW version;
    version.dwOSVersionInfoSize = 276;
    ASSERT_TRUE(GetVersionExW(&version));
    EXPECT_EQ(std::tie(version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber),
              std::tuple(6u, 2u, 9200u));
    version.dwOSVersionInfoSize = 284;
    EXPECT_EQ(error_of(GetVersionExW(&version)), ERROR_INSUFFICIENT_BUFFER);
    const FILETIME times[] = {{0, 0}, {0xFFFFFFFF, 0}, {0, 1}, {1, 0x7FFFFFFF}, {0, 0x80000000}};
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(CompareFileTime(&times[i / 5], &times[i % 5]), (i / 5 > i % 5) - (i / 5 < i % 5));
    }
}

TEST(Environment, ComparesNamesWithoutRegardToCase) {
    set({{"Ostrel_Test_A", "first"},
         {"ostrel_test_a", "sp\xC3\xA4ter"},
         {"OSTREL_TEST_\xC3\x84", "umlaut"},
         {"OSTREL_TEST_B", ""}});
    const std::pair<const WCHAR *, std::u16string> cases[] = {
        {u"ostrel_test_a", u"sp\u00E4ter"}, {u"Ostrel_Test_A", u"first"},
        {u"ostrel_test_\u00C4", u"umlaut"}, {u"ostrel_test_\u00E4", u"-"},
        {u"OSTREL_TEST_B", u"-"},           {u"OSTREL_TEST_", u"-"},
        {u"Ostrel_Test_A=first", u"-"}};
    for (const auto &[name, value] : cases) {
        const WCHAR *const found = _wgetenv(name);
        EXPECT_EQ(found != nullptr ? found : u"-", value) << fs::path(name);
    }
    const WCHAR *const first = _wgetenv(u"Ostrel_Test_A");
    set({{"Ostrel_Test_A", nullptr}});
    EXPECT_NE(_wgetenv(u"Ostrel_Test_A"), first);
    EXPECT_EQ(std::u16string(first), u"first");  // stays in place
}

TEST(TemporaryNames, ComeFromTheFirstFolderThereIs) {
    const std::string longest = '/' + std::string(255, 'd');
    const std::string too_long = longest + 'd';
    const struct {
        const char *tmp, *temp, *profile, *tmpdir;
        std::u16string folder;
    } cases[] = {
        {"D:\\one", "/two", nullptr, nullptr, u"D:\\one\\"},
        {nullptr, "/two/", "/three", nullptr, u"C:\\two\\"},
        {"", nullptr, "rel/x", "/four", u"rel/x\\"},
        {nullptr, nullptr, nullptr, "/four/\xFF", u"C:\\four\\\xDCFF\\"},
        {"/", nullptr, nullptr, nullptr, u"C:\\"},
        {longest.c_str(), nullptr, nullptr, nullptr, u"C:\\" + std::u16string(255, u'd') + u"\\"},
        {too_long.c_str(), nullptr, nullptr, nullptr, u"C:\\tmp\\"},
    };
    for (const auto &[tmp, temp, profile, tmpdir, folder] : cases) {
        set({{"TMP", tmp}, {"TEMP", temp}, {"USERPROFILE", profile}, {"TMPDIR", tmpdir}});
        WCHAR buffer[MAX_PATH] = u"untouched";
        const auto length = static_cast<DWORD>(folder.size());
        EXPECT_EQ(GetTempPathW(length, buffer), length + 1);
        EXPECT_EQ(buffer, std::u16string(u"untouched"));
        EXPECT_EQ(GetTempPathW(length + 1, buffer), length);
        EXPECT_EQ(buffer, folder);
    }
    set({{"TMP", nullptr}});
}

TEST(TemporaryNames, AreFreeAndInTheRightFolder) {
    const TempDir dir;
    plant("tmp/ own/");
    const std::string tmp = dir.Path() / "tmp";
    const std::u16string too_long(250, u'p');
    const struct {
        const char *tmp;
        const WCHAR *directory, *prefix;
        std::u16string begin;
        int error;
    } cases[] = {{tmp.c_str(), u"own", u"p", told(tmp) + u"\\p", 0},
                 {"/none", u"own", nullptr, u"own\\", 0},
                 {nullptr, u"none", u"p", u".\\p", 0},
                 {"/none", nullptr, u"p", u".\\p", 0},
                 {"/none", u"none", u"p", u"", ENOENT},
                 {nullptr, nullptr, too_long.c_str(), u"", ENAMETOOLONG}};
    std::u16string last;
    for (std::size_t i = 0; i < 2 * std::size(cases); ++i) {
        const auto &[variable, directory, prefix, begin, error] = cases[i / 2];
        set({{"TMP", variable}});
        errno = 0;
        const std::unique_ptr<WCHAR, decltype(&std::free)> name(_wtempnam(directory, prefix),
                                                                std::free);
        ASSERT_EQ(name != nullptr ? 0 : errno, error) << i;
        if (error == 0) {
            const std::u16string text = name.get();
            EXPECT_EQ(text.substr(0, begin.size()), begin);
            EXPECT_EQ(text.find_first_not_of(u"0123456789", begin.size()), text.npos);
            EXPECT_NE(std::exchange(last, text), text);
        }
    }
    set({{"TMP", nullptr}});
}

TEST(Access, LooksAtReadOnlyAlone) {
    const TempDir dir;
    plant("file= protected= dir/ link->none");
    ASSERT_EQ(chmod("protected", 0444) | chmod("dir", 0555), 0);
    const std::u16string too_long(300, u'a');
    const std::tuple<const WCHAR *, int, int> cases[] = {{u"file", 6, 0},
                                                         {u"protected", 4, 0},
                                                         {u"protected", 6, EACCES},
                                                         {u"dir", 6, 0},
                                                         {u"link", 6, 0},
                                                         {u"file\\x", 0, ENOENT},
                                                         {too_long.c_str(), 0, ENOENT},
                                                         {u"file", 1, EINVAL},
                                                         {nullptr, 0, EINVAL}};
    for (const auto &[path, mode, error] : cases) {
        errno = 0;
        EXPECT_EQ(_waccess(path, mode), error != 0 ? -1 : 0);
        EXPECT_EQ(error != 0 ? errno : 0, error) << testing::PrintToString(path) << mode;
    }
}

}  // namespace
