// Several processes with one registry, and what may happen to its files. Each test runs in children
// of this program, since a process binds its registry at its first call.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "support/file_tree.h"
#include "support/registry.h"
#include "support/signals.h"

namespace {

constexpr char16_t kPath[] = u"SOFTWARE\\Processes";

// Waits until a child has stopped itself.
void await_stop(pid_t child) {
    int status = 0;
    EXPECT_TRUE(waitpid(child, &status, WUNTRACED) == child && WIFSTOPPED(status));
}

TEST(RegistryProcesses, LeaveAForeignOrDamagedFileAsItIs) {
    std::string newer;
    {
        const RegistryFolder folder;
        EXPECT_TRUE(holds_in_child([] { created(HKEY_CURRENT_USER, u"Software\\x"); }));
        newer = content_of(folder.Path("user.db"));
    }
    ASSERT_GT(newer.size(), 100u);
    std::string damaged = newer;
    damaged.replace(100, damaged.size() - 100, damaged.size() - 100, '\xAA');
    newer[63] = 99;  // the last byte of the format's number
    for (const std::string &bytes : {std::string("no database, but text"), std::string(), damaged,
                                     newer, std::string(5000, '\0')}) {
        const RegistryFolder folder;
        std::ofstream(folder.Path("user.db"), std::ios::binary) << bytes;
        EXPECT_TRUE(holds_in_child([] {
            EXPECT_EQ(open_code(HKEY_CURRENT_USER, u"Software"), 1009);
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 1), 1009);
        }));
        EXPECT_TRUE(content_of(folder.Path("user.db")) == bytes) << bytes.size();
    }
}

// Becomes another user, who may read what root owns.
void become_nobody() {
    EXPECT_EQ(setresuid(65534, 65534, 65534), 0);
}

// Locks bytes of SQLite's -shm file, as everyone can who may read the file.
void lock_bytes(const RegistryFolder &folder, off_t start, off_t length) {
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_start = start;
    lock.l_len = length;
    EXPECT_EQ(fcntl(open(folder.Path("machine.db-shm").c_str(), O_RDONLY), F_SETLK, &lock), 0);
}

TEST(RegistryProcesses, FindWhateverTheFolderIs) {
    const struct {
        const char *command;  // run in the folder
        const char *path;     // of the registry, in the folder
        LSTATUS code;
        bool is_weak = false;
    } kRows[] = {
        {"touch file", "file", 3},        {"mkdir real; ln -s real link", "link", 0},
        {"ln -s loop loop", "loop", 161}, {"mkdir user.db", "", 1009},
        {"mkdir user.lock", "", 5},       {"chmod 0 .", "", 5, true},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        EXPECT_EQ(std::system(("cd \"$OSTREL_REGISTRY\"; " + std::string(row.command)).c_str()), 0);
        setenv("OSTREL_REGISTRY", folder.Path(row.path).c_str(), 1);
        EXPECT_TRUE(holds_in_child([&] {
            if (row.is_weak && geteuid() == 0) {  // root has every permission
                become_nobody();
            }
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 1), row.code);
        })) << row.command;
        chmod(folder.Path().c_str(), 0700);
    }
}

TEST(RegistryProcesses, LetAnotherUserReadWhatRootOwnsAndNoMore) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    const RegistryFolder folder;
    chmod(folder.Path().c_str(), 0755);
    EXPECT_TRUE(holds_in_child([&] {
        const pid_t other = started([&] {
            become_nobody();
            raise(SIGSTOP);
            const TestKey key = created(HKEY_LOCAL_MACHINE, kPath, KEY_READ);
            for (DWORD i = 1; i < 3; ++i) {
                EXPECT_EQ(number(key, u"v"), i);
                raise(SIGSTOP);
            }
            EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, kPath, KEY_ALL_ACCESS), 5);
            EXPECT_EQ(set_number(HKEY_LOCAL_MACHINE, u"v", 1), 5);
            EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kPath), 5);
            EXPECT_LT(open(folder.Path("machine.lock").c_str(), O_RDONLY), 0);
            EXPECT_LT(open(folder.Page("machine").c_str(), O_RDWR), 0);
            lock_bytes(folder, 120, 9);  // which does not stop a writer
            raise(SIGSTOP);
            EXPECT_EQ(number(key, u"v"), 3u);
        });
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        for (DWORD i = 1; i < 3; ++i) {
            await_stop(other);
            EXPECT_EQ(set_number(key, u"v", i), 0);
            kill(other, SIGCONT);
        }
        await_stop(other);  // after its second look
        kill(other, SIGCONT);
        await_stop(other);  // with its locks
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(set_number(key, u"v", 3), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
        kill(other, SIGCONT);
        EXPECT_TRUE(has_succeeded(other));
    }));
}

TEST(RegistryProcesses, ReportWhatTheHostRefuses) {
    const struct {
        const char *name;
        __rlimit_resource resource;
        rlim_t limit;
        bool is_open;  // the store
        LSTATUS code;
    } kRows[] = {
        {"a file of that size", RLIMIT_FSIZE, 1 << 17, true, 112},
        {"the same, to open the store", RLIMIT_FSIZE, 1 << 17, false, 112},
        {"more descriptors", RLIMIT_NOFILE, 3, false, 4},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        EXPECT_TRUE(holds_in_child([&] {
            const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
            set_bytes(key, u"v", REG_BINARY, "before");
            if (!row.is_open) {
                EXPECT_TRUE(has_succeeded(started([] {})));  // a fork closes its files
            }
            rlimit before;
            getrlimit(row.resource, &before);
            const rlimit low{row.limit, before.rlim_max};
            setrlimit(row.resource, &low);
            EXPECT_EQ(set_bytes(key, u"v", REG_BINARY, std::string(1 << 20, 'x')), row.code);
            setrlimit(row.resource, &before);
            DWORD size = 0;
            EXPECT_EQ(RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, &size), 0);
            EXPECT_EQ(size, 6u);
            EXPECT_EQ(set_number(key, u"v", 1), 0);
        })) << row.name;
    }
}

