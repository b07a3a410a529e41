#ifndef OSTREL_PLATFORM_SYNC_H
#define OSTREL_PLATFORM_SYNC_H

// Events, semaphores, threads, the waits for them, and critical sections.
//
//   const HANDLE stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
//   const HANDLE worker = CreateThread(nullptr, 0, work, stop, 0, nullptr);  // DWORD work(LPVOID)
//   SetEvent(stop);
//   WaitForSingleObject(worker, INFINITE);  // WAIT_OBJECT_0: the thread has ended
//   CloseHandle(worker);                    // handle.h
//   CloseHandle(stop);
//
// Implemented with futexes, POSIX threads and the layer's table of handles.
//
// Objects. An object is signalled or not, and a wait ends when its objects are signalled. A wait
// that ends changes the objects that ended it, and no others: it resets an auto-reset event and
// takes one from the count of a semaphore. Each signal of an auto-reset event ends one wait. A
// signal that finds a thread waiting is that thread's at once: nobody else can take it, though the
// thread has yet to run. Which of several waiting threads gets a signal is not defined.
//
// Closing. A closed handle is refused at once with ERROR_INVALID_HANDLE. A wait that began before
// goes on: it ends by another of its objects, by its time-out, by the end of the thread that is
// waited for, or never. A call that uses the handle on another thread completes normally.
//
// Time-outs are milliseconds on the host's monotonic clock, which stands still while the host
// sleeps. A wait is never shorter than its time-out.
//
// Memory. What a thread did before it signalled an object is visible to the thread whose wait that
// signal ended.
//
// Forks. In the child of a fork, handles keep the states that their objects had; no other thread
// waits. Threads other than the calling one do not exist in the child: their objects are signalled
// there, with the exit code 0. A critical section that another thread held stays held.
//
// Signals of the host do not end a wait.
//
// Not offered: names, CREATE_SUSPENDED, mutexes and timers.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <process.h>

#else

struct SECURITY_ATTRIBUTES;

// A time-out that never passes.
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

// Results of a wait. WAIT_TIMEOUT (258) is in error.h, with the system's codes.
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

inline constexpr DWORD CREATE_SUSPENDED = 0x4;
inline constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;

// The exit code of a thread that has not ended.
inline constexpr DWORD STILL_ACTIVE = 259;

using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID);

// Creates an event. `security` is ignored. `manual` says whether the event stays signalled until
// ResetEvent (TRUE), or until a wait has ended by it (FALSE, auto-reset). `initial` says whether it
// begins signalled. `name` is null or empty.
//
// Returns a handle that CloseHandle closes. On failure returns null and sets the last error to
// ERROR_NOT_SUPPORTED (a name) or ERROR_NOT_ENOUGH_MEMORY.
OSTREL_PLATFORM_API HANDLE CreateEventW(SECURITY_ATTRIBUTES *security, BOOL manual, BOOL initial,
                                        const WCHAR *name) noexcept;

// Signals an event; ends the signal of an event. Has no effect on an event in that state: two
// signals of an auto-reset event with no wait between them end one wait.
//
// Returns TRUE. On failure, when the handle is no event's, returns FALSE and sets the last error to
// ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL SetEvent(HANDLE event) noexcept;
OSTREL_PLATFORM_API BOOL ResetEvent(HANDLE event) noexcept;

// Creates a semaphore, which is signalled while its count is above 0. `security` is ignored.
// `initial` is the count, from 0 to `maximum`; `maximum` is at least 1. `name` is null or empty.
//
// Returns a handle that CloseHandle closes. On failure returns null and sets the last error to
// ERROR_INVALID_PARAMETER (the counts), ERROR_NOT_SUPPORTED (a name) or ERROR_NOT_ENOUGH_MEMORY.
OSTREL_PLATFORM_API HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES *security, LONG initial,
                                            LONG maximum, const WCHAR *name) noexcept;

// Adds `count`, at least 1, to the count of a semaphore. `previous`, which may be null, receives
// the count before the call.
//
// Returns TRUE. On failure returns FALSE, leaves the count and `previous` as they are and sets the
// last error:
//   ERROR_INVALID_HANDLE     the handle is no semaphore's
//   ERROR_INVALID_PARAMETER  `count` is below 1
//   ERROR_TOO_MANY_POSTS     the sum is above the semaphore's maximum
OSTREL_PLATFORM_API BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previous) noexcept;

// Starts a thread that runs `start(argument)`. `security` is ignored. `stack` is the size of the
// stack in bytes; a size below the host's default counts as the default, unless `flags` has
// STACK_SIZE_PARAM_IS_A_RESERVATION, by which the stack has that size, rounded up to at least the
// host's minimum. `flags` has no other bit. `id`, which may be null, receives the id that
// GetCurrentThreadId gives in the thread. The thread may run before the call returns.
//
// Returns a handle that CloseHandle closes; closing does not stop the thread. The handle is
// signalled when the thread has ended, its thread_local objects destroyed. On failure returns null
// and sets the last error:
//   ERROR_INVALID_PARAMETER  `start` is null, or an unknown flag
//   ERROR_NOT_SUPPORTED      CREATE_SUSPENDED
//   ERROR_NOT_ENOUGH_MEMORY  memory is missing, or the host refuses another thread
//
// The thread's exit code is what `start` returns, or 0 when the host's pthread_exit or
// pthread_cancel ends the thread. An exception that leaves `start` ends the process by
// std::terminate. The end of the process ends the thread at any instruction, static destructors
// having run beside it. From the first thread on, dlclose does not unload the layer; the library
// that holds `start` has to stay until the thread has ended, which is its owner's business.
OSTREL_PLATFORM_API HANDLE CreateThread(SECURITY_ATTRIBUTES *security, std::size_t stack,
                                        LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags,
                                        DWORD *id) noexcept;

