// Writers that are killed, beside readers and a watcher.

#include <csignal>
#include <thread>

#include "bench/soak/registry_soak.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace {

constexpr const WCHAR *kCounts[] = {u"count 0", u"count 1"};
constexpr const WCHAR *kPayloads[] = {u"payload 0", u"payload 1"};
constexpr const WCHAR *kTrees[] = {u"tree 0", u"tree 1"};

struct Tally {
    std::atomic<DWORD> returned[2];  // what the writers know to be committed
    std::atomic<DWORD> found[2];     // what a process that has nothing cached reads after a kill
    std::atomic<DWORD> told[2];      // what the watcher has read after a notification
    std::atomic<DWORD> read[2][2];   // what each reader has read last
    std::atomic<std::uint64_t> reads;
    std::atomic<DWORD> stop;
};

// Each step is several commits. The count comes last.
[[noreturn]] void write_on(std::size_t writer, Tally *tally) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    for (DWORD i = number(key, kCounts[writer]).value_or(0) + 1;; ++i) {
        bool is_done = set_bytes(key, kPayloads[writer], REG_BINARY, payload(i)) == 0;
        if (i % 4 == 0) {
            created(key, std::u16string(kTrees[writer]) + u"\\a\\b\\c");
        } else if (i % 4 == 2) {
            is_done &= RegDeleteTreeW(key, kTrees[writer]) % 2 == 0;  // 0 and 2
        }
        if (is_done && set_number(key, kCounts[writer], i) == 0) {
            tally->returned[writer] = i;
        } else {
            ADD_FAILURE() << "a writer failed";
        }
    }
}

void expect_step(HKEY key, std::size_t writer, DWORD returned, DWORD *before) {
    const DWORD count = number(key, kCounts[writer]).value_or(0);
    EXPECT_GE(count, returned);
    EXPECT_GE(count, *before);
    EXPECT_GE(payload_number(key, kPayloads[writer]), count);
    *before = count;
}

void read_on(std::size_t self, Tally *tally) {
    const bool opens = self == 1;
    DWORD before[2] = {};
    const TestKey open = created(HKEY_LOCAL_MACHINE, kSoakPath);
    while (tally->stop == 0) {
        const TestKey again = opens ? created(HKEY_LOCAL_MACHINE, kSoakPath, KEY_READ) : TestKey();
        for (std::size_t writer = 0; writer < 2; ++writer) {
            expect_step(opens ? again : open, writer, tally->returned[writer], &before[writer]);
            tally->read[self][writer] = before[writer];
        }
        ++tally->reads;
    }
}

void watch_on(Tally *tally) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    while (tally->stop == 0) {
        EXPECT_EQ(RegNotifyChangeKeyValue(key, TRUE, 5, event, TRUE), 0);
        for (std::size_t writer = 0; writer < 2; ++writer) {
            tally->told[writer] = number(key, kCounts[writer]).value_or(0);
        }
        WaitForSingleObject(event, INFINITE);
    }
}

// Whether the watcher and both readers, which hold answers in their caches, know what was found.
bool all_know(const Tally &tally) {
    for (std::size_t i = 0; i < 2; ++i) {
        const DWORD found = tally.found[i];
        if (tally.told[i] < found || tally.read[0][i] < found || tally.read[1][i] < found) {
            return false;
        }
    }
    return true;
}

void find_counts(Tally *tally) {
    const TestKey key = created(HKEY_LOCAL_MACHINE, kSoakPath);
    for (std::size_t i = 0; i < 2; ++i) {
        const DWORD returned = tally->returned[i];
        const DWORD count = number(key, kCounts[i]).value_or(0);
        EXPECT_TRUE(count == returned || count == returned + 1) << count << " " << returned;
        tally->found[i] = count;
    }
}

}  // namespace

void prove_kills(long kills) {
    const RegistryFolder folder;
    auto *const tally = shared_memory<Tally>();
    const Stopwatch watch;
    // This process makes no call, so that its children have nothing cached.
    const pid_t others[] = {started([&] { read_on(0, tally); }),
                            started([&] { read_on(1, tally); }), started([&] { watch_on(tally); })};
    std::mt19937 random(1);
    double longest = 0;
    for (long killed = 0; killed < kills && !testing::Test::HasFailure();) {
        pid_t writers[2];
        for (std::size_t i = 0; i < 2; ++i) {
            writers[i] = started([&] { write_on(i, tally); });
        }
        const pid_t reader = started([&] { read_on(1, tally); });
        const DWORD limit = random() % 2 == 0 ? 4'000 : 25'000;
        for (const pid_t one : {writers[0], reader, writers[1]}) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % limit));
            kill(one, SIGKILL);
            waitpid(one, nullptr, 0);
        }
        killed += 2;
        expect_success(started([&] { find_counts(tally); }));
        const std::uint64_t reads = tally->reads;
        const Stopwatch since;
        while ((!all_know(*tally) || tally->reads < reads + 2) && since.Seconds() < 10) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(all_know(*tally)) << "a reader or the watcher was not told";
        EXPECT_GE(tally->reads, reads + 2) << "the readers stand still";
        longest = std::max(longest, since.Seconds());
        if (killed % 50 == 0) {
            expect_sound();
        }
    }
    tally->stop = 1;
    expect_success(started([] { set_number(created(HKEY_LOCAL_MACHINE, kSoakPath), u"end", 1); }));
    for (const pid_t other : others) {
        expect_success(other);
    }
    expect_sound();
    std::printf(
        "%ld kills, %u and %u steps, %llu rounds of readers, longest wait for the others"
        " %.3f s, %.0f s\n",
        kills, tally->returned[0].load(), tally->returned[1].load(),
        static_cast<unsigned long long>(tally->reads), longest, watch.Seconds());
}
