#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/program_folder.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/module/built_in_module.h"
#include "ostrel/platform/module/elf_object.h"
#include "ostrel/platform/module/find_module.h"
#include "ostrel/platform/module/host_object.h"
#include "ostrel/platform/module/loaded_modules.h"

namespace ostrel_platform {
namespace {

constexpr int kMode = RTLD_NOW | RTLD_LOCAL;

// Opens the libraries that an object needs and that lie in a folder, those that they need first.
// The host's loader then takes these, by their names, for what the object needs.
class NeededObjects {
public:
    explicit NeededObjects(std::string folder) : m_folder(std::move(folder)) {}

    // Returns 0 or an error code. Leaves to the host's rules what the folder does not have.
    DWORD Open(const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            if (name.find('/') != name.npos || !m_seen.insert(name).second) {
                continue;
            }
            if (HostObject loaded = find_host_object(name.c_str())) {
                m_objects.push_back(std::move(loaded));
            } else if (const DWORD code = OpenInFolder(m_folder + name)) {
                return code;
            }
        }
        return ERROR_SUCCESS;
    }

private:
    DWORD OpenInFolder(const std::string &path) {
        HostDescriptor file;
        struct stat facts;
        std::vector<std::string> names;
        if (open_module_file(path, &file, &facts) != ERROR_SUCCESS ||
            read_object(file.Get(), static_cast<std::uint64_t>(facts.st_size), &names) !=
                ERROR_SUCCESS) {
            return ERROR_SUCCESS;
        }
        file = HostDescriptor();
        if (const DWORD code = Open(names)) {
            return code;
        }
        // Not RTLD_NOW: a symbol may be the object's that needs this one.
        HostObject object;
        const DWORD code = open_host_object(path.c_str(), RTLD_LAZY | RTLD_LOCAL, &object);
        if (code == ERROR_SUCCESS) {
            m_objects.push_back(std::move(object));
        }
        return code;
    }

    std::string m_folder;
    std::set<std::string> m_seen;
    std::vector<HostObject> m_objects;
};

// Whether the host's loader would replace a part of a path, and so load another file.
bool has_loader_token(std::string_view path) {
    for (std::size_t at = 0; (at = path.find('$', at)) != path.npos;) {
        const std::string_view rest = path.substr(++at);
        const std::string_view token = rest.substr(rest.starts_with('{') ? 1 : 0);
        if (token.starts_with("ORIGIN") || token.starts_with("LIB") ||
            token.starts_with("PLATFORM")) {
            return true;
        }
    }
    return false;
}

// Loads the module in a file. Returns 0 or an error code.
DWORD load_file(const std::string &path, DWORD flags, HostObject *object) {
    if (has_loader_token(path)) {
        return ERROR_BAD_PATHNAME;
    }
    HostDescriptor file;
    struct stat facts;
    if (const DWORD code = open_module_file(path, &file, &facts)) {
        return code;
    }
    const bool needs_folder = (flags & LOAD_WITH_ALTERED_SEARCH_PATH) != 0;
    std::vector<std::string> needed;
    if (const DWORD code = read_object(file.Get(), static_cast<std::uint64_t>(facts.st_size),
                                       needs_folder ? &needed : nullptr)) {
        return code;
    }
    file = HostDescriptor();
    NeededObjects objects(path.substr(0, path.rfind('/') + 1));
    if (const DWORD code = objects.Open(needed)) {
        return code;
    }
    return open_host_object(path.c_str(), kMode, object);
}

// Finds a module that is loaded, by the name of its file.
HostObject find_loaded(const std::vector<std::string> &files) {
    for (const std::string &file : files) {
        if (HostObject object = find_host_object(file.c_str())) {
            return object;
        }
    }
    const std::string path = LoadedModules::Instance().FindPath(files);
    return path.empty() ? nullptr : find_host_object(path.c_str());
}

DWORD load_by_host(const std::vector<std::string> &files, HostObject *object) {
    for (const std::string &file : files) {
        const DWORD code = open_host_object(file.c_str(), kMode, object);
        if (code == ERROR_SUCCESS || !is_missing_by_loader(file)) {
            return code;
        }
    }
    return ERROR_MOD_NOT_FOUND;
}

// Loads a module to run. Stores the path of a file that was found here.
DWORD load_object(const WCHAR *name, DWORD flags, HostObject *object, std::string *path) {
    ModuleName parsed;
    if (const DWORD code = parse_module_name(name, &parsed)) {
        return code;
    }
    if (parsed.is_path) {
        const DWORD code = find_in_folder(parsed.folder, parsed.files, path);
        return code != ERROR_SUCCESS ? code : load_file(*path, flags, object);
    }
    *object = find_loaded(parsed.files);
    if (*object) {
        return ERROR_SUCCESS;
    }
    const std::string own = program_folder();
    if (!own.empty() && find_in_folder(own, parsed.files, path) == ERROR_SUCCESS) {
        return load_file(*path, flags, object);
    }
    return load_by_host(parsed.files, object);
}

DWORD load_module(const WCHAR *name, DWORD flags, HMODULE *module) {
    *module = load_built_in(name);
    if (*module != nullptr) {
        return ERROR_SUCCESS;
    }
    HostObject object;
    std::string path;
    if (const DWORD code = load_object(name, flags, &object, &path)) {
        return code;
    }
    void *const address = load_address_of(object);
    if (address == nullptr) {
        return ERROR_BAD_EXE_FORMAT;
    }
    LoadedModules::Instance().Add(address, std::move(object), std::move(path));
    *module = static_cast<HMODULE>(address);
    return ERROR_SUCCESS;
}

DWORD map_module(const WCHAR *name, HMODULE *module) {
    std::string path;
    HostDescriptor file;
    struct stat facts;
    if (const DWORD code = find_module(name, &path)) {
        return code;
    }
    if (const DWORD code = open_module_file(path, &file, &facts)) {
        return code;
    }
    const auto size = static_cast<std::size_t>(facts.st_size);
    if (size == 0) {
        return ERROR_BAD_EXE_FORMAT;
    }
    void *const address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.Get(), 0);
    if (address == MAP_FAILED) {
        return code_of_errno(errno);
    }
    try {
        LoadedModules::Instance().AddFile(address, size);
    } catch (...) {
        munmap(address, size);
        throw;
    }
    *module = file_handle(address);
    return ERROR_SUCCESS;
}

