// Several processes with one registry, and what may happen to its files. Each test runs in children
// of this program, since a process binds its registry at its first call.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/registry.h"

namespace {

constexpr char16_t kPath[] = u"SOFTWARE\\Processes";

// A pipe on which two processes pass the turn.
class Turns {
public:
    Turns() { EXPECT_EQ(pipe2(m_ends, O_CLOEXEC), 0); }
    ~Turns() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Turns &operator=(Turns &&) = delete;  // nor copied
    void Give() const { EXPECT_EQ(write(m_ends[1], "x", 1), 1); }
    void Take() const {
        char turn;
        EXPECT_EQ(read(m_ends[0], &turn, 1), 1);
    }

private:
    int m_ends[2];
};

// Memory that a process and its children share.
struct Shared {
    std::atomic<DWORD> written, stop, failures;
};
Shared *shared() {
    return static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
}

std::string bytes_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(RegistryProcesses, SeeEachOthersWritesAtOnce) {
    const RegistryFolder folder;
    const Turns to_child, to_parent;
    // Each writes in its turn, and reads what the other has written from its cache.
    const auto take_turns = [](const Turns &mine, const Turns &others, DWORD first) {
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        for (DWORD i = first; i < 1000; i += 2) {
            mine.Take();
            if (i > 0) {
                EXPECT_EQ(number(key, u"turn"), i - 1);
                EXPECT_EQ(open_code(key, u"key"), i % 2 == 1 ? 0 : 2);
            }
            EXPECT_EQ(set_number(key, u"turn", i), 0);
            if (i % 2 == 0) {
                created(key, u"key");
            } else {
                RegDeleteKeyW(key, u"key");
            }
            EXPECT_EQ(number(key, u"turn"), i);
            others.Give();
        }
    };
    EXPECT_TRUE(holds_in_child([&] {
        const pid_t other = fork_child();
        if (other == 0) {
            take_turns(to_child, to_parent, 1);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        to_parent.Give();
        take_turns(to_parent, to_child, 0);
        int status = 1;
        waitpid(other, &status, 0);
        EXPECT_EQ(status, 0);
    }));
}

TEST(RegistryProcesses, LoseNothingToKilledWriters) {
    const RegistryFolder folder;
    Shared *const memory = shared();
    EXPECT_TRUE(holds_in_child([&] {
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        const pid_t reader = fork_child();
        if (reader == 0) {
            const TestKey own = created(HKEY_LOCAL_MACHINE, kPath);
            for (DWORD before = 0; memory->stop == 0;) {
                const DWORD acknowledged = memory->written;
                const DWORD read = number(own, u"count").value_or(0);
                memory->failures += read < acknowledged || read < before;
                before = read;
            }
            _exit(0);
        }
        std::mt19937 random(1);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
        while (std::chrono::steady_clock::now() < end) {
            const pid_t writer = fork_child();
            if (writer == 0) {
                for (DWORD i = number(key, u"count").value_or(0) + 1;; ++i) {
                    if (set_number(key, u"count", i) == 0) {
                        memory->written = i;
                    }
                }
            }
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
            kill(writer, SIGKILL);
            waitpid(writer, nullptr, 0);
            const DWORD acknowledged = memory->written;
            const DWORD count = number(key, u"count").value_or(0);
            EXPECT_TRUE(count == acknowledged || count == acknowledged + 1)
                << count << " " << acknowledged;
            EXPECT_EQ(set_number(key, u"count", count + 1), 0);
            memory->written = count + 1;
        }
        memory->stop = 1;
        waitpid(reader, nullptr, 0);
        EXPECT_EQ(memory->failures, 0u);
        EXPECT_GT(memory->written, 100u);
    }));
}

void set_three_in_a_new_program() {
    execl("/proc/self/exe", "registry_processes_test",
          "--gtest_filter=RegistryProcesses.DISABLED_SetThree", "--gtest_also_run_disabled_tests",
          "--gtest_brief=1", nullptr);
}

TEST(RegistryProcesses, FindOutALostPage) {
    const struct {
        const char *name;
        std::function<void(const std::string &)> harm;
    } kRows[] = {
        {"removed", [](const std::string &page) { unlink(page.c_str()); }},
        {"emptied", [](const std::string &page) { EXPECT_EQ(truncate(page.c_str(), 0), 0); }},
        {"cut short", [](const std::string &page) { EXPECT_EQ(truncate(page.c_str(), 9000), 0); }},
        {"zeros",
         [](const std::string &page) {
             std::fstream(page, std::ios::in | std::ios::out) << std::string(188672, '\0');
         }},
        {"rubbish",
         [](const std::string &page) {
             std::mt19937 random(2);
             std::string bytes(188672, '\0');
             for (char &byte : bytes) {
                 byte = static_cast<char>(random());
             }
             std::fstream(page, std::ios::in | std::ios::out) << bytes;
         }},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        const Turns to_child, to_parent;
        EXPECT_TRUE(holds_in_child([&] {
            const pid_t other = fork_child();
            if (other == 0) {
                const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
                const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
                for (DWORD i = 1; i < 4; ++i) {
                    EXPECT_EQ(RegNotifyChangeKeyValue(key, FALSE, 4, event, TRUE), 0);
                    if (i == 1) {
                        to_parent.Give();
                    }
                    to_child.Take();
                    EXPECT_EQ(WaitForSingleObject(event, 10000), WAIT_OBJECT_0);
                    EXPECT_EQ(number(key, u"v"), i);
                    EXPECT_EQ(number(key, u"v"), i);
                    to_parent.Give();
                }
                _exit(testing::Test::HasFailure() ? 1 : 0);
            }
            const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
            const auto write = [&](DWORD value) {
                EXPECT_EQ(set_number(key, u"v", value), 0);
                to_child.Give();
                to_parent.Take();
            };
            to_parent.Take();
            write(1);
            const std::string page = folder.Page("machine");
            EXPECT_NE(page, "");
            row.harm(page);
            write(2);
            // One that comes later works with the others.
            EXPECT_TRUE(holds_in_child(set_three_in_a_new_program));
            to_child.Give();
            to_parent.Take();
            EXPECT_EQ(number(key, u"v"), 3u);
            int status = 1;
            waitpid(other, &status, 0);
            EXPECT_EQ(status, 0);
            for (std::string left = page; !left.empty(); left = folder.Page("machine")) {
                unlink(left.c_str());
            }
        })) << row.name;
    }
}

// Only started by another test, as a program of its own.
TEST(RegistryProcesses, DISABLED_SetThree) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
    EXPECT_EQ(set_number(key, u"v", 3), 0);
}

TEST(RegistryProcesses, LeaveAForeignOrDamagedFileAsItIs) {
    std::string newer;
    {
        const RegistryFolder folder;
        EXPECT_TRUE(holds_in_child([] { created(HKEY_CURRENT_USER, u"Software\\x"); }));
        newer = bytes_of(folder.Path("user.db"));
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
        EXPECT_TRUE(bytes_of(folder.Path("user.db")) == bytes) << bytes.size();
    }
}

TEST(RegistryProcesses, ReportAFolderThatIsNone) {
    const RegistryFolder folder;
    std::ofstream(folder.Path("file")) << "x";
    setenv("OSTREL_REGISTRY", folder.Path("file").c_str(), 1);
    EXPECT_TRUE(holds_in_child([] {
        EXPECT_EQ(open_code(HKEY_CURRENT_USER, u"Software"), 3);
        EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 1), 3);
    }));
}