// The runtime's form of CreateThread: the same, except for `start` and for failures. Returns the
// handle as a number. On failure returns 0 and sets errno to EINVAL (flags), EAGAIN (the host
// refuses another thread) or ENOMEM. For a null `start` returns -1 and sets errno to EINVAL.
OSTREL_PLATFORM_API std::uintptr_t _beginthreadex(void *security, unsigned stack,
                                                  unsigned (*start)(void *), void *argument,
                                                  unsigned flags, unsigned *id) noexcept;

// Declares a thread ended, with the exit code `code`: its handle is signalled before the call
// returns. The call does not wait for the host's thread, and never stops it between two
// instructions of its own. The host's thread stops for ever, without running a destructor, at the
// first of these points at which it holds no critical section:
//   - it calls or is inside Sleep, WaitForSingleObject or WaitForMultipleObjects; a wait that it
//     was inside takes no signal any more
//   - it calls EnterCriticalSection or TryEnterCriticalSection
//   - it has left the last critical section that it held
// When `start` returns first, the thread ends as usual. So a terminated thread leaves no critical
// section held, unless it never comes to leave it; it goes on with what it is computing, and may
// touch what its function uses until it stops. Locks of other kinds stay held. A stopped thread
// keeps its stack till the end of the process, and no host signal handler runs on it.
//
// A thread that terminates itself stops at once, whatever it holds. A thread that has ended stays
// as it is.
//
// Returns TRUE. On failure, when the handle is no thread's, returns FALSE and sets the last error
// to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL TerminateThread(HANDLE thread, DWORD code) noexcept;

// Stores a thread's exit code, or STILL_ACTIVE while the thread runs. A thread may also end with
// that number; a wait tells. Returns TRUE. On failure returns FALSE and sets the last error to
// ERROR_INVALID_HANDLE (the handle is no thread's) or ERROR_INVALID_PARAMETER (`code` is null).
OSTREL_PLATFORM_API BOOL GetExitCodeThread(HANDLE thread, DWORD *code) noexcept;

// Returns the host's id of the calling thread.
OSTREL_PLATFORM_API DWORD GetCurrentThreadId() noexcept;

// Suspends the calling thread for so many milliseconds. 0 yields the processor; INFINITE never
// returns.
OSTREL_PLATFORM_API void Sleep(DWORD milliseconds) noexcept;

// Waits until an object is signalled, or until so many milliseconds have passed; 0 tests only, and
// a signalled object ends the wait whatever the time. The object is an event, a semaphore, a
// thread or a process (process.h).
//
// Returns WAIT_OBJECT_0, or WAIT_TIMEOUT, which leaves the last error as it is. On failure, when
// the handle is no such object's, returns WAIT_FAILED and sets the last error to
// ERROR_INVALID_HANDLE. A wait for a process that has not ended needs a descriptor of the host
// besides: ERROR_TOO_MANY_OPEN_FILES, ERROR_NOT_ENOUGH_MEMORY. A wait for other objects needs
// neither memory nor a descriptor.
OSTREL_PLATFORM_API DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept;

// Waits for one of `count` objects (`all` FALSE) or for all of them at the same moment (`all`
// TRUE). `objects` are 1 to 64 handles, of any kinds that WaitForSingleObject takes. A wait for one
// may name an object several times.
//
// Returns WAIT_OBJECT_0 plus the index of the object that ended the wait: of those signalled at
// that moment the lowest, and no other object is changed. A wait for all changes its objects
// together, when all are signalled, or none of them, and returns WAIT_OBJECT_0. After the time-out
// returns WAIT_TIMEOUT. On failure returns WAIT_FAILED, changes nothing and sets the last error:
//   ERROR_INVALID_PARAMETER  `count` is 0 or above 64; `objects` is null; a wait for all names an
//                            object twice
//   ERROR_INVALID_HANDLE     a handle is no such object's
// or as WaitForSingleObject does for a process.
OSTREL_PLATFORM_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE *objects, BOOL all,
                                                 DWORD milliseconds) noexcept;

// A recursive lock in the caller's memory, between the threads of one process. Never copy or move a
// section in use. The fields are the layer's. A section of zeros is initialised.
struct CRITICAL_SECTION {
    std::uint32_t state;  // 0 free, 1 held, 2 held and waited for
    std::uint32_t depth;  // how often the owner has entered, less one
    std::uint64_t owner;  // a number that no other thread of the process has or had
};

// Makes a section free. Never fails.
OSTREL_PLATFORM_API void InitializeCriticalSection(CRITICAL_SECTION *section) noexcept;

// Waits until the calling thread owns the section. The owner may enter again; the section is free
// when the owner has left as often as it has entered. Not fair: a thread that enters may overtake
// one that waits.
OSTREL_PLATFORM_API void EnterCriticalSection(CRITICAL_SECTION *section) noexcept;

// The same without waiting. Returns TRUE when the calling thread owns the section, FALSE when
// another thread owns it.
OSTREL_PLATFORM_API BOOL TryEnterCriticalSection(CRITICAL_SECTION *section) noexcept;

// Leaves the section once. Has no effect when the calling thread does not own the section. A
// section whose owner has ended stays owned.
OSTREL_PLATFORM_API void LeaveCriticalSection(CRITICAL_SECTION *section) noexcept;

// Ends the use of a section: a section that the calling thread owns becomes free. Has no effect
// while another thread owns the section, whose memory that thread will still use. A deleted section
// is like an initialised one.
OSTREL_PLATFORM_API void DeleteCriticalSection(CRITICAL_SECTION *section) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SYNC_H
