#ifndef TESTS_SUPPORT_SIGNALS_H
#define TESTS_SUPPORT_SIGNALS_H

// Objects that threads wait for, and threads that run to their end.

#include <thread>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

inline HANDLE event(bool manual, bool initial = false) {
    return CreateEventW(nullptr, manual, initial, nullptr);
}

inline HANDLE semaphore(LONG initial, LONG maximum) {
    return CreateSemaphoreW(nullptr, initial, maximum, nullptr);
}

// Handles for the length of a test.
struct Handles : std::vector<HANDLE> {
    using vector::vector;
    Handles &operator=(Handles &&) = delete;  // nor copied
    ~Handles() {
        for (const HANDLE handle : *this) {
            EXPECT_TRUE(CloseHandle(handle));
        }
    }
};

inline DWORD wait_on(const std::vector<HANDLE> &handles, bool all, DWORD milliseconds) {
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), all,
                                  milliseconds);
}

// Whether each of the objects can end a wait now: 1 or 0.
inline std::string test_each(const std::vector<HANDLE> &handles) {
    std::string text;
    for (const HANDLE handle : handles) {
        text += WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 ? '1' : '0';
    }
    return text;
}

// Runs body(0), body(1), ... on threads of their own, to their end.
template <class Body>
void on_threads(std::size_t count, Body body) {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
}

#endif  // TESTS_SUPPORT_SIGNALS_H
