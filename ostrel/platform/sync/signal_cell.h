#ifndef OSTREL_PLATFORM_SYNC_SIGNAL_CELL_H
#define OSTREL_PLATFORM_SYNC_SIGNAL_CELL_H

// Internal. The signal of an object that threads wait for: a word that says how many waits it can
// end, and the list of those who wait.
//
// While nobody waits, the word changes by compare-and-swap, without a lock. A cell's memory is
// never released, and the tag in the word changes when the cell passes to another object. So a
// thread may use a cell whose object another thread closes: the swap fails. SetEvent and
// WaitForSingleObject take 15 ns together; with a lock and a counted reference each they take ten
// times as long.
//
// While somebody waits (kWaited), the word changes only under the lock of the cell's stripe.
//
//   word: tag (30 bits: how often the cell was given back; 2 bits: the kind), kWaited, count (31)

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace ostrel_platform {

struct WaitNode;

enum class SignalKind : std::uint8_t {
    kAutoEvent,    // the count is 0 or 1, and a wait takes it
    kManualEvent,  // the count is 0 or 1, and a wait leaves it
    kSemaphore,    // the count is up to `maximum`, and a wait takes one
    kEnd,          // of a thread or process: the count is 0 or 1 and never falls
};

using SignalTag = std::uint32_t;

inline constexpr std::uint64_t kCountMask = 0x7FFFFFFF;
inline constexpr std::uint64_t kWaited = 0x80000000;

inline std::uint32_t count_of(std::uint64_t word) {
    return static_cast<std::uint32_t>(word & kCountMask);
}

inline SignalTag tag_of(std::uint64_t word) {
    return static_cast<SignalTag>(word >> 32);
}

inline SignalKind kind_of(SignalTag tag) {
    return static_cast<SignalKind>(tag & 3);
}

inline bool is_taken_by_a_wait(SignalTag tag) {
    return kind_of(tag) == SignalKind::kAutoEvent || kind_of(tag) == SignalKind::kSemaphore;
}

// Aligned so that objects of different threads share no cache line.
struct alignas(64) SignalCell {
    std::atomic<std::uint64_t> word{0};
    std::atomic<std::uint32_t> maximum{1};  // of the count

    // Under the lock of the stripe.
    WaitNode *first = nullptr;
    WaitNode *last = nullptr;
    SignalCell *next_free = nullptr;
};

// Takes a free cell with this count. Throws std::bad_alloc.
SignalCell *take_cell(SignalKind kind, std::uint32_t count, std::uint32_t maximum);

// Gives back a cell that no thread waits for.
void give_cell(SignalCell *cell) noexcept;

enum class Taken { kYes, kNo, kUnknown };

// Ends a wait for one object at once, if the object is signalled. Returns kUnknown when the caller
// has to take the lock to know: threads wait, or the tag is not the cell's any more.
inline Taken try_take(SignalCell &cell, SignalTag tag) noexcept {
    std::uint64_t word = cell.word.load(std::memory_order_acquire);
    for (;;) {
        if (tag_of(word) != tag || (word & kWaited) != 0) {
            return Taken::kUnknown;
        }
        if (count_of(word) == 0) {
            return Taken::kNo;
        }
        if (!is_taken_by_a_wait(tag) ||
            cell.word.compare_exchange_weak(word, word - 1, std::memory_order_acq_rel,
                                            std::memory_order_acquire)) {
            return Taken::kYes;
        }
    }
}

// The locks of the cells: cell n has lock n % kCount. A thread locks several in ascending order.
class Stripes {
public:
    static constexpr unsigned kCount = 16;
    using Mask = std::uint32_t;  // a bit for each lock
    static constexpr Mask kAll = (1u << kCount) - 1;

    static Mask MaskOf(const SignalCell &cell) {
        return 1u << (reinterpret_cast<std::uintptr_t>(&cell) / sizeof(SignalCell) % kCount);
    }

    void Lock(Mask mask);
    void Unlock(Mask mask);
    void Renew();  // in the child of a fork

private:
    std::array<std::mutex, kCount> m_locks;
};

Stripes &stripes();

class StripeLock {
public:
    explicit StripeLock(Stripes::Mask mask) : m_mask(mask) { stripes().Lock(mask); }
    ~StripeLock() { stripes().Unlock(m_mask); }
    StripeLock(const StripeLock &) = delete;
    StripeLock &operator=(const StripeLock &) = delete;

private:
    const Stripes::Mask m_mask;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_SYNC_SIGNAL_CELL_H
