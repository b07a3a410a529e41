// Drives, modules, the environment and temporary names.

#include "ostrel/platform/system.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <tuple>

#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "ostrel/platform/volume.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// An absolute path as the platform tells it.
std::u16string told(const fs::path &path) {
    std::u16string text = u"C:" + path.u16string();
    std::replace(text.begin(), text.end(), u'/', u'\\');
    return text;
}

// Variables for the length of a scope; null removes one.
class Variables {
public:
    explicit Variables(std::map<std::string, const char *> values) : m_values(std::move(values)) {
        Exchange();
    }
    ~Variables() { Exchange(); }
    Variables &operator=(Variables &&) = delete;  // nor copied

private:
    void Exchange() {
        for (auto &[name, value] : m_values) {
            const char *const before = std::getenv(name.c_str());
            m_texts.push_back(before != nullptr ? before : "");
            value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
            value = before != nullptr ? m_texts.back().c_str() : nullptr;
        }
    }

    std::map<std::string, const char *> m_values;
    std::list<std::string> m_texts;
};

TEST(Volume, IsWhatTheHostSays) {
    const TempDir dir;
    dir.Write("file", "");
    fs::create_directory("dir");
    const Variables drives({{"OSTREL_DRIVE_W", "/dev/shm"}, {"OSTREL_DRIVE_X", nullptr}});
    struct statfs host;
    ASSERT_EQ(statfs(".", &host), 0);
    const DWORD here = host.f_type == TMPFS_MAGIC ? DRIVE_RAMDISK : DRIVE_FIXED;
    const struct {
        const WCHAR *root;
        DWORD type, code;
    } cases[] = {
        {nullptr, here, 0},
        {u"dir\\", here, 0},
        {u"C:/proc/", DRIVE_FIXED, 0},
        {u"W:\\", DRIVE_RAMDISK, 0},
        {u"dir", here, ERROR_INVALID_NAME},
        {u"X:\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
        {u"none\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
        {u"file\\", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
        {u"", DRIVE_NO_ROOT_DIR, ERROR_PATH_NOT_FOUND},
    };
    for (const auto &[root, type, code] : cases) {
        EXPECT_EQ(GetDriveTypeW(root), type) << fs::path(root != nullptr ? root : u"");
        SetLastError(0);
        EXPECT_EQ(GetDiskFreeSpaceW(root, nullptr, nullptr, nullptr, nullptr), code == 0);
        EXPECT_EQ(GetLastError(), code);
    }
    DWORD sectors = 0, size = 0, free = 0, total = 0;
    struct statvfs facts;
    ASSERT_EQ(statvfs(".", &facts), 0);
    ASSERT_TRUE(GetDiskFreeSpaceW(nullptr, &sectors, &size, &free, &total));
    EXPECT_EQ(std::uint64_t{total} * sectors * size, facts.f_blocks * facts.f_frsize);
    EXPECT_LE(free, total);
}

TEST(Module, IsNamedByItsFile) {
    const std::u16string program = told(fs::read_symlink("/proc/self/exe"));
    Dl_info own, library;
    ASSERT_NE(dladdr(reinterpret_cast<void *>(&told), &own), 0);
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "getsubopt"), &library), 0);
    WCHAR buffer[1000];
    const auto name_of = [&](void *module) {
        return std::u16string(buffer,
                              GetModuleFileNameW(static_cast<HMODULE>(module), buffer, 1000));
    };
    EXPECT_EQ(name_of(nullptr), program);
    EXPECT_EQ(name_of(own.dli_fbase), program);
    EXPECT_EQ(name_of(library.dli_fbase), told(fs::canonical(library.dli_fname)));
    for (void *module : {static_cast<void *>(buffer),
                         static_cast<void *>(static_cast<char *>(own.dli_fbase) + 4)}) {
        EXPECT_EQ(name_of(module), u"");
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    }
    const auto length = static_cast<DWORD>(program.size());
    for (const DWORD room : {1u, 5u, length}) {
        SetLastError(0);
        EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, room), room);
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(buffer, program.substr(0, room - 1));
    }
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, length + 1), length);
    for (const auto &[place, room] : {std::pair<WCHAR *, DWORD>{nullptr, 9}, {buffer, 0}}) {
        EXPECT_EQ(GetModuleFileNameW(nullptr, place, room), 0u);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}