TEST(RegistryProcesses, GoOnInTheChildOfAProgramWithThreads) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's allocator may stay locked in the child";
#endif
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([] {
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        const HANDLE event = ::event(false);
        std::atomic<bool> ends{false};
        std::thread others([&] {
            on_threads(4, [&](std::size_t) {
                for (DWORD i = 0; !ends; ++i) {
                    set_number(key, u"other", i);
                    number(key, u"other");
                    open_code(key, i % 2 == 0 ? u"" : u"missing");
                    RegNotifyChangeKeyValue(key, TRUE, 4, event, TRUE);
                }
            });
        });
        for (DWORD i = 0; i < 20; ++i) {
            EXPECT_TRUE(holds_in_child([&] {
                alarm(20);
                EXPECT_EQ(set_number(key, u"v", i), 0);
                EXPECT_EQ(number(key, u"v"), i);
                EXPECT_EQ(open_code(key, u""), 0);
                EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, 4, event, TRUE), 0);
                set_number(key, u"v", i);
                EXPECT_EQ(WaitForSingleObject(event, 5000), WAIT_OBJECT_0);
            }));
            EXPECT_EQ(number(key, u"v"), i);
        }
        ends = true;
        others.join();
    }));
}

TEST(RegistryProcesses, StartAlthoughAReaderHoldsLocks) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    const RegistryFolder folder;
    chmod(folder.Path().c_str(), 0755);
    EXPECT_TRUE(holds_in_child([] { set_number(created(HKEY_LOCAL_MACHINE, kPath), u"v", 1); }));
    // SQLite's locks of writer, checkpoint and recovery, and all bytes.
    for (const auto &[start, length] : {std::pair(120, 1), {121, 1}, {122, 1}, {120, 8}, {0, 0}}) {
        const pid_t other = started([&, start = start, length = length] {
            become_nobody();
            lock_bytes(folder, start, length);
            raise(SIGSTOP);
        });
        await_stop(other);
        EXPECT_EQ(truncate(folder.Path("machine.db-shm").c_str(), 0), 0);  // a crash of the host
        EXPECT_TRUE(holds_in_child([] {
            EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, kPath), 0);
            EXPECT_EQ(set_number(created(HKEY_LOCAL_MACHINE, kPath), u"v", 1), 0);
        })) << start;
        kill(other, SIGCONT);
        EXPECT_TRUE(has_succeeded(other));
    }
}

TEST(RegistryProcesses, MakeFoldersThatOthersMayEnter) {
    const RegistryFolder folder("/a/b");
    EXPECT_TRUE(holds_in_child([&] {
        umask(077);
        EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, u"SOFTWARE"), 0);
        for (const char *path : {"..", "", "machine.db"}) {
            struct stat facts {};
            stat(folder.Path(path).c_str(), &facts);
            EXPECT_EQ(facts.st_mode & 0777, S_ISDIR(facts.st_mode) ? 0755u : 0644u) << path;
        }
    }));
}

TEST(RegistryProcesses, ReadACopyThatTakesThePlaceOfTheStore) {
    const RegistryFolder folder("/store");
    EXPECT_TRUE(holds_in_child([&] {
        const auto store = std::filesystem::path(folder.Path()).parent_path();
        const auto copy = store.parent_path() / "copy";
        EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 1), 0);
        std::filesystem::copy(store, copy);
        const TestKey old = created(HKEY_CURRENT_USER, u"Software\\Old");
        EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 2), 0);
        EXPECT_EQ(number(HKEY_CURRENT_USER, u"v"), 2u);
        folder.RemovePages();  // the file alone; this process has the page
        std::filesystem::rename(store, store.parent_path() / "old");
        std::filesystem::rename(copy, store);
        while (number(HKEY_CURRENT_USER, u"v") == 2u) {
        }
        EXPECT_EQ(number(HKEY_CURRENT_USER, u"v"), 1u);
        created(HKEY_CURRENT_USER, u"Software\\New");
        EXPECT_EQ(open_code(old, u""), 1018);  // though the new key may have its number
        folder.RemovePages();
        std::filesystem::remove_all(store);
        while (number(HKEY_CURRENT_USER, u"v") == 1u) {
        }
        created(HKEY_CURRENT_USER, u"Software\\New");  // in a new store
        EXPECT_EQ(open_code(old, u""), 1018);
    }));
}

TEST(RegistryProcesses, MapAPageOnceHoweverOftenTheyFork) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([] {
        for (DWORD i = 0; i < 10; ++i) {
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", i), 0);
            EXPECT_TRUE(holds_in_child([i] { EXPECT_EQ(number(HKEY_CURRENT_USER, u"v"), i); }));
        }
        const std::string maps = content_of("/proc/self/maps");
        const std::size_t first = maps.find("/ostrel-registry-");
        EXPECT_TRUE(first != maps.npos && maps.find("/ostrel-registry-", first + 1) == maps.npos);
    }));
}

}  // namespace
