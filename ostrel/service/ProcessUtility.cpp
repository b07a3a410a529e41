#include "ostrel/service/ProcessUtility.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "ostrel/core/handles.h"
#include "ostrel/core/trace.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/process.h"

namespace OS {
namespace {

constexpr DWORD kMaxProcesses = 1024;
constexpr DWORD kMaxName = 260;
constexpr DWORD kModuleSize = sizeof(void *);

[[noreturn]] void raise_last_error() {
    OSTREL_RAISE_SYSTEM(CSystemException::GetLastError());
}

template <class Function>
Function *find_function(HINSTANCE library, const char *name) {
    const auto function = GetProcAddress(library, name);
    if (function == nullptr) {
        raise_last_error();
    }
    return reinterpret_cast<Function *>(function);
}

}  // namespace

CEnumProcess::CEnumProcessCallback::~CEnumProcessCallback() = default;

void CEnumProcess::EnumProcess(CEnumProcessCallback &callback) {
    constexpr WCHAR kUnknown[] = TEXT("UNKNOWN");
    WCHAR name[kMaxName] = {};
    const CAutoCloseLibrary library(LoadLibraryW(TEXT("PSAPI.DLL")));
    if (library == nullptr) {
        raise_last_error();
    }
    auto *const list_modules =
        find_function<decltype(EnumProcessModules)>(library, "EnumProcessModules");
    auto *const read_name =
        find_function<decltype(GetModuleBaseNameW)>(library, "GetModuleBaseNameW");
    auto *const list_processes = find_function<decltype(EnumProcesses)>(library, "EnumProcesses");

    DWORD ids[kMaxProcesses];
    DWORD needed = 0;
    if (!list_processes(ids, sizeof ids, &needed)) {
        raise_last_error();
    }
    const std::size_t count = needed / sizeof(DWORD);
    for (std::size_t i = 0; i < count; ++i) {
        const CHandle process(
            OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, ids[i]));
        HMODULE module = nullptr;
        if (process == nullptr || !list_modules(process, &module, kModuleSize, &needed)) {
            continue;
        }
        std::copy(std::begin(kUnknown), std::end(kUnknown), name);  // not that of the one before
        read_name(process, module, name, kMaxName);
        if (callback.OnProcess(ids[i], name)) {
            break;
        }
    }
}

}  // namespace OS
