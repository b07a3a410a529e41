// The waits, and the signals that end them.
//
// A thread that has to wait enters a node into the list of each cell and sleeps on a futex of its
// own, or in poll when one of its objects has a descriptor. A signal ends the wait by writing the
// result into the thread's Waiter, on behalf of the thread: nobody can take the signal in between.

#include "ostrel/platform/sync/waitable.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

constexpr std::uint32_t kPending = 0xFFFFFFFF;
constexpr std::size_t kMaxNodes = 65;  // 64 objects and the one that stops the wait

}  // namespace

struct Waiter;

// The wait of a thread for one cell, linked into the cell's list. All fields under the lock of the
// cell's stripe.
struct WaitNode {
    WaitNode *previous;
    WaitNode *next;
    SignalCell *cell;
    Waiter *waiter;
    std::uint32_t result;  // of the wait that this cell ends
    bool suffices;         // ends the wait alone, in a wait for all too
    bool linked;
};

// A thread that waits. It returns under the lock of all its cells, so that whoever holds one of the
// locks may use it; except when it has one node and sleeps on the futex. Then the signal that has
// set the result must not touch it any more.
struct Waiter {
    std::atomic<std::uint32_t> result{kPending};  // the futex
    int wake_descriptor = -1;                     // an eventfd, when the thread sleeps in poll
    std::span<WaitNode> nodes;
};