// Opens a module that is loaded, by whomever.
HostObject open_loaded(HMODULE module) {
    if (module == nullptr) {
        return find_host_object(nullptr);
    }
    Dl_info info;
    link_map *map = nullptr;
    if (!is_load_address(module) ||
        dladdr1(module, &info, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) == 0) {
        return nullptr;
    }
    return find_host_object(*map->l_name != '\0' ? map->l_name : nullptr);
}

DWORD find_procedure(HMODULE module, const char *name, FARPROC *procedure) {
    constexpr std::uintptr_t kOrdinalLimit = 0x10000;
    if (reinterpret_cast<std::uintptr_t>(name) < kOrdinalLimit) {
        return ERROR_INVALID_ORDINAL;
    }
    if (is_built_in(module)) {
        *procedure = find_built_in(module, name);
        return *procedure != nullptr ? ERROR_SUCCESS : ERROR_PROC_NOT_FOUND;
    }
    const HostObject object = open_loaded(module);
    if (!object) {
        return ERROR_MOD_NOT_FOUND;
    }
    // dlsym goes on to the libraries that the module needs.
    void *const symbol = dlsym(object.get(), name);
    Dl_info info;
    if (symbol == nullptr || dladdr(symbol, &info) == 0 ||
        info.dli_fbase != load_address_of(object)) {
        dlerror();
        return ERROR_PROC_NOT_FOUND;
    }
    *procedure = reinterpret_cast<FARPROC>(symbol);
    return ERROR_SUCCESS;
}

}  // namespace
}  // namespace ostrel_platform

HMODULE LoadLibraryW(const WCHAR *name) noexcept {
    return LoadLibraryExW(name, nullptr, 0);
}

HMODULE LoadLibraryExW(const WCHAR *name, HANDLE file, DWORD flags) noexcept {
    constexpr DWORD kFlags = LOAD_LIBRARY_AS_DATAFILE | LOAD_WITH_ALTERED_SEARCH_PATH;
    HMODULE module = nullptr;
    ostrel_platform::forget_loader_message();
    const BOOL done = ostrel_platform::call_result([&]() -> DWORD {
        if (name == nullptr || *name == 0 || file != nullptr || (flags & ~kFlags) != 0) {
            return ERROR_INVALID_PARAMETER;
        }
        return (flags & LOAD_LIBRARY_AS_DATAFILE) != 0
                   ? ostrel_platform::map_module(name, &module)
                   : ostrel_platform::load_module(name, flags, &module);
    });
    if (done) {
        ostrel_platform::forget_loader_message();
    }
    return module;
}

FARPROC GetProcAddress(HMODULE module, const char *name) noexcept {
    FARPROC procedure = nullptr;
    ostrel_platform::call_result(
        [&] { return ostrel_platform::find_procedure(module, name, &procedure); });
    return procedure;
}

BOOL FreeLibrary(HMODULE module) noexcept {
    using namespace ostrel_platform;
    return call_result([module]() -> DWORD {
        if (free_built_in(module)) {
            return ERROR_SUCCESS;
        }
        if (!is_file_handle(module)) {
            const HostObject object = LoadedModules::Instance().Take(module);
            return object ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND;
        }
        void *const address = address_of_file(module);
        const std::size_t size = LoadedModules::Instance().TakeFile(address);
        if (size == 0) {
            return ERROR_MOD_NOT_FOUND;
        }
        munmap(address, size);
        return ERROR_SUCCESS;
    });
}

DWORD platform_loader_message(WCHAR *buffer, DWORD capacity) noexcept {
    if (buffer == nullptr || capacity == 0) {
        return 0;
    }
    WCHAR units[ostrel_platform::kLoaderMessageSize];
    const std::size_t size =
        ostrel_platform::name_from_host(ostrel_platform::kept_loader_message(), units);
    const std::size_t count = std::min<std::size_t>(size, capacity - 1);
    *std::copy_n(units, count, buffer) = 0;
    return static_cast<DWORD>(count);
}