constexpr uid_t kNobody = 65534;

TEST(RegistryProcesses, LetAnotherUserReadWhatRootOwnsAndNoMore) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    const RegistryFolder folder;
    chmod(folder.Path().c_str(), 0755);
    const Turns to_child, to_parent;
    EXPECT_TRUE(holds_in_child([&] {
        const pid_t other = fork_child();
        if (other == 0) {
            to_child.Take();
            EXPECT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
            const TestKey key = created(HKEY_LOCAL_MACHINE, kPath, KEY_READ);
            for (DWORD i = 1; i < 100; ++i) {
                EXPECT_EQ(number(key, u"v"), i);
                to_parent.Give();
                to_child.Take();
            }
            EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, kPath, KEY_ALL_ACCESS), 5);
            EXPECT_EQ(set_number(HKEY_LOCAL_MACHINE, u"v", 1), 5);
            EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kPath), 5);
            EXPECT_LT(open(folder.Path("machine.lock").c_str(), O_RDONLY), 0);
            EXPECT_LT(open(folder.Page("machine").c_str(), O_RDWR), 0);
            // Locks that reading allows do not stop a writer.
            const int shm = open(folder.Path("machine.db-shm").c_str(), O_RDONLY);
            struct flock all {};
            all.l_type = F_RDLCK;
            all.l_start = 120;
            all.l_len = 9;
            EXPECT_EQ(fcntl(shm, F_SETLK, &all), 0);
            to_parent.Give();
            to_child.Take();
            EXPECT_EQ(number(key, u"v"), 3u);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        for (DWORD i = 1; i < 100; ++i) {
            EXPECT_EQ(set_number(key, u"v", i), 0);
            to_child.Give();
            to_parent.Take();
        }
        to_child.Give();
        to_parent.Take();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(set_number(key, u"v", 100), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
        EXPECT_EQ(number(key, u"v"), 100u);
        EXPECT_TRUE(holds_in_child(set_three_in_a_new_program));
        EXPECT_EQ(number(key, u"v"), 3u);
        to_child.Give();
        int status = 1;
        waitpid(other, &status, 0);
        EXPECT_EQ(status, 0);
    }));
}

