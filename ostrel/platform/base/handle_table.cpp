#include "ostrel/platform/base/handle_table.h"

#include <bit>
#include <mutex>
#include <numeric>
#include <utility>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

// handle = (uses << 32 | index + 1) << 2. A slot retires after 2^29 uses, so that no handle
// repeats.
constexpr std::uint32_t kMaxUses = (1u << 29) - 1;

// Block b has kFirstBlock << b slots and begins with index (kFirstBlock << b) - kFirstBlock.
constexpr std::size_t kFirstBlock = 64;

constexpr std::size_t block_of(std::size_t index) {
    return static_cast<std::size_t>(std::bit_width(index / kFirstBlock + 1)) - 1;
}

constexpr std::size_t begin_of(std::size_t block) {
    return (kFirstBlock << block) - kFirstBlock;
}

static_assert(block_of(63) == 0 && block_of(64) == 1 && block_of(191) == 1 && block_of(192) == 2);
static_assert(begin_of(1) == 64 && begin_of(2) == 192);

}  // namespace

HandleTable &HandleTable::Instance() {
    // Never destroyed: static destructors close handles too.
    static HandleTable *const table = [] {
        auto *const created = new HandleTable;
        register_fork_lock(ForkOrder::kHandles, &created->m_mutex);
        return created;
    }();
    return *table;
}

HandleTable::Slot *HandleTable::SlotOf(std::uintptr_t handle) const noexcept {
    const std::size_t index = ((handle >> 2) & 0xFFFFFFFF) - 1;
    const std::size_t block = block_of(index);
    if ((handle & 3) != 0 || block >= m_blocks.size()) {
        return nullptr;
    }
    Slot *const slots = m_blocks[block].load(std::memory_order_acquire);
    return slots != nullptr ? slots + (index - begin_of(block)) : nullptr;
}

HandleTable::Slot *HandleTable::OpenSlot(HandleKind kind, std::uintptr_t handle) const noexcept {
    Slot *const slot = SlotOf(handle);
    const bool open = slot != nullptr && slot->object != nullptr && slot->kind == kind &&
                      slot->uses == handle >> 34;
    return open ? slot : nullptr;
}

void HandleTable::AddBlock() {
    const std::size_t block = block_of(m_count);
    if (block >= m_blocks.size()) {
        throw std::bad_alloc();
    }
    const std::size_t size = kFirstBlock << block;
    m_free.reserve(m_count + size);  // so that Close cannot fail
    m_blocks[block].store(new Slot[size], std::memory_order_release);
    m_free.resize(size);
    std::iota(m_free.rbegin(), m_free.rend(), static_cast<std::uint32_t>(m_count));
    m_count += size;
}

std::uintptr_t HandleTable::Open(HandleKind kind, std::shared_ptr<HandleObject> object,
                                 HandleShortcut shortcut) {
    const std::unique_lock lock(m_mutex);
    if (m_free.empty()) {
        AddBlock();
    }
    const std::uintptr_t number = std::uintptr_t{m_free.back()} + 1;
    m_free.pop_back();
    Slot &slot = *SlotOf(number << 2);
    slot.object = std::move(object);
    slot.kind = kind;
    const std::uintptr_t handle = (std::uintptr_t{slot.uses} << 32 | number) << 2;
    slot.memory.store(shortcut.memory, std::memory_order_release);
    slot.tag.store(shortcut.tag, std::memory_order_release);
    slot.handle.store(handle, std::memory_order_release);
    return handle;
}

std::shared_ptr<HandleObject> HandleTable::Find(HandleKind kind, std::uintptr_t handle) const {
    {
        const std::shared_lock lock(m_mutex);
        const Slot *const slot = OpenSlot(kind, handle);
        if (slot != nullptr) {
            return slot->object;
        }
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

HandleShortcut HandleTable::FindShortcut(std::uintptr_t handle) const noexcept {
    const Slot *const slot = SlotOf(handle);
    if (slot == nullptr || slot->handle.load(std::memory_order_acquire) != handle) {
        return {};
    }
    // Each load that meets a later handle's value also makes the change of `handle` visible.
    const HandleShortcut found{slot->memory.load(std::memory_order_acquire),
                               slot->tag.load(std::memory_order_acquire)};
    return slot->handle.load(std::memory_order_relaxed) == handle ? found : HandleShortcut{};
}

bool HandleTable::Close(HandleKind kind, std::uintptr_t handle) {
    std::shared_ptr<HandleObject> closed;  // released outside the lock
    {
        const std::unique_lock lock(m_mutex);
        Slot *const slot = OpenSlot(kind, handle);
        if (slot != nullptr) {
            closed = std::move(slot->object);
            slot->object = nullptr;
            slot->handle.store(0, std::memory_order_release);
            if (++slot->uses <= kMaxUses) {
                m_free.push_back(static_cast<std::uint32_t>(((handle >> 2) & 0xFFFFFFFF) - 1));
            }
        }
    }
    if (closed == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return closed != nullptr;
}

}  // namespace ostrel_platform
