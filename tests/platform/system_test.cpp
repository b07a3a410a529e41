// Drives, modules, the environment and temporary names.

#include "ostrel/platform/system.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <map>
#include <tuple>

#include "ostrel/platform/module.h"
#include "ostrel/platform/volume.h"
#include "support/file_calls.h"

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
    const Planted dir("file=");
    set({{"OSTREL_DRIVE_W", "/dev/shm"}});
    const std::tuple<std::u16string, DWORD, DWORD> cases[] = {
        {u"C:/proc/", DRIVE_FIXED, 0},
        {u"W:\\", DRIVE_RAMDISK, 0},
        {u"C:/proc", DRIVE_FIXED, ERROR_INVALID_NAME},
        {u"X:\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
        {u"file\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND}};
    for (const auto &[path, type, code] : cases) {
        EXPECT_EQ(GetDriveTypeW(path.c_str()), type) << fs::path(path);
        EXPECT_EQ(error_of(GetDiskFreeSpaceW(path.c_str(), nullptr, nullptr, nullptr, nullptr)),
                  code);
    }
    set({{"OSTREL_DRIVE_W", nullptr}});
    DWORD sectors, size, free, total;
    struct statvfs facts;
    ASSERT_EQ(statvfs(".", &facts), 0);
    ASSERT_TRUE(GetDiskFreeSpaceW(nullptr, &sectors, &size, &free, &total));
    EXPECT_EQ(std::uint64_t{total} * sectors * size, facts.f_blocks * facts.f_frsize);
    EXPECT_LE(free, total);
}

TEST(Module, IsNamedByItsFile) {
    const std::u16string program = told(fs::read_symlink("/proc/self/exe"));
    const auto length = static_cast<DWORD>(program.size());
    WCHAR buffer[1000];
    const std::tuple<void *, DWORD, std::u16string, DWORD> cases[] = {
        {nullptr, length + 1, program, 0},
        {nullptr, length, program.substr(0, length - 1), ERROR_INSUFFICIENT_BUFFER},
        {buffer, 1000, u"", ERROR_MOD_NOT_FOUND}};
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
    EXPECT_EQ(GetVersionExW(&version) ? version.dwMajorVersion : 0, 6u);
    version.dwOSVersionInfoSize = 284;
    EXPECT_EQ(error_of(GetVersionExW(&version)), ERROR_INSUFFICIENT_BUFFER);
    const FILETIME less = {0xFFFFFFFF, 0x7FFFFFFF}, more = {0, 0x80000000};
    EXPECT_EQ(CompareFileTime(&less, &more), -1);
    EXPECT_EQ(CompareFileTime(&more, &less), 1);
    EXPECT_EQ(CompareFileTime(&more, &more), 0);
}

TEST(Environment, ComparesNamesWithoutRegardToCase) {
    set({{"Ostrel_Test_A", "first"},
         {"ostrel_test_a", "sp\xC3\xA4ter"},
         {"OSTREL_TEST_\xC3\x84", "umlaut"},
         {"OSTREL_TEST_B", ""}});
    const std::map<std::u16string, std::u16string> values = {
        {u"ostrel_test_a", u"sp\u00E4ter"}, {u"Ostrel_Test_A", u"first"},
        {u"ostrel_test_\u00C4", u"umlaut"}, {u"ostrel_test_\u00E4", u"-"},
        {u"OSTREL_TEST_B", u"-"},           {u"Ostrel_Test_A=first", u"-"}};
    for (const auto &[name, value] : values) {
        const WCHAR *const found = _wgetenv(name.c_str());
        EXPECT_EQ(found != nullptr ? found : u"-", value) << fs::path(name);
    }
    const WCHAR *const first = _wgetenv(u"Ostrel_Test_A");
    set({{"Ostrel_Test_A", nullptr}});
    EXPECT_NE(_wgetenv(u"Ostrel_Test_A"), first);
    EXPECT_EQ(std::u16string(first), u"first");  // stays in place
}

TEST(TemporaryNames, ComeFromTheFirstFolderThereIs) {
    const std::string longest = '/' + std::string(255, 'd'), too_long = longest + 'd';
    using Value = const char *;
    const std::tuple<Value, Value, Value, Value, std::u16string> cases[] = {
        {"D:\\one", "/two", nullptr, nullptr, u"D:\\one\\"},
        {nullptr, "/two/", "/three", nullptr, u"C:\\two\\"},
        {"", nullptr, "rel/x", "/four", u"rel/x\\"},
        {nullptr, nullptr, nullptr, "/four/\xFF", u"C:\\four\\\xDCFF\\"},
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
    const Planted dir("tmp/ own/");
    const std::string tmp = dir.Path() / "tmp";
    const std::u16string too_long(250, u'p');
    const std::tuple<const char *, const WCHAR *, const WCHAR *, std::u16string, int> cases[] = {
        {tmp.c_str(), u"own", u"p", told(tmp) + u"\\p", 0},
        {"/none", u"own", nullptr, u"own\\", 0},
        {nullptr, u"none", u"p", u".\\p", 0},
        {"/none", nullptr, u"p", u".\\p", 0},
        {"/none", u"none", u"p", u"", ENOENT},
        {nullptr, nullptr, too_long.c_str(), u"", ENAMETOOLONG}};
    std::set<std::u16string> numbers;
    for (const auto &[variable, directory, prefix, begin, error] : cases) {
        set({{"TMP", variable}});
        WCHAR *const name = _wtempnam(directory, prefix);
        ASSERT_EQ(name != nullptr ? 0 : errno, error);
        const std::u16string text = name != nullptr ? name : u"";
        std::free(name);
        EXPECT_EQ(text.substr(0, begin.size()), begin);
        EXPECT_TRUE(error != 0 || numbers.insert(text.substr(begin.size())).second);
    }
    set({{"TMP", nullptr}});
}

}  // namespace
