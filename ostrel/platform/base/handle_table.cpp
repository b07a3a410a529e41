#include "ostrel/platform/base/handle_table.h"

#include <mutex>
#include <utility>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

// handle = (uses << 32 | index + 1) << 2. A slot retires after 2^29 uses, so that no handle
// repeats.
constexpr std::uint32_t kMaxUses = (1u << 29) - 1;

}  // namespace

HandleTable &HandleTable::Instance() {
    static NeverDestroyed<HandleTable> table;  // static destructors close handles too
    [[maybe_unused]] static const bool registered =
        (register_fork_lock(ForkOrder::kHandles, &(*table).m_mutex), true);
    return *table;
}

std::uintptr_t HandleTable::Open(HandleKind kind, std::shared_ptr<HandleObject> object) {
    const std::unique_lock lock(m_mutex);
    if (m_free.empty()) {
        m_free.reserve(m_slots.size() + 1);  // so that Close cannot fail
        m_slots.emplace_back();
        m_free.push_back(m_slots.size() - 1);
    }
    const std::size_t index = m_free.back();
    m_free.pop_back();
    Slot &slot = m_slots[index];
    slot.object = std::move(object);
    slot.kind = kind;
    return (static_cast<std::uintptr_t>(slot.uses) << 32 | (index + 1)) << 2;
}

std::size_t HandleTable::IndexOf(HandleKind kind, std::uintptr_t handle) const {
    const std::uintptr_t index = ((handle >> 2) & 0xFFFFFFFF) - 1;
    const bool open = (handle & 3) == 0 && index < m_slots.size() &&
                      m_slots[index].object != nullptr && m_slots[index].kind == kind &&
                      m_slots[index].uses == handle >> 34;
    return open ? index : m_slots.size();
}

std::shared_ptr<HandleObject> HandleTable::Find(HandleKind kind, std::uintptr_t handle) const {
    {
        const std::shared_lock lock(m_mutex);
        const std::size_t index = IndexOf(kind, handle);
        if (index < m_slots.size()) {
            return m_slots[index].object;
        }
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

bool HandleTable::Close(HandleKind kind, std::uintptr_t handle) {
    const NoCancellation uncancelled;
    std::shared_ptr<HandleObject> closed;  // released outside the lock
    {
        const std::unique_lock lock(m_mutex);
        const std::size_t index = IndexOf(kind, handle);
        if (index < m_slots.size()) {
            closed = std::move(m_slots[index].object);
            m_slots[index].object = nullptr;
            if (++m_slots[index].uses <= kMaxUses) {
                m_free.push_back(index);
            }
        }
    }
    if (closed == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return closed != nullptr;
}

}  // namespace ostrel_platform