namespace {

const std::uint32_t *futex_of(const Waiter &waiter) {
    static_assert(sizeof(waiter.result) == sizeof(std::uint32_t));
    return reinterpret_cast<const std::uint32_t *>(&waiter.result);
}

// Threads to wake after the locks are released, as many as fit.
class WakeList {
public:
    ~WakeList() {
        for (std::size_t i = 0; i < m_count; ++i) {
            futex_wake(m_words[i], 1);
        }
    }
    void Add(const std::uint32_t *word) {
        if (m_count == m_words.size()) {
            futex_wake(word, 1);
        } else {
            m_words[m_count++] = word;
        }
    }

private:
    std::array<const std::uint32_t *, 32> m_words;
    std::size_t m_count = 0;
};

// The functions below run under the lock of the cell's stripe, with kWaited set in the word.

void link(WaitNode &node) {
    node.previous = node.cell->last;
    node.next = nullptr;
    (node.previous != nullptr ? node.previous->next : node.cell->first) = &node;
    node.cell->last = &node;
    node.linked = true;
}

void unlink(WaitNode &node) {
    (node.previous != nullptr ? node.previous->next : node.cell->first) = node.next;
    (node.next != nullptr ? node.next->previous : node.cell->last) = node.previous;
    node.linked = false;
}

// Gives the word free for changes without the lock, when nobody waits any more.
void settle(SignalCell &cell) {
    if (cell.first == nullptr) {
        cell.word.fetch_and(~kWaited, std::memory_order_release);
    }
}

bool is_signalled(const SignalCell &cell) {
    return count_of(cell.word.load(std::memory_order_acquire)) > 0;
}

void take(SignalCell &cell) {
    const std::uint64_t word = cell.word.load(std::memory_order_relaxed);
    if (is_taken_by_a_wait(tag_of(word))) {
        cell.word.store(word - 1, std::memory_order_release);
    }
}

// Sets the result of a wait and has its thread woken. Returns false when the wait has a result.
bool finish(Waiter &waiter, std::uint32_t result, WakeList &wakes) {
    const std::uint32_t *const word = futex_of(waiter);
    const int descriptor = waiter.wake_descriptor;
    std::uint32_t expected = kPending;
    if (!waiter.result.compare_exchange_strong(expected, result, std::memory_order_acq_rel)) {
        return false;
    }
    if (descriptor >= 0) {
        eventfd_write(descriptor, 1);  // its owner needs the lock to close it
    } else {
        wakes.Add(word);
    }
    return true;
}

// Ends a wait for all if all of its cells are signalled; under the locks of all stripes.
void finish_all(Waiter &waiter, WakeList &wakes) {
    const auto lacks = [](const WaitNode &node) {
        return !node.suffices && !is_signalled(*node.cell);
    };
    if (std::none_of(waiter.nodes.begin(), waiter.nodes.end(), lacks) && finish(waiter, 0, wakes)) {
        for (const WaitNode &node : waiter.nodes) {
            if (!node.suffices) {
                take(*node.cell);
            }
        }
    }
}

// Ends waits by the signal of a cell, in the order in which they began. Returns false when a wait
// for all may have to end, which needs the locks of all stripes.
bool end_waits(SignalCell &cell, bool has_all_locks, WakeList &wakes) {
    WaitNode *next = nullptr;
    for (WaitNode *node = cell.first; node != nullptr && is_signalled(cell); node = next) {
        next = node->next;
        if (node->suffices) {
            Waiter &waiter = *node->waiter;
            const std::uint32_t result = node->result;
            unlink(*node);
            if (finish(waiter, result, wakes)) {
                take(cell);
            }
        } else if (!has_all_locks) {
            return false;
        } else {
            finish_all(*node->waiter, wakes);
        }
    }
    return true;
}

// Adds to a count without the lock. Returns false when somebody waits.
bool add_unwaited(SignalCell &cell, SignalTag tag, std::uint32_t count, bool saturates,
                  std::uint32_t *previous, Added *added) {
    std::uint64_t word = cell.word.load(std::memory_order_acquire);
    for (;;) {
        const std::uint32_t maximum = cell.maximum.load(std::memory_order_acquire);
        const std::uint32_t before = count_of(word);
        const bool fits = count <= maximum - before;
        if (tag_of(word) != tag) {
            *added = Added::kStale;
            return true;
        }
        if ((word & kWaited) != 0) {
            return false;
        }
        // The swap also shows that `maximum` is of this object, and publishes what the caller did
        // when the count stays as it is.
        const std::uint64_t after = fits        ? word + count
                                    : saturates ? word - before + maximum
                                                : word;
        if (cell.word.compare_exchange_weak(word, after, std::memory_order_acq_rel,
                                            std::memory_order_acquire)) {
            *added = fits || saturates ? Added::kYes : Added::kAboveMaximum;
            if (previous != nullptr && *added == Added::kYes) {
                *previous = before;
            }
            return true;
        }
    }
}

// The same under the lock, while somebody waits.
Added add_waited(SignalCell &cell, std::uint32_t count, bool saturates, std::uint32_t *previous) {
    const std::uint64_t word = cell.word.load(std::memory_order_relaxed);
    const std::uint32_t maximum = cell.maximum.load(std::memory_order_relaxed);
    const std::uint32_t before = count_of(word);
    const bool fits = count <= maximum - before;
    if (!fits && !saturates) {
        return Added::kAboveMaximum;
    }
    if (previous != nullptr) {
        *previous = before;
    }
    cell.word.store(fits ? word + count : word - before + maximum, std::memory_order_release);
    return Added::kYes;
}

// The objects of a wait that the host signals through descriptors.
class Polled {
public:
    explicit Polled(std::span<const std::shared_ptr<Waitable>> objects) {
        for (const auto &object : objects) {
            if (object->Descriptor() >= 0 && !object->IsSignalled()) {
                m_objects[m_count++] = object.get();
            }
        }
    }

    bool IsEmpty() const { return m_count == 0; }

