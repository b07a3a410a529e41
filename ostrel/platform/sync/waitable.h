#ifndef OSTREL_PLATFORM_SYNC_WAITABLE_H
#define OSTREL_PLATFORM_SYNC_WAITABLE_H

// Internal. Objects that WaitForSingleObject and WaitForMultipleObjects take, for this room and for
// the rooms that add objects of their own.
//
//   class Process : public Waitable {
//       Process() : Waitable(SignalKind::kEnd) {}
//       int Descriptor() const noexcept override { return m_pidfd; }  // readable at the end
//   };
//   const HANDLE handle = open_handle(std::make_shared<Process>());
//
// An object that something in the process signals calls Signal. An object that the host signals
// through a descriptor has Descriptor: the threads that wait for the object poll the descriptor,
// and the first to find it readable calls Signal for all. No thread of the layer stands behind it.

#include <cstdint>
#include <memory>
#include <span>

#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/sync/futex.h"
#include "ostrel/platform/sync/signal_cell.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Ownership: an open handle and each wait own a share of the object, so a wait goes on when another
// thread closes the handle. Keep a share to signal the object later.
// Threads: every call may run on any thread.
// Errors: the constructor throws std::bad_alloc.
class Waitable : public HandleObject {
public:
    explicit Waitable(SignalKind kind, std::uint32_t count = 0, std::uint32_t maximum = 1)
        : m_cell(take_cell(kind, count, maximum)),
          m_tag(tag_of(m_cell->word.load(std::memory_order_relaxed))) {}
    ~Waitable() override { give_cell(m_cell); }
    Waitable(const Waitable &) = delete;
    Waitable &operator=(const Waitable &) = delete;

    // Signals an event or an end, as SetEvent does.
    void Signal() noexcept;
    bool IsSignalled() const noexcept { return count_of(m_cell->word.load()) > 0; }

    // Returns a descriptor of the host that poll finds readable once the object is signalled, or
    // -1. The descriptor stays open as long as the object lives. Only for SignalKind::kEnd.
    virtual int Descriptor() const noexcept { return -1; }

    SignalCell &Cell() const noexcept { return *m_cell; }
    SignalTag Tag() const noexcept { return m_tag; }

private:
    SignalCell *const m_cell;
    const SignalTag m_tag;
};

// Returns a handle that CloseHandle closes. Throws std::bad_alloc.
HANDLE open_handle(std::shared_ptr<Waitable> object);

// Returns the object of a handle. On failure, when the handle is no waitable object's, returns null
// and sets the last error to ERROR_INVALID_HANDLE.
std::shared_ptr<Waitable> find_waitable(HANDLE handle);

// The same for an event.
std::shared_ptr<Waitable> find_event(HANDLE handle);

// What adds to a count, by the tag that the cell must have.
enum class Added { kYes, kStale, kAboveMaximum };

// Signals a cell: the count rises by `count` and waits end by it. With `saturates`, the count stays
// at its maximum; without, nothing changes when the sum is above. `previous` may be null.
Added add_signal(SignalCell &cell, SignalTag tag, std::uint32_t count, bool saturates,
                 std::uint32_t *previous) noexcept;

// Sets the count to 0. Returns false when the tag is not the cell's.
bool clear_signal(SignalCell &cell, SignalTag tag) noexcept;

// A wait for one of the objects or for all of them, up to 64; `all` needs different objects.
// `stop`, which may be null, ends either wait when it is signalled, before all others.
//
// Returns the index of the object that ended the wait (0 for all), kStopped or kTimedOut. On
// failure returns kNotWaited and sets the last error: ERROR_TOO_MANY_OPEN_FILES when the host
// refuses the descriptor, or ERROR_NOT_ENOUGH_MEMORY the memory, that an object with a descriptor
// needs. The header that offers such an object lists both for its waits.
inline constexpr std::uint32_t kStopped = 0x100;
inline constexpr std::uint32_t kTimedOut = 0x101;
inline constexpr std::uint32_t kNotWaited = 0x102;
std::uint32_t wait_for(std::span<const std::shared_ptr<Waitable>> objects, bool all,
                       const Waitable *stop, Deadline deadline) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_SYNC_WAITABLE_H
