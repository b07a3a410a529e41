// Two writers, four readers and two watchers, each a process of its own.

#include <csignal>
#include <thread>

#include "bench/soak/registry_soak.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace {

constexpr const WCHAR *kValues[] = {u"value 0", u"value 1"};
constexpr const WCHAR *kKeys[] = {u"key 0", u"key 1"};

struct Progress {
    // Of each writer: the writes that have begun, those that have returned, and how many of these
    // each watcher has read after a notification.
    struct {
        std::atomic<DWORD> begun, returned, told[2];
    } writers[2];
    std::atomic<std::uint64_t> reads;
    std::atomic<DWORD> longest;  // microseconds from a write to the last watcher
    std::atomic<DWORD> missed;
    std::atomic<DWORD> ready;  // watchers
    std::atomic<DWORD> stop;   // 1 for the writers, 2 for all
};

// Writes in bursts, and lets both watchers read before the next one. The key exists after every
// even number.
void write_on(std::size_t self, Progress *progress) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    auto &mine = progress->writers[self];
    std::mt19937 random(static_cast<unsigned>(self));
    for (DWORD i = 0; progress->stop == 0;) {
        for (std::uint64_t burst = 1 + random() % 8; burst-- > 0;) {
            mine.begun = ++i;
            EXPECT_EQ(set_number(key, kValues[self], i), 0);
            if (i % 2 == 0) {
                created(key, kKeys[self]);
            } else if (i > 1) {
                EXPECT_EQ(RegDeleteKeyW(key, kKeys[self]), 0);
            }
            mine.returned = i;
        }
        const Stopwatch since;
        const auto is_told = [&] { return mine.told[0] >= i && mine.told[1] >= i; };
        while (!is_told() && since.Seconds() < 10) {
            std::this_thread::yield();
        }
        progress->longest =
            std::max<DWORD>(progress->longest, static_cast<DWORD>(since.Seconds() * 1e6));
        progress->missed += !is_told();
    }
}

void read_on(std::size_t self, Progress *progress) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    for (std::size_t i = self; progress->stop < 2; ++i) {
        const std::size_t writer = i % 2;
        auto &its = progress->writers[writer];
        const DWORD returned = its.returned;
        const TestKey again =
            self < 2 ? TestKey() : created(HKEY_LOCAL_MACHINE, kSoakPath, KEY_READ);
        EXPECT_GE(number(self < 2 ? key : again, kValues[writer]).value_or(0), returned);
        const LSTATUS code = open_code(key, kKeys[writer]);
        if (its.begun == returned) {  // nobody was at work while the key was looked for
            EXPECT_EQ(code, returned > 0 && returned % 2 == 0 ? 0 : 2) << returned;
        }
        ++progress->reads;
        if (i % 256 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
}

void watch_on(std::size_t self, Progress *progress) {
    const bool blocks = self == 1;
    const TestKey key = created(HKEY_LOCAL_MACHINE, blocks ? kSoakPath : u"SOFTWARE");
    const TestKey values = created(HKEY_LOCAL_MACHINE, kSoakPath);
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, 5, event, TRUE), 0);
    ++progress->ready;
    if (blocks) {  // from then on a call tells at once of what came since the last one
        WaitForSingleObject(event, INFINITE);
    }
    while (progress->stop < 2) {
        for (std::size_t writer = 0; writer < 2; ++writer) {
            progress->writers[writer].told[self] = number(values, kValues[writer]).value_or(0);
        }
        if (blocks) {
            EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, 5, nullptr, FALSE), 0);
        } else {
            WaitForSingleObject(event, INFINITE);
            EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, 5, event, TRUE), 0);
        }
    }
}

