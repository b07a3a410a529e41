#include <chrono>
#include <functional>

#include "ostrel/platform/error.h"
#include "support/signals.h"

namespace {

// S sets, R resets, and W waits, with the results of the waits.
TEST(Wait, EventsKeepOrLoseTheirSignal) {
    const std::tuple<bool, bool, std::string, std::string> rows[] = {{false, false, "WSSWW", "010"},
                                                                     {false, true, "RRWSW", "01"},
                                                                     {true, false, "WSWW", "011"},
                                                                     {true, true, "WWRW", "110"}};
    for (const auto &[manual, initial, calls, results] : rows) {
        const Handles handle{event(manual, initial)};
        std::string found;
        for (const char call : calls) {
            found += call == 'W' ? test_each(handle) : "";
            EXPECT_TRUE(call == 'S' ? SetEvent(handle[0]) : call == 'W' || ResetEvent(handle[0]));
        }
        EXPECT_EQ(found, results) << calls;
    }
}

TEST(Wait, SemaphoresCount) {
    constexpr LONG kMost = 0x7FFFFFFF;
    const std::tuple<LONG, LONG, LONG, DWORD> rows[] = {{2, 5, 3, 0},
                                                        {2, 5, 4, ERROR_TOO_MANY_POSTS},
                                                        {2, 5, 0, ERROR_INVALID_PARAMETER},
                                                        {3, kMost, kMost, ERROR_TOO_MANY_POSTS},
                                                        {0, kMost, kMost, 0}};
    for (const auto &[initial, maximum, release, code] : rows) {
        SCOPED_TRACE(PrintToString(std::tuple(initial, maximum, release)));
        const Handles handle{semaphore(initial, maximum)};
        SetLastError(0);
        LONG previous = -7;
        EXPECT_EQ(ReleaseSemaphore(handle[0], release, &previous), code == 0);
        EXPECT_EQ(GetLastError(), code);
        EXPECT_EQ(previous, code == 0 ? initial : -7);
        LONG count = 0;
        while (count < 10 && WaitForSingleObject(handle[0], 0) == WAIT_OBJECT_0) {
            ++count;
        }
        EXPECT_EQ(count, std::min<LONG>(code == 0 ? initial + release : initial, 10));
    }
}

TEST(Wait, RefusesWhatItCannotDo) {
    const Handles own{event(true, true), semaphore(1, 1)};
    const HANDLE closed = event(true, true);
    CloseHandle(closed);
    const auto fails = [](const std::vector<HANDLE> &handles, bool all = false) {
        return wait_on(handles, all, 0) == WAIT_FAILED;
    };
    struct Row {
        const char *call;
        std::function<bool()> fails;
        DWORD code;
    };
#define FAILS(call, code)                 \
    Row {                                 \
#call, [&] { return call; }, code \
    }
    for (const Row &row :
         {FAILS(!SetEvent(closed), ERROR_INVALID_HANDLE),
          FAILS(!SetEvent(own[1]), ERROR_INVALID_HANDLE),
          FAILS(!ResetEvent(own[1]), ERROR_INVALID_HANDLE),
          FAILS(!ReleaseSemaphore(own[0], 1, nullptr), ERROR_INVALID_HANDLE),
          FAILS(WaitForSingleObject(closed, INFINITE) == WAIT_FAILED, ERROR_INVALID_HANDLE),
          FAILS(fails(std::vector(65, own[0])), ERROR_INVALID_PARAMETER),
          FAILS(fails({own[0], own[1], own[0]}, true), ERROR_INVALID_PARAMETER),
          FAILS(fails({own[1], closed}, true), ERROR_INVALID_HANDLE),
          FAILS(!CreateEventW(nullptr, FALSE, FALSE, TEXT("name")), ERROR_NOT_SUPPORTED),
          FAILS(!semaphore(2, 1), ERROR_INVALID_PARAMETER)}) {
        SCOPED_TRACE(row.call);
        SetLastError(0);
        EXPECT_TRUE(row.fails());
        EXPECT_EQ(GetLastError(), row.code);
    }
#undef FAILS
    EXPECT_EQ(test_each(own), "11");  // no call took it
}

TEST(Wait, TakesTheLowestIndexOrAllOrNothing) {
    // The objects are an event, a semaphore, an event and a manual event.
    const std::tuple<bool, std::string, DWORD, std::string> rows[] = {
        {false, "0000", WAIT_TIMEOUT, "0000"},
        {false, "1111", 0, "0111"},
        {false, "0111", 1, "0011"},
        {false, "0001", 3, "0001"},
        {true, "1111", 0, "0001"},
        {true, "0111", WAIT_TIMEOUT, "0111"},
        {true, "1011", WAIT_TIMEOUT, "1011"},
        {true, "1110", WAIT_TIMEOUT, "1110"}};
    for (const auto &[all, signalled, result, after] : rows) {
        const auto is_set = [&text = signalled](std::size_t at) { return text[at] == '1'; };
        const Handles own{event(false, is_set(0)), semaphore(is_set(1), 3), event(false, is_set(2)),
                          event(true, is_set(3))};
        std::vector<HANDLE> handles = own;
        if (!all) {
            handles.insert(handles.end(), {own[1], own[0]});  // some twice
        }
        EXPECT_EQ(wait_on(handles, all, 0), result) << signalled;
        EXPECT_EQ(test_each(own), after) << signalled;
    }
}

TEST(Wait, IsNotShorterThanItsTimeOut) {
    const Handles never{event(false), event(false)};
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(never[0], 20), WAIT_TIMEOUT);
    EXPECT_EQ(wait_on(never, false, 20), WAIT_TIMEOUT);
    Sleep(20);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
}

}  // namespace
