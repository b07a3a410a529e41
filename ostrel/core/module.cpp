#include "ostrel/core/module.h"

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include "ostrel/platform/module.h"

// On load, the library turns its thread notifications off and does nothing else.

#ifdef _WIN32

namespace {
HINSTANCE s_module = nullptr;
}

HINSTANCE OS::module_handle() noexcept {
    return s_module;
}

void OS::keep_module_loaded() noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<const WCHAR *>(&OS::module_handle), &module);
}

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        s_module = module;
        DisableThreadLibraryCalls(module);
    }
    return TRUE;
}

#else

// The library's own ELF header, a symbol of the linker. Its address is the load address.
extern "C" __attribute__((visibility("hidden"))) char __ehdr_start;

HINSTANCE OS::module_handle() noexcept {
    return reinterpret_cast<HINSTANCE>(&__ehdr_start);
}

void OS::keep_module_loaded() noexcept {
    Dl_info library;
    if (dladdr(&__ehdr_start, &library) != 0) {
        dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

namespace {

[[gnu::constructor]] void on_load() {
    DisableThreadLibraryCalls(OS::module_handle());
}

}  // namespace

#endif
