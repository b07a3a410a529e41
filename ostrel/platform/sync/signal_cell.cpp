#include "ostrel/platform/sync/signal_cell.h"

#include <memory>

#include "ostrel/platform/base/fork_lock.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kBlock = 64;

struct Block {
    std::array<SignalCell, kBlock> cells;
    Block *next = nullptr;
};

// Never destroyed: static destructors wait and close handles too.
struct Room {
    std::mutex mutex;  // guards the two lists; taken before the stripes
    SignalCell *free = nullptr;
    Block *blocks = nullptr;
    Stripes stripes;
};

void lock_all(void *memory) {
    auto *const room = static_cast<Room *>(memory);
    room->mutex.lock();
    room->stripes.Lock(Stripes::kAll);
}

void unlock_all(void *memory) {
    auto *const room = static_cast<Room *>(memory);
    room->stripes.Unlock(Stripes::kAll);
    room->mutex.unlock();
}

// The threads that wait do not exist in the child, and their nodes lie on stacks that the host may
// use for other threads.
void renew_all(void *memory) {
    auto *const room = static_cast<Room *>(memory);
    std::construct_at(&room->mutex);
    room->stripes.Renew();
    for (Block *block = room->blocks; block != nullptr; block = block->next) {
        for (SignalCell &cell : block->cells) {
            cell.first = nullptr;
            cell.last = nullptr;
            cell.word.fetch_and(~kWaited, std::memory_order_relaxed);
        }
    }
}

constexpr ForkOperations kRoomOperations = {lock_all, unlock_all, renew_all};

Room &room() {
    static Room *const created = [] {
        auto *const made = new Room;
        register_fork_lock(ForkOrder::kSignals, made, kRoomOperations);
        return made;
    }();
    return *created;
}

constexpr SignalTag kUse = 4;  // the tag's bits above the kind
constexpr SignalTag kLastUse = ~SignalTag{3};

}  // namespace

void Stripes::Lock(Mask mask) {
    for (; mask != 0; mask &= mask - 1) {
        m_locks[static_cast<unsigned>(__builtin_ctz(mask))].lock();
    }
}

void Stripes::Unlock(Mask mask) {
    for (; mask != 0; mask &= mask - 1) {
        m_locks[static_cast<unsigned>(__builtin_ctz(mask))].unlock();
    }
}

void Stripes::Renew() {
    for (std::mutex &lock : m_locks) {
        std::construct_at(&lock);
    }
}

Stripes &stripes() {
    return room().stripes;
}

SignalCell *take_cell(SignalKind kind, std::uint32_t count, std::uint32_t maximum) {
    Room &cells = room();
    const std::lock_guard lock(cells.mutex);
    if (cells.free == nullptr) {
        auto *const block = new Block;
        block->next = cells.blocks;
        cells.blocks = block;
        for (SignalCell &cell : block->cells) {
            cell.next_free = cells.free;
            cells.free = &cell;
        }
    }
    SignalCell *const cell = cells.free;
    cells.free = cell->next_free;
    const SignalTag tag = (tag_of(cell->word.load(std::memory_order_relaxed)) & ~SignalTag{3}) |
                          static_cast<SignalTag>(kind);
    cell->maximum.store(maximum, std::memory_order_relaxed);
    cell->word.store(std::uint64_t{tag} << 32 | count, std::memory_order_release);
    return cell;
}

void give_cell(SignalCell *cell) noexcept {
    Room &cells = room();
    const std::lock_guard lock(cells.mutex);
    SignalTag tag = 0;
    {
        // A thread that has ended the last wait may still be at work under this lock.
        const StripeLock stripe(Stripes::MaskOf(*cell));
        tag = tag_of(cell->word.load(std::memory_order_relaxed)) & ~SignalTag{3};
        cell->word.exchange(std::uint64_t{tag + kUse} << 32, std::memory_order_acq_rel);
    }
    if (tag != kLastUse) {  // no tag repeats
        cell->next_free = cells.free;
        cells.free = cell;
    }
}

}  // namespace ostrel_platform
