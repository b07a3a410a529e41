// Events, semaphores and the calls that wait.

#include <sched.h>

#include <array>
#include <new>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/sync.h"
#include "ostrel/platform/sync/thread.h"
#include "ostrel/platform/sync/waitable.h"

namespace {

using ostrel_platform::Added;
using ostrel_platform::Deadline;
using ostrel_platform::HandleShortcut;
using ostrel_platform::HandleTable;
using ostrel_platform::SignalCell;
using ostrel_platform::SignalKind;
using ostrel_platform::SignalTag;
using ostrel_platform::Taken;
using ostrel_platform::Thread;
using ostrel_platform::ThreadState;
using ostrel_platform::Waitable;

// The signal of a handle, without a share in its object. The cell is null when the handle is no
// waitable object's.
struct Signal {
    SignalCell *cell;
    SignalTag tag;
};

Signal signal_of(HANDLE handle) {
    const HandleShortcut shortcut =
        HandleTable::Instance().FindShortcut(reinterpret_cast<std::uintptr_t>(handle));
    return {static_cast<SignalCell *>(shortcut.memory), static_cast<SignalTag>(shortcut.tag)};
}

bool is_event(const Signal &signal) {
    const SignalKind kind = ostrel_platform::kind_of(signal.tag);
    return signal.cell != nullptr &&
           (kind == SignalKind::kAutoEvent || kind == SignalKind::kManualEvent);
}

BOOL fail(DWORD code) {
    SetLastError(code);
    return FALSE;
}

HANDLE create(SignalKind kind, std::uint32_t count, std::uint32_t maximum, const WCHAR *name) {
    HANDLE handle = nullptr;
    ostrel_platform::call_result([&]() -> DWORD {
        if (name != nullptr && *name != 0) {
            return ERROR_NOT_SUPPORTED;
        }
        handle = open_handle(std::make_shared<Waitable>(kind, count, maximum));
        return ERROR_SUCCESS;
    });
    return handle;
}

Deadline deadline_of(DWORD milliseconds) {
    switch (milliseconds) {
        case 0:
            return 0;
        case INFINITE:
            return ostrel_platform::kNoDeadline;
        default:
            return ostrel_platform::monotonic_now() + milliseconds * Deadline{1'000'000};
    }
}

// Waits with the lists of those who wait, and for the end of the calling thread by TerminateThread.
DWORD wait_in_lists(std::span<const std::shared_ptr<Waitable>> objects, BOOL all,
                    DWORD milliseconds) {
    const ThreadState &state = ostrel_platform::this_thread();
    const Thread *const stop = state.held_sections == 0 ? state.thread : nullptr;
    const std::uint32_t result = wait_for(objects, all != FALSE, stop, deadline_of(milliseconds));
    switch (result) {
        case ostrel_platform::kStopped:
            ostrel_platform::stop_this_thread();
        case ostrel_platform::kTimedOut:
            return WAIT_TIMEOUT;
        case ostrel_platform::kNotWaited:
            return WAIT_FAILED;
        default:
            return WAIT_OBJECT_0 + result;
    }
}

bool names_an_object_twice(std::span<const HANDLE> handles) {
    for (std::size_t i = 0; i < handles.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (handles[i] == handles[j]) {
                return true;
            }
        }
    }
    return false;
}

bool are_waitable(std::span<const HANDLE> handles) {
    for (const HANDLE handle : handles) {
        if (signal_of(handle).cell == nullptr) {
            return false;
        }
    }
    return true;
}

}  // namespace

HANDLE CreateEventW(SECURITY_ATTRIBUTES * /*security*/, BOOL manual, BOOL initial,
                    const WCHAR *name) noexcept {
    return create(manual != FALSE ? SignalKind::kManualEvent : SignalKind::kAutoEvent,
                  initial != FALSE ? 1 : 0, 1, name);
}

BOOL SetEvent(HANDLE event) noexcept {
    const Signal signal = signal_of(event);
    return is_event(signal) && add_signal(*signal.cell, signal.tag, 1, true, nullptr) == Added::kYes
               ? TRUE
               : fail(ERROR_INVALID_HANDLE);
}

BOOL ResetEvent(HANDLE event) noexcept {
    const Signal signal = signal_of(event);
    return is_event(signal) && clear_signal(*signal.cell, signal.tag) ? TRUE
                                                                      : fail(ERROR_INVALID_HANDLE);
}

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES * /*security*/, LONG initial, LONG maximum,
                        const WCHAR *name) noexcept {
    if (initial < 0 || maximum < 1 || initial > maximum) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return create(SignalKind::kSemaphore, static_cast<std::uint32_t>(initial),
                  static_cast<std::uint32_t>(maximum), name);
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previous) noexcept {
    const Signal signal = signal_of(semaphore);
    if (signal.cell == nullptr || ostrel_platform::kind_of(signal.tag) != SignalKind::kSemaphore) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (count < 1) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    std::uint32_t before = 0;
    switch (
        add_signal(*signal.cell, signal.tag, static_cast<std::uint32_t>(count), false, &before)) {
        case Added::kStale:
            return fail(ERROR_INVALID_HANDLE);
        case Added::kAboveMaximum:
            return fail(ERROR_TOO_MANY_POSTS);
        case Added::kYes:
            break;
    }
    if (previous != nullptr) {
        *previous = static_cast<LONG>(before);
    }
    return TRUE;
}

void Sleep(DWORD milliseconds) noexcept {
    stop_if_terminated(ostrel_platform::this_thread());
    if (milliseconds == 0) {
        sched_yield();
    } else {
        wait_in_lists({}, FALSE, milliseconds);
    }
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept {
    stop_if_terminated(ostrel_platform::this_thread());
    const Signal signal = signal_of(object);
    if (signal.cell != nullptr) {
        const Taken taken = try_take(*signal.cell, signal.tag);
        if (taken == Taken::kYes) {
            return WAIT_OBJECT_0;
        }
        if (taken == Taken::kNo && milliseconds == 0 &&
            ostrel_platform::kind_of(signal.tag) != SignalKind::kEnd) {
            return WAIT_TIMEOUT;
        }
    }
    const std::shared_ptr<Waitable> waitable = ostrel_platform::find_waitable(object);
    return waitable != nullptr ? wait_in_lists({&waitable, 1}, FALSE, milliseconds) : WAIT_FAILED;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE *objects, BOOL all,
                             DWORD milliseconds) noexcept {
    stop_if_terminated(ostrel_platform::this_thread());
    const std::span<const HANDLE> handles(objects, objects != nullptr ? count : 0);
    if (handles.empty() || count > MAXIMUM_WAIT_OBJECTS ||
        (all != FALSE && names_an_object_twice(handles))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    if (all == FALSE && are_waitable(handles)) {
        // The lowest index is right whatever happens to the others meanwhile.
        const Signal lowest = signal_of(handles[0]);
        if (lowest.cell != nullptr && try_take(*lowest.cell, lowest.tag) == Taken::kYes) {
            return WAIT_OBJECT_0;
        }
    }
    std::array<std::shared_ptr<Waitable>, MAXIMUM_WAIT_OBJECTS> waitables;
    for (DWORD i = 0; i < count; ++i) {
        waitables[i] = ostrel_platform::find_waitable(handles[i]);
        if (waitables[i] == nullptr) {
            return WAIT_FAILED;
        }
    }
    return wait_in_lists({waitables.data(), count}, all, milliseconds);
}
