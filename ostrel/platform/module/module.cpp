#include "ostrel/platform/module.h"

#include <link.h>
#include <linux/limits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <string_view>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/module/built_in_module.h"
#include "ostrel/platform/module/loaded_modules.h"

// The layer's own ELF header, a symbol of the linker.
extern "C" __attribute__((visibility("hidden"))) const ElfW(Ehdr) __ehdr_start;

namespace ostrel_platform {
namespace {

// Removes " (deleted)", which the host appends to the path of a file that was removed or replaced,
// unless a file has that whole name.
void strip_mark_of_removal(std::string *path) {
    constexpr std::string_view kMark = " (deleted)";
    if (path->ends_with(kMark) && access(path->c_str(), F_OK) != 0) {
        path->resize(path->size() - kMark.size());
    }
}

// Stores the path of the running program. Returns 0 or an error code.
DWORD find_program(std::string *path) {
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length < 0) {
        return code_of_errno(errno);
    }
    path->assign(buffer, static_cast<std::size_t>(length));
    strip_mark_of_removal(path);
    return ERROR_SUCCESS;
}

// Reads the host's list of mappings. Returns 0 or an errno.
int read_mappings(std::string *text) {
    const HostDescriptor file = open_host("/proc/self/maps", O_RDONLY);
    if (!file) {
        return errno;
    }
    char block[4096];
    for (ssize_t count; (count = read(file.Get(), block, sizeof block)) != 0;) {
        if (count > 0) {
            text->append(block, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Stores the path of the file that is mapped at a load address. Returns 0 or an error code.
// Reads the host's list of mappings, which has the full path. The loader has only the name that it
// was given, which may be relative to an earlier current directory.
DWORD find_mapped(const void *address, std::string *path) {
    std::string mappings;
    if (const int error = read_mappings(&mappings)) {
        return code_of_errno(error);
    }
    for (std::size_t begin_of_line = 0, end; begin_of_line < mappings.size();
         begin_of_line = end + 1) {
        end = std::min(mappings.find('\n', begin_of_line), mappings.size());
        const std::string line = mappings.substr(begin_of_line, end - begin_of_line);
        std::uintptr_t begin = 0;
        if (std::sscanf(line.c_str(), "%" SCNxPTR, &begin) != 1 ||
            begin != reinterpret_cast<std::uintptr_t>(address)) {
            continue;
        }
        const std::size_t start = line.find('/');
        if (start == line.npos) {
            break;
        }
        *path = line.substr(start);
        for (std::size_t at; (at = path->find("\\012")) != path->npos;) {
            path->erase(at, 3);
            (*path)[at] = '\n';
        }
        strip_mark_of_removal(path);
        return ERROR_SUCCESS;
    }
    return ERROR_MOD_NOT_FOUND;
}

// Stores the path of the file behind a handle. Returns 0 or an error code.
DWORD find_loaded(HMODULE module, std::string *path) {
    if (is_built_in(module)) {
        return find_mapped(&__ehdr_start, path);
    }
    const void *const address = is_file_handle(module) ? address_of_file(module) : module;
    const bool is_known = is_file_handle(module) ? LoadedModules::Instance().HasFile(address)
                                                 : is_load_address(address);
    return is_known ? find_mapped(address, path) : ERROR_MOD_NOT_FOUND;
}

}  // namespace
}  // namespace ostrel_platform

BOOL DisableThreadLibraryCalls(HMODULE module) noexcept {
    if (ostrel_platform::is_built_in(module) || ostrel_platform::is_load_address(module)) {
        return TRUE;
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

DWORD GetModuleFileNameW(HMODULE module, WCHAR *buffer, DWORD capacity) noexcept {
    DWORD stored = 0;
    ostrel_platform::call_result([&]() -> DWORD {
        if (buffer == nullptr || capacity == 0) {
            return ERROR_INVALID_PARAMETER;
        }
        std::string path;
        const DWORD code = module != nullptr ? ostrel_platform::find_loaded(module, &path)
                                             : ostrel_platform::find_program(&path);
        if (code != ERROR_SUCCESS) {
            return code;
        }
        const std::u16string text = ostrel_platform::path_from_host(path);
        const std::size_t count = std::min<std::size_t>(text.size(), capacity - 1);
        buffer[text.copy(buffer, count)] = 0;
        stored = count < text.size() ? capacity : static_cast<DWORD>(count);
        return count < text.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS;
    });
    return stored;
}