// Does one of the harms, by `turn`, to the page that the database names now.
bool harm_page(const RegistryFolder &folder, long turn, std::mt19937 *random) {
    std::string page = folder.Page("machine");
    page = page.empty() ? folder.Path("machine.page") : page;
    struct stat facts {};
    if (stat(page.c_str(), &facts) != 0) {
        return false;
    }
    std::string rubbish(static_cast<std::size_t>(facts.st_size), '\0');
    for (char &byte : rubbish) {
        byte = static_cast<char>((*random)());
    }
    switch (turn % 4) {
        case 0:
            return unlink(page.c_str()) == 0;
        case 1:
            return truncate(page.c_str(), static_cast<off_t>((*random)() % rubbish.size())) == 0;
        case 2:
            std::fill(rubbish.begin(), rubbish.end(), '\0');
            [[fallthrough]];
        default:
            return static_cast<bool>(std::fstream(page, std::ios::in | std::ios::out) << rubbish);
    }
}

// A process that maps the page for the first time works with the others.
void come_late(const Progress &progress) {
    const DWORD returned = progress.writers[0].returned;
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    EXPECT_GE(number(key, kValues[0]).value_or(0), returned);
    EXPECT_EQ(set_number(key, u"late", returned), 0);
}

void prove(long seconds, bool harms) {
    const RegistryFolder folder;
    auto *const progress = shared_memory<Progress>();
    expect_success(started([] { created(HKEY_LOCAL_MACHINE, kSoakPath); }));
    std::vector<pid_t> processes, writers;
    for (std::size_t i = 0; i < 4; ++i) {
        processes.push_back(started([&] { read_on(i, progress); }));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        processes.push_back(started([&] { watch_on(i, progress); }));
    }
    while (progress->ready < 2) {
        std::this_thread::yield();
    }
    for (std::size_t i = 0; i < 2; ++i) {
        writers.push_back(started([&] { write_on(i, progress); }));
    }
    const Stopwatch watch;
    std::mt19937 random(7);
    long count = 0;
    while (watch.Seconds() < static_cast<double>(seconds)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200 + random() % 300));
        if (harms) {
            count += harm_page(folder, count, &random);
            expect_success(started([&] { come_late(*progress); }));
        }
    }
    progress->stop = 1;
    for (const pid_t writer : writers) {
        expect_success(writer);
    }
    progress->stop = 2;
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    for (const pid_t process : processes) {
        EXPECT_EQ(set_number(key, u"end", 1), 0);
        expect_success(process);
    }
    EXPECT_EQ(progress->missed, 0u);
    expect_sound();
    std::printf(
        "%u changes told, none missed; %llu reads; longest from a write to both watchers"
        " %.1f ms; %ld times harm, %.0f s\n",
        progress->writers[0].returned + progress->writers[1].returned,
        static_cast<unsigned long long>(progress->reads), progress->longest / 1e3, count,
        watch.Seconds());
    for (std::string page; harms && !(page = folder.Page("machine")).empty();) {
        unlink(page.c_str());
    }
}

}  // namespace

void prove_order(long seconds) {
    prove(seconds, false);
}

void prove_pages(long seconds) {
    prove(seconds, true);
}

void prove_crowd(long processes) {
    const RegistryFolder folder;
    auto *const go = shared_memory<std::atomic<DWORD>>();
    constexpr DWORD kWrites = 20;
    std::vector<pid_t> children;
    const Stopwatch watch;
    for (long i = 0; i < processes; ++i) {
        children.push_back(started([&] {
            while (*go == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            const std::string digits = std::to_string(i);
            const std::u16string name(digits.begin(), digits.end());
            const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Soak\\" + name);
            for (DWORD j = 0; j < kWrites; ++j) {
                EXPECT_EQ(set_number(key, u"v", j), 0);
                EXPECT_EQ(number(key, u"v"), j);
            }
        }));
    }
    *go = 1;
    for (const pid_t child : children) {
        expect_success(child);
    }
    const TestKey key = created(HKEY_CURRENT_USER, u"Software\\Soak");
    DWORD keys = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr, nullptr);
    EXPECT_EQ(keys, static_cast<DWORD>(processes));
    expect_sound();
    std::printf("%ld processes, %ld writes, %.1f s\n", processes, processes * kWrites,
                watch.Seconds());
}
