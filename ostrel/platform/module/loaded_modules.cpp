#include "ostrel/platform/module/loaded_modules.h"

#include <dlfcn.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"

namespace ostrel_platform {

LoadedModules &LoadedModules::Instance() {
    static NeverDestroyed<LoadedModules> table;  // static destructors free modules too
    [[maybe_unused]] static const bool registered =
        (register_fork_lock(ForkOrder::kModules, &(*table).m_mutex), true);
    return *table;
}

void LoadedModules::Add(void *address, HostObject object, std::string path) {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_modules.try_emplace(address, Module{std::move(path), object.get()}).first;
    ++entry->second.loads;
    static_cast<void>(object.release());
}

HostObject LoadedModules::Take(void *address) noexcept {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_modules.find(address);
    if (entry == m_modules.end()) {
        return nullptr;
    }
    HostObject object(entry->second.object);
    if (--entry->second.loads == 0) {
        m_modules.erase(entry);
    }
    return object;
}

std::string LoadedModules::FindPath(const std::vector<std::string> &files) const {
    const std::lock_guard lock(m_mutex);
    for (const auto &[address, module] : m_modules) {
        const std::string_view path = module.path;
        const std::string_view name = path.substr(path.rfind('/') + 1);
        if (!name.empty() && std::find(files.begin(), files.end(), name) != files.end()) {
            return module.path;
        }
    }
    return {};
}

void LoadedModules::AddFile(void *address, std::size_t size) {
    const std::lock_guard lock(m_mutex);
    m_files[address] = size;
}

std::size_t LoadedModules::TakeFile(void *address) noexcept {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_files.find(address);
    if (entry == m_files.end()) {
        return 0;
    }
    const std::size_t size = entry->second;
    m_files.erase(entry);
    return size;
}

bool LoadedModules::HasFile(const void *address) const noexcept {
    const std::lock_guard lock(m_mutex);
    return m_files.count(address) != 0;
}

bool is_load_address(const void *address) noexcept {
    Dl_info info;
    return address != nullptr && dladdr(address, &info) != 0 && info.dli_fbase == address;
}

}  // namespace ostrel_platform
