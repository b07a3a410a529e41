#include "ostrel/platform/registry/key_handles.h"

#include <utility>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/registry/value_answers.h"
#include "ostrel/platform/registry/watch.h"

namespace ostrel_platform {
namespace {

// handle = generation << 32 | index << 2 | 2. The generation is from 1 to 2^31 - 1, after which the
// slot retires, so no handle looks like a root and none repeats.
constexpr std::uint64_t kMaxGeneration = (std::uint64_t{1} << 31) - 1;

struct Parts {
    std::uint64_t generation;
    std::uint64_t index;  // UINT64_MAX for a value that is no handle
};

Parts parts_of(HKEY handle) noexcept {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    return {value >> 32, (value & 3) == 2 ? (value & 0xFFFFFFFF) >> 2 : UINT64_MAX};
}

struct Root {
    StoreKind store;
    std::int64_t id;  // 0 for a root that does not exist here
};

// In the order of the roots' numbers from HKEY_CLASSES_ROOT on.
constexpr Root kRoots[] = {
    {StoreKind::kMachine, kClassesId}, {StoreKind::kUser, kCurrentUserId},
    {StoreKind::kMachine, kRootId},    {StoreKind::kUser, kRootId},
    {StoreKind::kMachine, 0},          {StoreKind::kMachine, kCurrentConfigId},
};

// Returns the root, or null for a value that is none.
const Root *root_of(HKEY handle) noexcept {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    const std::uintptr_t number = (value & 0xFFFFFFFF) - 0x80000000;
    const bool is_root = (value >> 32 == 0xFFFFFFFF || value >> 32 == 0) &&
                         number < std::size(kRoots) && kRoots[number].id != 0;
    return is_root ? &kRoots[number] : nullptr;
}

KeyPointer key_of_root(const Root &root) {
    auto key = std::make_shared<Key>();
    key->store = &Store::Of(root.store);
    key->id = root.id;
    const FirstKey *const keys = root.store == StoreKind::kMachine ? kMachineKeys : kUserKeys;
    for (std::int64_t id = keys[root.id - 1].parent; id != 0; id = keys[id - 1].parent) {
        key->ancestors.insert(key->ancestors.begin(), id);
    }
    return key;
}

constexpr DWORD kAllAccess = KEY_ALL_ACCESS;

// A fork takes all locks of the room. Connections to a database must not be in both processes, so
// they are closed before it.
constexpr ForkOperations kForkOfRoom = {
    [](void *mutex) {
        Store::Of(StoreKind::kMachine).LockForFork();
        Store::Of(StoreKind::kUser).LockForFork();
        lock_key_cache();
        value_cache().LockAll();
        static_cast<std::mutex *>(mutex)->lock();
        Watch::Mutex().lock();
    },
    [](void *mutex) {
        Watch::Mutex().unlock();
        static_cast<std::mutex *>(mutex)->unlock();
        value_cache().UnlockAll();
        unlock_key_cache();
        Store::Of(StoreKind::kUser).UnlockForFork();
        Store::Of(StoreKind::kMachine).UnlockForFork();
    },
    [](void *mutex) {
        std::construct_at(&Watch::Mutex());
        Watch::ForgetThread();
        std::construct_at(static_cast<std::mutex *>(mutex));
        value_cache().RenewAll();
        renew_key_cache();
        Store::Of(StoreKind::kUser).RenewAfterFork();
        Store::Of(StoreKind::kMachine).RenewAfterFork();
    },
};

}  // namespace

KeyHandles &KeyHandles::Instance() {
    // Never destroyed: static destructors close keys too.
    static auto *const handles = [] {
        auto created = std::make_unique<KeyHandles>();
        // What a fork locks has to exist before it, since memory may be short then.
        Store::Of(StoreKind::kMachine);
        make_key_cache();
        value_cache();
        Watch::MakeThread();
        register_fork_lock(ForkOrder::kRegistry, &created->m_mutex, kForkOfRoom);
        return created.release();
    }();
    return *handles;
}

bool KeyHandles::IsRoot(HKEY handle) noexcept {
    return root_of(handle) != nullptr;
}

HKEY KeyHandles::Open(KeyPointer key, DWORD access) {
    const std::lock_guard lock(m_mutex);
    std::uint32_t index = m_firstFree;
    if (index != kNone) {
        m_firstFree = At(index).next_free;
        m_lastFree = m_firstFree == kNone ? kNone : m_lastFree;
    } else {
        index = m_count;
        if (index == kChunk * kMaxChunks) {
            throw StoreFailure{ERROR_NO_SYSTEM_RESOURCES};
        }
        if (index % kChunk == 0) {
            m_chunks[index / kChunk].store(new Slot[kChunk], std::memory_order_release);
        }
        ++m_count;
    }
    Slot &slot = At(index);
    const std::uint64_t generation = (slot.state.load(std::memory_order_relaxed) >> 1) + 1;
    slot.store.store(key->store, std::memory_order_relaxed);
    slot.id.store(key->id, std::memory_order_relaxed);
    slot.access.store(access, std::memory_order_relaxed);
    slot.key = std::move(key);
    slot.state.store(generation << 1 | 1, std::memory_order_release);
    return reinterpret_cast<HKEY>(generation << 32 | std::uint64_t{index} << 2 | 2);
}

KeyHandles::Slot *KeyHandles::SlotOf(HKEY handle) const noexcept {
    const Parts parts = parts_of(handle);
    if (parts.index >= m_count) {
        return nullptr;
    }
    Slot &slot = At(static_cast<std::uint32_t>(parts.index));
    const bool is_open = slot.state.load(std::memory_order_relaxed) == (parts.generation << 1 | 1);
    return is_open ? &slot : nullptr;
}

bool KeyHandles::Close(HKEY handle, std::shared_ptr<Watch> *watch) {
    KeyPointer key;  // released outside the lock
    const std::lock_guard lock(m_mutex);
    Slot *const slot = SlotOf(handle);
    if (slot == nullptr) {
        return false;
    }
    const Parts parts = parts_of(handle);
    slot->state.store(parts.generation << 1, std::memory_order_release);
    key = std::move(slot->key);
    *watch = std::move(slot->watch);
    slot->key = nullptr;
    slot->watch = nullptr;
    slot->values.page = slot->subkeys.page = 0;
    slot->next_free = kNone;
    if (parts.generation < kMaxGeneration) {
        const auto index = static_cast<std::uint32_t>(parts.index);
        (m_lastFree != kNone ? At(m_lastFree).next_free : m_firstFree) = index;
        m_lastFree = index;
    }
    return true;
}

bool KeyHandles::View(HKEY handle, KeyView *view) const noexcept {
    const Parts parts = parts_of(handle);
    if (parts.index < kChunk * kMaxChunks) {
        const Slot *const chunk = m_chunks[parts.index / kChunk].load(std::memory_order_acquire);
        if (chunk == nullptr) {
            return false;
        }
        const Slot &slot = chunk[parts.index % kChunk];
        const std::uint64_t open = parts.generation << 1 | 1;
        if (slot.state.load(std::memory_order_acquire) != open) {
            return false;
        }
        view->store = slot.store.load(std::memory_order_acquire);
        view->id = slot.id.load(std::memory_order_acquire);
        view->access = slot.access.load(std::memory_order_acquire);
        return slot.state.load(std::memory_order_relaxed) == open;
    }
    const Root *const root = root_of(handle);
    if (root == nullptr) {
        return false;
    }
    *view = {&Store::Of(root->store), root->id, kAllAccess};
    return true;
}

bool KeyHandles::Find(HKEY handle, OpenKey *open) const {
    if (const Root *const root = root_of(handle)) {
        static const auto *const keys = [] {
            auto *const created = new std::array<KeyPointer, std::size(kRoots)>;
            for (std::size_t i = 0; i < std::size(kRoots); ++i) {
                (*created)[i] = kRoots[i].id != 0 ? key_of_root(kRoots[i]) : nullptr;
            }
            return created;
        }();
        *open = {(*keys)[static_cast<std::size_t>(root - kRoots)], kAllAccess, true};
        return true;
    }
    const std::lock_guard lock(m_mutex);
    const Slot *const slot = SlotOf(handle);
    if (slot == nullptr) {
        return false;
    }
    *open = {slot->key, slot->access.load(std::memory_order_relaxed), false};
    return true;
}

std::shared_ptr<Watch> KeyHandles::WatchOf(HKEY handle, const std::shared_ptr<Watch> &candidate) {
    const std::lock_guard lock(m_mutex);
    Slot *const slot = SlotOf(handle);
    if (slot != nullptr && slot->watch == nullptr) {
        slot->watch = candidate;
    }
    return slot != nullptr ? slot->watch : nullptr;
}

Cursor KeyHandles::TakeCursor(HKEY handle, bool of_values) noexcept {
    const std::lock_guard lock(m_mutex);
    Slot *const slot = SlotOf(handle);
    return slot != nullptr ? std::exchange(of_values ? slot->values : slot->subkeys, Cursor{})
                           : Cursor{};
}

void KeyHandles::PutCursor(HKEY handle, bool of_values, Cursor cursor) noexcept {
    const std::lock_guard lock(m_mutex);
    if (Slot *const slot = SlotOf(handle)) {
        (of_values ? slot->values : slot->subkeys) = std::move(cursor);
    }
}

}  // namespace ostrel_platform