TEST(System, TellsThePlatformsVersion) {
    OSVERSIONINFOW version;
    version.dwOSVersionInfoSize = 276;
    ASSERT_TRUE(GetVersionExW(&version));
    EXPECT_EQ(std::tie(version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber),
              std::tuple(6u, 2u, 9200u));
    EXPECT_EQ(version.szCSDVersion[0], 0);
    version.dwOSVersionInfoSize = 284;
    EXPECT_FALSE(GetVersionExW(&version));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(GetVersionExW(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_NOACCESS);
}

TEST(System, CountsTicksAndComparesTimes) {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    const DWORD ticks = GetTickCount();
    EXPECT_LT(ticks - static_cast<DWORD>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000), 60'000u);
    const FILETIME times[] = {{0, 0}, {0xFFFFFFFF, 0}, {0, 1}, {1, 0x7FFFFFFF}, {0, 0x80000000}};
    for (int i = 0; i < 5; ++i) {
        for (int j = 0; j < 5; ++j) {
            EXPECT_EQ(CompareFileTime(&times[i], &times[j]), (i > j) - (i < j));
        }
    }
}

TEST(Environment, ComparesNamesWithoutRegardToCase) {
    const Variables variables({{"OSTREL_TEST_A", ""},
                               {"Ostrel_Test_A", "first"},
                               {"ostrel_test_a", "sp\xC3\xA4ter"},
                               {"OSTREL_TEST_\xC3\x84", "umlaut"},
                               {"OSTREL_TEST_B", ""}});
    const struct {
        const WCHAR *name, *value;
    } cases[] = {
        {u"ostrel_test_a", u"sp\u00E4ter"},
        {u"Ostrel_Test_A", u"first"},
        {u"OSTREL_TEST_\u00C4", u"umlaut"},
        {u"ostrel_test_\u00C4", u"umlaut"},
        {u"ostrel_test_\u00E4", nullptr},
        {u"OSTREL_TEST_B", nullptr},
        {u"OSTREL_TEST_", nullptr},
        {u"Ostrel_Test_A=first", nullptr},
        {u"", nullptr},
    };
    for (const auto &[name, value] : cases) {
        const WCHAR *const found = _wgetenv(name);
        ASSERT_EQ(found != nullptr, value != nullptr) << fs::path(name);
        if (value != nullptr) {
            EXPECT_EQ(std::u16string(found), value);
            EXPECT_EQ(_wgetenv(name), found);
        }
    }
    errno = 0;
    EXPECT_EQ(_wgetenv(nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

// Variables come and go; those that stay are always found, and values stay in place.
TEST(Environment, IsReadWhileItChanges) {
    ASSERT_EQ(_putenv_s("OSTREL_GOES_0", "x"), 0);
    ASSERT_EQ(_putenv_s("OSTREL_STAYS", "here"), 0);
    const WCHAR *const value = _wgetenv(u"ostrel_stays");
    std::jthread writer([] {
        for (int i = 0; i < 3000; ++i) {
            _putenv_s("OSTREL_GOES_0", i % 2 == 0 ? "" : "x");
        }
    });
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(_wgetenv(u"ostrel_stays"), value);
    }
    writer.join();
    _putenv_s("OSTREL_STAYS", "");
    EXPECT_EQ(_wgetenv(u"ostrel_stays"), nullptr);
    EXPECT_EQ(std::u16string(value), u"here");
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
        {nullptr, nullptr, nullptr, nullptr, u"C:\\tmp\\"},
        {"/", nullptr, nullptr, nullptr, u"C:\\"},
        {longest.c_str(), nullptr, nullptr, nullptr, u"C:\\" + std::u16string(255, u'd') + u"\\"},
        {too_long.c_str(), "/two", nullptr, nullptr, u"C:\\two\\"},
    };
    for (const auto &[tmp, temp, profile, tmpdir, folder] : cases) {
        const Variables variables(
            {{"TMP", tmp}, {"TEMP", temp}, {"USERPROFILE", profile}, {"TMPDIR", tmpdir}});
        WCHAR buffer[MAX_PATH] = u"untouched";
        const auto length = static_cast<DWORD>(folder.size());
        EXPECT_EQ(GetTempPathW(0, nullptr), length + 1) << fs::path(folder);
        EXPECT_EQ(GetTempPathW(length, buffer), length + 1);
        EXPECT_EQ(buffer, std::u16string(u"untouched"));
        EXPECT_EQ(GetTempPathW(MAX_PATH, buffer), length);
        EXPECT_EQ(buffer, folder);
    }
    EXPECT_EQ(GetTempPathW(1, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(TemporaryNames, AreFreeAndInTheRightFolder) {
    const TempDir dir;
    fs::create_directory("tmp");
    fs::create_directory("own");
    const std::string tmp = dir.Path() / "tmp";
    const struct {
        const char *tmp;
        const WCHAR *directory, *prefix;
        std::u16string begin;
        int error;
    } cases[] = {
        {tmp.c_str(), u"own", u"p", told(tmp) + u"\\p", 0},
        {"/none", u"own", nullptr, u"own\\", 0},
        {nullptr, u"own/", u"p", u"own/p", 0},
        {nullptr, u"none", u"p", u".\\p", 0},
        {"/none", nullptr, u"p", u".\\p", 0},
        {"/none", u"none", u"p", u"", ENOENT},
        {nullptr, nullptr, u"\xD800", u"", ENOENT},
    };
    for (const auto &[variable, directory, prefix, begin, error] : cases) {
        const Variables variables(std::map<std::string, const char *>{{"TMP", variable}});
        std::set<std::u16string> names;
        for (int i = 0; i < 3; ++i) {
            errno = 0;
            const std::unique_ptr<WCHAR, void (*)(void *)> name(_wtempnam(directory, prefix),
                                                                std::free);
            ASSERT_EQ(name == nullptr, error != 0) << fs::path(begin);
            if (error != 0) {
                EXPECT_EQ(errno, error);
                break;
            }
            const std::u16string text = name.get();
            EXPECT_EQ(text.substr(0, begin.size()), begin);
            EXPECT_EQ(text.find_first_not_of(u"0123456789", begin.size()), text.npos);
            EXPECT_EQ(_waccess(name.get(), 0), -1);
            EXPECT_TRUE(names.insert(text).second);
        }
    }
    errno = 0;
    EXPECT_EQ(_wtempnam(nullptr, std::u16string(250, u'p').c_str()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(Access, LooksAtReadOnlyAlone) {
    const TempDir dir;
    dir.Write("file", "");
    dir.Write("protected", "");
    fs::create_directory("dir");
    chmod("protected", 0444);
    chmod("dir", 0555);
    fs::create_symlink("none", "link");
    const std::u16string too_long(300, u'a');
    const struct {
        const WCHAR *path;
        int mode, error;
    } cases[] = {
        {u"file", 0, 0},
        {u"file", 6, 0},
        {u"protected", 4, 0},
        {u"protected", 0, 0},
        {u"protected", 2, EACCES},
        {u"protected", 6, EACCES},
        {u"dir", 6, 0},
        {u"link", 6, 0},
        {u"none", 0, ENOENT},
        {u"file\\x", 0, ENOENT},
        {too_long.c_str(), 0, ENOENT},
        {u"", 0, ENOENT},
        {u"file", 1, EINVAL},
        {u"file", 8, EINVAL},
        {nullptr, 0, EINVAL},
    };
    for (const auto &[path, mode, error] : cases) {
        const int result = _waccess(path, mode);
        EXPECT_EQ(std::tuple(result, result == 0 ? 0 : errno),
                  std::tuple(error == 0 ? 0 : -1, error))
            << fs::path(path != nullptr ? path : u"null") << ' ' << mode;
    }
}

}  // namespace
