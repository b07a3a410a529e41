#include "ostrel/platform/module/built_in_module.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/process.h"

namespace ostrel_platform {
namespace {

struct Procedure {
    std::string_view name;
    FARPROC (*address)();
};

// A function that gives the address, so that the table needs no relocation while it is constructed
// and a program's own definition of a call counts.
template <auto Call>
FARPROC address_of() {
    return reinterpret_cast<FARPROC>(Call);
}

constexpr Procedure kProcessStatus[] = {
    {"EnumProcessModules", address_of<&EnumProcessModules>},
    {"EnumProcesses", address_of<&EnumProcesses>},
    {"GetModuleBaseNameW", address_of<&GetModuleBaseNameW>},
};

struct Module {
    std::u16string_view name;  // without ".DLL"
    std::span<const Procedure> procedures;
    std::atomic<std::uint32_t> loads{0};
};

constinit Module g_modules[] = {{u"PSAPI", kProcessStatus}};

Module *module_of(HMODULE handle) {
    const auto found =
        std::find_if(std::begin(g_modules), std::end(g_modules), [handle](const Module &module) {
            return reinterpret_cast<HMODULE>(const_cast<Module *>(&module)) == handle;
        });
    return found != std::end(g_modules) && found->loads.load() > 0 ? &*found : nullptr;
}

}  // namespace

HMODULE load_built_in(const WCHAR *name) noexcept {
    constexpr std::u16string_view kSuffix = u".DLL";
    std::u16string_view wanted = name;
    if (wanted.size() > kSuffix.size() &&
        is_same_name(wanted.substr(wanted.size() - kSuffix.size()), kSuffix)) {
        wanted.remove_suffix(kSuffix.size());
    }
    for (Module &module : g_modules) {
        if (is_same_name(module.name, wanted)) {
            module.loads.fetch_add(1);
            return reinterpret_cast<HMODULE>(&module);
        }
    }
    return nullptr;
}

bool free_built_in(HMODULE handle) noexcept {
    Module *const module = module_of(handle);
    if (module == nullptr) {
        return false;
    }
    std::uint32_t loads = module->loads.load();
    while (loads > 0 && !module->loads.compare_exchange_weak(loads, loads - 1)) {
    }
    return loads > 0;
}

bool is_built_in(HMODULE handle) noexcept {
    return module_of(handle) != nullptr;
}

FARPROC find_built_in(HMODULE handle, const char *name) noexcept {
    const Module *const module = module_of(handle);
    if (module != nullptr) {
        for (const Procedure &procedure : module->procedures) {
            if (procedure.name == name) {
                return procedure.address();
            }
        }
    }
    return nullptr;
}

}  // namespace ostrel_platform
