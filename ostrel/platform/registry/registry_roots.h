#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRY_ROOTS_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRY_ROOTS_H

// Internal. The predefined roots by number and name. The numbers are those of the platform's
// winreg.h, without the sign extension that a handle has. Case of A to Z is ignored.

#include <algorithm>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct RegistryRoot {
    DWORD number;
    std::u16string_view name;
    std::u16string_view short_name;
};

inline constexpr RegistryRoot kRegistryRoots[] = {
    {0x80000000, TEXT("HKEY_CLASSES_ROOT"), TEXT("HKCR")},
    {0x80000001, TEXT("HKEY_CURRENT_USER"), TEXT("HKCU")},
    {0x80000002, TEXT("HKEY_LOCAL_MACHINE"), TEXT("HKLM")},
    {0x80000003, TEXT("HKEY_USERS"), TEXT("HKU")},
    {0x80000005, TEXT("HKEY_CURRENT_CONFIG"), TEXT("HKCC")},
};

// Return the root with this number, or with this name in full. Return null when there is none.
constexpr const RegistryRoot *root_of_number(DWORD number) {
    const auto *const found =
        std::find_if(std::begin(kRegistryRoots), std::end(kRegistryRoots),
                     [number](const RegistryRoot &root) { return root.number == number; });
    return found != std::end(kRegistryRoots) ? found : nullptr;
}
constexpr const RegistryRoot *root_of_name(std::u16string_view name) {
    const auto *const found =
        std::find_if(std::begin(kRegistryRoots), std::end(kRegistryRoots),
                     [name](const RegistryRoot &root) { return is_same_name(root.name, name); });
    return found != std::end(kRegistryRoots) ? found : nullptr;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRY_ROOTS_H