TEST(RegistryProcesses, ReportWhatTheHostRefuses) {
    const struct {
        const char *name;
        int resource;
        rlim_t limit;
        LSTATUS code;
    } kRows[] = {
        {"a disk that is full", RLIMIT_FSIZE, 1 << 17, 112},
        {"no more descriptors", RLIMIT_NOFILE, 3, 4},
    };
    for (const auto &row : kRows) {
        const RegistryFolder folder;
        EXPECT_TRUE(holds_in_child([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
            set_bytes(key, u"v", REG_BINARY, "before");
            EXPECT_EQ(fork() == 0 ? (_exit(0), 0) : 0, 0);  // closes the files of the store
            rlimit before;
            getrlimit(static_cast<__rlimit_resource>(row.resource), &before);
            const rlimit low{row.limit, before.rlim_max};
            setrlimit(static_cast<__rlimit_resource>(row.resource), &low);
            EXPECT_EQ(set_bytes(key, u"v", REG_BINARY, std::string(1 << 20, 'x')), row.code);
            setrlimit(static_cast<__rlimit_resource>(row.resource), &before);
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
        const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        std::atomic<bool> ends{false};
        std::thread others[4];
        for (std::thread &other : others) {
            other = std::thread([&] {
                for (DWORD i = 0; !ends; ++i) {
                    set_number(key, u"other", i);
                    number(key, u"other");
                    open_code(key, i % 2 == 0 ? u"" : u"missing");
                    RegNotifyChangeKeyValue(key, TRUE, 4, event, TRUE);
                }
            });
        }
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
        for (std::thread &other : others) {
            other.join();
        }
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
        const Turns locked, done;
        const pid_t other = fork();
        if (other == 0) {
            EXPECT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
            const int shm = open(folder.Path("machine.db-shm").c_str(), O_RDONLY);
            struct flock lock {};
            lock.l_type = F_RDLCK;
            lock.l_start = start;
            lock.l_len = length;
            EXPECT_EQ(fcntl(shm, F_SETLK, &lock), 0);
            locked.Give();
            done.Take();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        locked.Take();
        EXPECT_EQ(truncate(folder.Path("machine.db-shm").c_str(), 0), 0);  // a crash of the host
        EXPECT_TRUE(holds_in_child([] {
            EXPECT_EQ(open_code(HKEY_LOCAL_MACHINE, kPath), 0);
            EXPECT_EQ(set_number(created(HKEY_LOCAL_MACHINE, kPath), u"v", 1), 0);
        })) << start;
        done.Give();
        int status = 1;
        waitpid(other, &status, 0);
        EXPECT_EQ(status, 0);
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

TEST(RegistryProcesses, GiveNoOldHandleAKeyOfANewStore) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([&] {
        const TestKey old = created(HKEY_CURRENT_USER, u"Software\\Old");
        const TestKey kept = created(HKEY_CURRENT_USER, u"Software");
        EXPECT_EQ(set_number(old, u"v", 1), 0);
        folder.RemovePages();
        std::filesystem::remove_all(folder.Path());
        while (open_code(HKEY_CURRENT_USER, u"Software\\Old") == 0) {
        }
        const TestKey key = created(HKEY_CURRENT_USER, u"Software\\New");
        EXPECT_EQ(set_number(key, u"v", 2), 0);
        DWORD size = 0;
        EXPECT_EQ(RegQueryValueExW(old, u"v", nullptr, nullptr, nullptr, &size), 1018);
        EXPECT_EQ(set_number(old, u"v", 3), 1018);
        EXPECT_EQ(open_code(old, u""), 1018);
        EXPECT_EQ(number(key, u"v"), 2u);
        EXPECT_EQ(subkeys(kept), u"Classes New ");  // every store has the key
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
        EXPECT_EQ(open_code(old, u""), 1018);
    }));
}

// How often this process has mapped files of pages.
int count_mapped_pages() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("/ostrel-registry-") != line.npos;
    }
    return count;
}

TEST(RegistryProcesses, MapAPageOnceHoweverOftenTheyFork) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([] {
        for (DWORD i = 0; i < 10; ++i) {
            EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", i), 0);
            EXPECT_TRUE(holds_in_child([i] { EXPECT_EQ(number(HKEY_CURRENT_USER, u"v"), i); }));
        }
        EXPECT_EQ(count_mapped_pages(), 1);
    }));
}