    // Waits until one of the descriptors or `wake` is readable, and signals the objects of those
    // that are. Returns 0 or an errno.
    int Poll(int wake, Deadline deadline) {
        std::array<pollfd, kMaxNodes> polls;
        for (std::size_t i = 0; i < m_count; ++i) {
            polls[i] = {m_objects[i]->Descriptor(), POLLIN, 0};
        }
        polls[m_count] = {wake, POLLIN, 0};
        const std::int64_t left =
            deadline == 0 ? 0 : std::max<std::int64_t>(deadline - monotonic_now(), 0);
        const timespec timeout{left / 1'000'000'000, left % 1'000'000'000};
        if (ppoll(polls.data(), m_count + 1, deadline == kNoDeadline ? nullptr : &timeout,
                  nullptr) < 0) {
            return errno == EINTR ? 0 : errno;
        }
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_count; ++i) {
            if ((polls[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                m_objects[i]->Signal();
            } else if ((polls[i].revents & POLLNVAL) == 0) {  // closed by someone: never readable
                m_objects[kept++] = m_objects[i];
            }
        }
        m_count = kept;
        return 0;
    }

private:
    std::array<Waitable *, kMaxNodes> m_objects;
    std::size_t m_count = 0;
};

class Wait {
public:
    Wait(std::span<const std::shared_ptr<Waitable>> objects, bool all, const Waitable *stop)
        : m_objects(objects), m_all(all && objects.size() > 1), m_polled(objects) {
        std::uint32_t count = 0;
        for (const auto &object : objects) {
            Add(count, &object->Cell(), count, !m_all);
            ++count;
        }
        if (stop != nullptr) {
            Add(count++, &stop->Cell(), kStopped, true);
        }
        m_waiter.nodes = {m_nodes.data(), count};
    }

    std::uint32_t Run(Deadline deadline) {
        int error = m_polled.IsEmpty() ? 0 : m_polled.Poll(-1, 0);
        if (error == 0 && !m_polled.IsEmpty() && deadline != 0) {
            m_waiter.wake_descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
            error = m_waiter.wake_descriptor < 0 ? errno : 0;
        }
        if (error == 0 && !Begin(deadline != 0)) {
            error = Sleep(deadline);
            End();
        }
        if (m_waiter.wake_descriptor >= 0) {
            close(m_waiter.wake_descriptor);
        }
        const std::uint32_t result = Result();
        if (result == kPending && error != 0) {
            SetLastError(code_of_errno(error));
            return kNotWaited;
        }
        return result == kPending ? kTimedOut : result;
    }

private:
    void Add(std::size_t at, SignalCell *cell, std::uint32_t result, bool suffices) {
        m_nodes[at] = {nullptr, nullptr, cell, &m_waiter, result, suffices, false};
        m_mask |= Stripes::MaskOf(*cell);
    }

    std::uint32_t Result() const { return m_waiter.result.load(std::memory_order_acquire); }

    // Ends the wait if it can end now; otherwise enters the lists, if `waits`. Returns whether the
    // wait is over.
    bool Begin(bool waits) {
        const StripeLock lock(m_mask);
        for (const WaitNode &node : m_waiter.nodes) {
            node.cell->word.fetch_or(kWaited, std::memory_order_acq_rel);
        }
        const std::uint32_t result = TakeNow();
        m_waiter.result.store(result, std::memory_order_relaxed);
        const bool over = result != kPending || !waits;
        for (WaitNode &node : m_waiter.nodes) {
            if (over) {
                settle(*node.cell);
            } else {
                link(node);
            }
        }
        return over;
    }

    std::uint32_t TakeNow() {
        const auto objects = m_waiter.nodes.first(m_objects.size());
        if (objects.size() < m_waiter.nodes.size() && is_signalled(*m_waiter.nodes.back().cell)) {
            return kStopped;
        }
        const auto signalled = [](const WaitNode &node) { return is_signalled(*node.cell); };
        const auto found = std::find_if(objects.begin(), objects.end(), signalled);
        if (found == objects.end() ||
            (m_all && !std::all_of(objects.begin(), objects.end(), signalled))) {
            return kPending;
        }
        for (const WaitNode &node : m_all ? objects : std::span(&*found, 1)) {
            take(*node.cell);
        }
        return m_all ? 0 : found->result;
    }

