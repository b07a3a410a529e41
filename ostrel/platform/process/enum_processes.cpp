// EnumProcesses, OpenProcess, and what a handle tells of the program of a process.

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/process/host_process.h"
#include "ostrel/platform/process/process_object.h"

extern "C" {  // which older hosts leave out
#include <sys/pidfd.h>
}

namespace ostrel_platform {
namespace {

constexpr DWORD kModuleSize = sizeof(void *);
constexpr DWORD kLook = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

// The one module that EnumProcessModules knows; no address of this process.
HMODULE program_module() {
    return reinterpret_cast<HMODULE>(std::uintptr_t{0x10000});
}

DWORD open_process(DWORD access, DWORD id, HANDLE *handle) {
    if (id == 0 || id > static_cast<DWORD>(std::numeric_limits<pid_t>::max())) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto host_id = static_cast<pid_t>(id);
    HostDescriptor descriptor(pidfd_open(host_id, 0));
    if (!descriptor) {
        return errno == ESRCH ? ERROR_INVALID_PARAMETER : code_of_errno(errno);
    }
    std::optional<std::string> name;
    if ((access & kLook) != 0) {
        if (const int error = read_image_name(host_id, &name.emplace())) {
            return code_of_errno(error);
        }
    }
    if ((access & PROCESS_TERMINATE) != 0 &&
        pidfd_send_signal(descriptor.Get(), 0, nullptr, 0) != 0) {
        return errno == ESRCH ? ERROR_INVALID_PARAMETER : code_of_errno(errno);
    }
    auto process = HostProcess::Of(host_id, std::move(descriptor));
    *handle = open_handle(std::make_shared<Process>(std::move(process), access, std::move(name)));
    return ERROR_SUCCESS;
}

// Stores the name of a process that has a program. Returns 0 or an error code.
DWORD read_name(HANDLE handle, bool must_run, std::string *name) {
    std::shared_ptr<Process> process;
    if (const DWORD code = find_process(handle, kLook, &process)) {
        return code;
    }
    if (const int error = process->ReadName(must_run, name)) {
        return code_of_errno(error);
    }
    return name->empty() ? ERROR_PARTIAL_COPY : ERROR_SUCCESS;
}

}  // namespace
}  // namespace ostrel_platform

BOOL EnumProcesses(DWORD *ids, DWORD size, DWORD *stored) noexcept {
    return ostrel_platform::call_result([=]() -> DWORD {
        const std::size_t capacity = size / sizeof(DWORD);
        if (stored == nullptr || (ids == nullptr && capacity > 0)) {
            return ERROR_NOACCESS;
        }
        std::size_t count = 0;
        const int error = ostrel_platform::list_processes({ids, capacity}, &count);
        *stored = static_cast<DWORD>(count * sizeof(DWORD));
        return error == 0 ? ERROR_SUCCESS : ostrel_platform::code_of_errno(error);
    });
}

HANDLE OpenProcess(DWORD access, BOOL /*inherit*/, DWORD id) noexcept {
    HANDLE handle = nullptr;
    ostrel_platform::call_result(
        [&] { return ostrel_platform::open_process(access, id, &handle); });
    return handle;
}

BOOL EnumProcessModules(HANDLE process, HMODULE *modules, DWORD size, DWORD *needed) noexcept {
    return ostrel_platform::call_result([=]() -> DWORD {
        if (needed == nullptr || (modules == nullptr && size >= ostrel_platform::kModuleSize)) {
            return ERROR_NOACCESS;
        }
        std::string name;
        if (const DWORD code = ostrel_platform::read_name(process, true, &name)) {
            return code;
        }
        if (size >= ostrel_platform::kModuleSize) {
            *modules = ostrel_platform::program_module();
        }
        *needed = ostrel_platform::kModuleSize;
        return ERROR_SUCCESS;
    });
}

DWORD GetModuleBaseNameW(HANDLE process, HMODULE module, WCHAR *name, DWORD capacity) noexcept {
    DWORD stored = 0;
    ostrel_platform::call_result([&]() -> DWORD {
        if (name == nullptr) {
            return ERROR_NOACCESS;
        }
        if (capacity == 0) {
            return ERROR_INVALID_PARAMETER;
        }
        if (module != nullptr && module != ostrel_platform::program_module()) {
            return ERROR_INVALID_HANDLE;
        }
        std::string host_name;
        if (const DWORD code = ostrel_platform::read_name(process, false, &host_name)) {
            return code;
        }
        std::u16string text(host_name.size(), 0);
        text.resize(ostrel_platform::name_from_host(host_name, text.data()));
        stored = static_cast<DWORD>(std::min<std::size_t>(text.size(), capacity - 1));
        *std::copy_n(text.data(), stored, name) = 0;
        return ERROR_SUCCESS;
    });
    return stored;
}