TEST(RegistryProcesses, ReportAFileOfARefusedSize) {
    const RegistryFolder folder;
    EXPECT_TRUE(holds_in_child([] {
        EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 0), 0);
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 1 << 20;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(set_bytes(HKEY_CURRENT_USER, u"large", REG_BINARY, std::string(2 << 20, 'x')),
                  112);
        EXPECT_EQ(number(HKEY_CURRENT_USER, u"large"), std::nullopt);
        EXPECT_EQ(set_number(HKEY_CURRENT_USER, u"v", 1), 0);
    }));
}

TEST(RegistryProcesses, TellEachOtherOfChanges) {
    const RegistryFolder folder;
    const Turns to_child, to_parent;
    EXPECT_TRUE(holds_in_child([&] {
        const TestKey key = created(HKEY_LOCAL_MACHINE, kPath);
        // Before the arming starts a thread: a sanitizer's allocator does not survive such a fork.
        const pid_t other = fork_child();
        if (other == 0) {
            for (DWORD i = 1; i < 300; ++i) {
                to_child.Take();
                EXPECT_EQ(set_number(key, u"v", i), 0);
            }
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        ASSERT_EQ(RegNotifyChangeKeyValue(key, FALSE, 4, event, TRUE), 0);
        for (DWORD i = 1; i < 300; ++i) {
            to_child.Give();
            EXPECT_EQ(WaitForSingleObject(event, 10000), WAIT_OBJECT_0);
            EXPECT_EQ(RegNotifyChangeKeyValue(key, FALSE, 4, event, TRUE), 0);
            EXPECT_EQ(number(key, u"v"), i);
        }
        int status = 1;
        waitpid(other, &status, 0);
        EXPECT_EQ(status, 0);
    }));
}

}  // namespace