    // Sleeps until the wait has a result or the deadline passes. Returns 0 or an errno.
    int Sleep(Deadline deadline) {
        while (Result() == kPending) {
            if (m_waiter.wake_descriptor < 0) {
                if (!futex_wait(futex_of(m_waiter), kPending, deadline)) {
                    return 0;
                }
                continue;
            }
            const int error = m_polled.Poll(m_waiter.wake_descriptor, deadline);
            if (error != 0 || (deadline != kNoDeadline && monotonic_now() >= deadline)) {
                return error;
            }
        }
        return 0;
    }

    // Leaves the lists; after that the result stays as it is.
    void End() {
        if (m_waiter.nodes.size() == 1 && m_waiter.wake_descriptor < 0 && Result() != kPending) {
            return;  // the signal has taken the node out of its list
        }
        const StripeLock lock(m_mask);
        for (WaitNode &node : m_waiter.nodes) {
            if (node.linked) {
                unlink(node);
            }
            settle(*node.cell);
        }
    }

    const std::span<const std::shared_ptr<Waitable>> m_objects;
    const bool m_all;
    Polled m_polled;
    Stripes::Mask m_mask = 0;
    Waiter m_waiter;
    std::array<WaitNode, kMaxNodes> m_nodes;
};

}  // namespace

void Waitable::Signal() noexcept {
    add_signal(*m_cell, m_tag, 1, true, nullptr);
}

HANDLE open_handle(std::shared_ptr<Waitable> object) {
    const HandleShortcut shortcut{&object->Cell(), object->Tag()};
    return reinterpret_cast<HANDLE>(
        HandleTable::Instance().Open(HandleKind::kObject, std::move(object), shortcut));
}

std::shared_ptr<Waitable> find_waitable(HANDLE handle) {
    auto object = std::dynamic_pointer_cast<Waitable>(HandleTable::Instance().Find(
        HandleKind::kObject, reinterpret_cast<std::uintptr_t>(handle)));
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return object;
}

std::shared_ptr<Waitable> find_event(HANDLE handle) {
    auto object = find_waitable(handle);
    if (object != nullptr && kind_of(object->Tag()) != SignalKind::kAutoEvent &&
        kind_of(object->Tag()) != SignalKind::kManualEvent) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return object;
}

Added add_signal(SignalCell &cell, SignalTag tag, std::uint32_t count, bool saturates,
                 std::uint32_t *previous) noexcept {
    Added added = Added::kYes;
    if (add_unwaited(cell, tag, count, saturates, previous, &added)) {
        return added;
    }
    Stripes::Mask mask = Stripes::MaskOf(cell);
    for (bool first = true;; first = false) {
        WakeList wakes;  // wakes after the unlock
        const StripeLock lock(mask);
        if (first) {
            if (add_unwaited(cell, tag, count, saturates, previous, &added)) {
                return added;
            }
            added = add_waited(cell, count, saturates, previous);
        }
        const bool done = added != Added::kYes || end_waits(cell, mask == Stripes::kAll, wakes);
        settle(cell);
        if (done) {
            return added;
        }
        mask = Stripes::kAll;
    }
}

bool clear_signal(SignalCell &cell, SignalTag tag) noexcept {
    const auto clear = [&](bool locked) {
        std::uint64_t word = cell.word.load(std::memory_order_relaxed);
        while (tag_of(word) == tag && (locked || (word & kWaited) == 0)) {
            if (cell.word.compare_exchange_weak(word, word & ~kCountMask,
                                                std::memory_order_acq_rel)) {
                return true;
            }
        }
        return false;
    };
    if (clear(false)) {
        return true;
    }
    const StripeLock lock(Stripes::MaskOf(cell));
    return clear(true);
}

std::uint32_t wait_for(std::span<const std::shared_ptr<Waitable>> objects, bool all,
                       const Waitable *stop, Deadline deadline) noexcept {
    return Wait(objects, all, stop).Run(deadline);
}

}  // namespace ostrel_platform
