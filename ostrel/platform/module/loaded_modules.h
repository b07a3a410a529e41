#ifndef OSTREL_PLATFORM_MODULE_LOADED_MODULES_H
#define OSTREL_PLATFORM_MODULE_LOADED_MODULES_H

// Internal. What LoadLibraryExW has loaded and mapped: an address that FreeLibrary gets is looked
// up here, so that it takes back nothing but what the layer has opened.

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ostrel/platform/module/host_object.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The table of the process.
//
// Threads: every call may run on any thread. The lock is held for work on the table alone, never
// while the host's loader and thereby code of a module runs.
// Errors: the calls that add throw std::bad_alloc, after which the table is as before.
class LoadedModules {
public:
    static LoadedModules &Instance();

    // Counts one load of the object at `address`, which was opened from `path` (empty when the
    // host found the file). The table owns that opening of the object from then on.
    void Add(void *address, HostObject object, std::string path);

    // Takes one load of the module at `address` back and returns its opening, which the caller
    // closes. Returns null when the table counts none.
    HostObject Take(void *address) noexcept;

    // Returns the path of a module with one of these names of files, which this table has loaded by
    // its path, or an empty text.
    std::string FindPath(const std::vector<std::string> &files) const;

    // The same for files that are mapped: `address` is where the mapping of `size` bytes begins.
    void AddFile(void *address, std::size_t size);
    // Forgets a mapping and returns its size; 0 when there is none.
    std::size_t TakeFile(void *address) noexcept;
    bool HasFile(const void *address) const noexcept;

private:
    struct Module {
        std::string path;
        void *object;           // the same for all openings
        std::size_t loads = 0;  // how many openings the table owns
    };

    mutable std::mutex m_mutex;
    std::map<void *, Module> m_modules;
    std::map<const void *, std::size_t> m_files;
};

// The handle of a file that is mapped has the lowest bit set, which no load address has.
inline constexpr std::uintptr_t kFileBit = 1;

inline bool is_file_handle(HMODULE module) noexcept {
    return (reinterpret_cast<std::uintptr_t>(module) & kFileBit) != 0;
}

inline HMODULE file_handle(void *address) noexcept {
    return reinterpret_cast<HMODULE>(reinterpret_cast<std::uintptr_t>(address) | kFileBit);
}

inline void *address_of_file(HMODULE handle) noexcept {
    return reinterpret_cast<void *>(reinterpret_cast<std::uintptr_t>(handle) & ~kFileBit);
}

// Whether a program or shared library is loaded at the address, whoever has loaded it.
bool is_load_address(const void *address) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_LOADED_MODULES_H
