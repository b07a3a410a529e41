#include "ostrel/platform/sync.h"

#include <chrono>
#include <functional>
#include <initializer_list>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "support/file_calls.h"

namespace {

// A handle for the length of a test.
class Scoped {
public:
    explicit Scoped(HANDLE handle) : m_handle(handle) { EXPECT_NE(handle, nullptr); }
    Scoped(const Scoped &) = delete;
    ~Scoped() { EXPECT_TRUE(CloseHandle(m_handle)); }
    operator HANDLE() const { return m_handle; }

private:
    HANDLE m_handle;
};

HANDLE event(bool manual, bool initial = false) {
    return CreateEventW(nullptr, manual, initial, nullptr);
}

HANDLE semaphore(LONG initial, LONG maximum) {
    return CreateSemaphoreW(nullptr, initial, maximum, nullptr);
}

HANDLE closed_handle() {
    const HANDLE handle = event(true, true);
    CloseHandle(handle);
    return handle;
}

// Tests each object once. Returns 1 for each that was signalled.
std::string test_each(std::initializer_list<HANDLE> handles) {
    std::string text;
    for (const HANDLE handle : handles) {
        text += WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 ? '1' : '0';
    }
    return text;
}

TEST(Wait, EventsKeepOrLoseTheirSignal) {
    struct Row {
        const char *name;
        bool manual;
        bool initial;
        const char *calls;    // S set, R reset, W wait
        const char *results;  // of the waits
    };
    for (const Row &row :
         {Row{"auto", false, false, "WSWW", "010"}, Row{"auto, signalled", false, true, "WW", "10"},
          Row{"auto, set twice", false, false, "SSWW", "10"},
          Row{"auto, reset", false, true, "RRWSW", "01"}, Row{"manual", true, false, "WSWW", "011"},
          Row{"manual, signalled", true, true, "WWRW", "110"},
          Row{"manual, reset and set", true, false, "SRWSSW", "01"}}) {
        SCOPED_TRACE(row.name);
        const Scoped handle(event(row.manual, row.initial));
        std::string results;
        for (const char *call = row.calls; *call != 0; ++call) {
            if (*call == 'W') {
                results += test_each({handle});
            } else {
                EXPECT_TRUE(*call == 'S' ? SetEvent(handle) : ResetEvent(handle));
            }
        }
        EXPECT_EQ(results, row.results);
    }
}

TEST(Wait, SemaphoresCount) {
    struct Row {
        LONG initial;
        LONG maximum;
        LONG release;
        DWORD code;
        LONG after;  // the count
    };
    constexpr LONG kMost = 0x7FFFFFFF;
    for (const Row &row :
         {Row{0, 1, 1, 0, 1}, Row{1, 1, 1, ERROR_TOO_MANY_POSTS, 1}, Row{2, 5, 3, 0, 5},
          Row{2, 5, 4, ERROR_TOO_MANY_POSTS, 2}, Row{2, 5, 0, ERROR_INVALID_PARAMETER, 2},
          Row{2, 5, -1, ERROR_INVALID_PARAMETER, 2}, Row{3, kMost, kMost, ERROR_TOO_MANY_POSTS, 3},
          Row{0, kMost, kMost, 0, kMost}}) {
        SCOPED_TRACE(PrintToString(std::tuple(row.initial, row.maximum, row.release)));
        const Scoped handle(semaphore(row.initial, row.maximum));
        SetLastError(0);
        LONG previous = -7;
        EXPECT_EQ(ReleaseSemaphore(handle, row.release, &previous), row.code == 0);
        EXPECT_EQ(GetLastError(), row.code);
        EXPECT_EQ(previous, row.code == 0 ? row.initial : -7);
        LONG count = 0;
        while (count < 10 && WaitForSingleObject(handle, 0) == WAIT_OBJECT_0) {
            ++count;
        }
        EXPECT_EQ(count, std::min<LONG>(row.after, 10));
    }
}

TEST(Wait, RefusesWhatItCannotDo) {
    const Planted dir("file=x");
    const Scoped file(
        CreateFileW(TEXT("file"), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    const Scoped an_event(event(true, true));
    const Scoped a_semaphore(semaphore(1, 1));
    const HANDLE closed = closed_handle();
    const HANDLE pair[] = {an_event, a_semaphore};
    const HANDLE twice[] = {an_event, a_semaphore, an_event};
    const HANDLE with_closed[] = {a_semaphore, closed};
    const HANDLE with_file[] = {a_semaphore, file};
    std::vector<HANDLE> many(65, an_event);
    const auto all = [](const HANDLE *handles, DWORD count) {
        return WaitForMultipleObjects(count, handles, TRUE, 0) == WAIT_FAILED;
    };
    const auto any = [](const HANDLE *handles, DWORD count) {
        return WaitForMultipleObjects(count, handles, FALSE, 0) == WAIT_FAILED;
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
         {FAILS(!SetEvent(nullptr), ERROR_INVALID_HANDLE),
          FAILS(!SetEvent(closed), ERROR_INVALID_HANDLE),
          FAILS(!SetEvent(a_semaphore), ERROR_INVALID_HANDLE),
          FAILS(!ResetEvent(a_semaphore), ERROR_INVALID_HANDLE),
          FAILS(!ResetEvent(INVALID_HANDLE_VALUE), ERROR_INVALID_HANDLE),
          FAILS(!SetEvent(file), ERROR_INVALID_HANDLE),
          FAILS(!ReleaseSemaphore(an_event, 1, nullptr), ERROR_INVALID_HANDLE),
          FAILS(!ReleaseSemaphore(closed, 0, nullptr), ERROR_INVALID_HANDLE),
          FAILS(WaitForSingleObject(nullptr, 0) == WAIT_FAILED, ERROR_INVALID_HANDLE),
          FAILS(WaitForSingleObject(closed, INFINITE) == WAIT_FAILED, ERROR_INVALID_HANDLE),
          FAILS(WaitForSingleObject(file, 0) == WAIT_FAILED, ERROR_INVALID_HANDLE),
          FAILS(any(pair, 0), ERROR_INVALID_PARAMETER),
          FAILS(any(nullptr, 2), ERROR_INVALID_PARAMETER),
          FAILS(any(many.data(), 65), ERROR_INVALID_PARAMETER),
          FAILS(all(many.data(), 65), ERROR_INVALID_PARAMETER),
          FAILS(all(twice, 3), ERROR_INVALID_PARAMETER),
          FAILS(all(with_closed, 2), ERROR_INVALID_HANDLE),
          FAILS(any(with_closed, 2), ERROR_INVALID_HANDLE),
          FAILS(any(with_file, 2), ERROR_INVALID_HANDLE),
          FAILS(!CreateEventW(nullptr, FALSE, FALSE, TEXT("name")), ERROR_NOT_SUPPORTED),
          FAILS(!CreateSemaphoreW(nullptr, 0, 1, TEXT("name")), ERROR_NOT_SUPPORTED),
          FAILS(!semaphore(0, 0), ERROR_INVALID_PARAMETER),
          FAILS(!semaphore(-1, 1), ERROR_INVALID_PARAMETER),
          FAILS(!semaphore(2, 1), ERROR_INVALID_PARAMETER)}) {
        SCOPED_TRACE(row.call);
        SetLastError(0);
        EXPECT_TRUE(row.fails());
        EXPECT_EQ(GetLastError(), row.code);
    }
#undef FAILS
    EXPECT_EQ(test_each({a_semaphore}), "1");  // no call took it
    const Scoped unnamed(CreateEventW(nullptr, FALSE, TRUE, TEXT("")));
    EXPECT_EQ(test_each({unnamed}), "1");
}

TEST(Wait, EndsByTheLowestIndexAndChangesNoOther) {
    struct Row {
        const char *signalled;  // by index: of an event, a semaphore, an event, a manual event
        DWORD result;
        const char *after;
    };
    for (const Row &row :
         {Row{"0000", WAIT_TIMEOUT, "0000"}, Row{"1111", 0, "0111"}, Row{"0111", 1, "0011"},
          Row{"0011", 2, "0001"}, Row{"0001", 3, "0001"}, Row{"1001", 0, "0001"}}) {
        SCOPED_TRACE(row.signalled);
        const Scoped first(event(false, row.signalled[0] == '1'));
        const Scoped second(semaphore(row.signalled[1] - '0', 3));
        const Scoped third(event(false, row.signalled[2] == '1'));
        const Scoped fourth(event(true, row.signalled[3] == '1'));
        const HANDLE handles[] = {first, second, third, fourth, second, first};  // some twice
        EXPECT_EQ(WaitForMultipleObjects(6, handles, FALSE, 0), row.result);
        EXPECT_EQ(test_each({first, second, third, fourth}), row.after);
    }
}

TEST(Wait, ForAllTakesAllOrNothing) {
    struct Row {
        const char *signalled;
        DWORD result;
        const char *after;
    };
    for (const Row &row : {Row{"111", 0, "001"}, Row{"011", WAIT_TIMEOUT, "011"},
                           Row{"110", WAIT_TIMEOUT, "110"}, Row{"101", WAIT_TIMEOUT, "101"}}) {
        SCOPED_TRACE(row.signalled);
        const Scoped first(event(false, row.signalled[0] == '1'));
        const Scoped second(semaphore(row.signalled[1] - '0', 3));
        const Scoped third(event(true, row.signalled[2] == '1'));
        const HANDLE handles[] = {first, second, third};
        EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 0), row.result);
        EXPECT_EQ(test_each({first, second, third}), row.after);
    }
}

TEST(Wait, TakesSixtyFourObjects) {
    std::vector<HANDLE> handles;
    for (int i = 0; i < 64; ++i) {
        handles.push_back(event(false));
    }
    for (const DWORD index : {63u, 17u, 0u}) {
        EXPECT_TRUE(SetEvent(handles[index]));
        EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, INFINITE), index);
    }
    for (const HANDLE handle : handles) {
        EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), TRUE, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(SetEvent(handle));
    }
    EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), TRUE, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, 0), WAIT_TIMEOUT);
    for (const HANDLE handle : handles) {
        CloseHandle(handle);
    }
}

TEST(Wait, IsNotShorterThanItsTimeOut) {
    const Scoped never(event(false));
    const HANDLE pair[] = {never, never};
    for (const auto &wait : std::initializer_list<std::function<void()>>{
             [&] { EXPECT_EQ(WaitForSingleObject(never, 20), WAIT_TIMEOUT); },
             [&] { EXPECT_EQ(WaitForMultipleObjects(2, pair, FALSE, 20), WAIT_TIMEOUT); },
             [&] { Sleep(20); }}) {
        const auto begin = std::chrono::steady_clock::now();
        SetLastError(7);
        wait();
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
        EXPECT_EQ(GetLastError(), 7u);
    }
    Sleep(0);
}

}  // namespace
