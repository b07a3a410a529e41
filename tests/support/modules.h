#ifndef TESTS_SUPPORT_MODULES_H
#define TESTS_SUPPORT_MODULES_H

// Short forms for tests that load the modules of tests/support/modules.

#include "ostrel/platform/module.h"
#include "support/file_calls.h"

// Copies a module of the tests, such as "sample_module", to a path.
inline void plant_module(const std::string &module, const fs::path &path) {
    fs::create_directories(fs::absolute(path).parent_path());
    fs::copy_file(OSTREL_TEST_MODULES + module + ".so", path, fs::copy_options::overwrite_existing);
}

// The name of a module's file without its folder, or the error.
inline std::string file_of(HMODULE module) {
    WCHAR path[MAX_PATH];
    const bool is_known = GetModuleFileNameW(module, path, MAX_PATH) != 0;
    const std::string text = is_known ? fs::path(path).string() : std::to_string(GetLastError());
    return text.substr(text.rfind('\\') + 1);
}

// Loads a module, names its file and frees it; or the error.
inline std::string loaded_file(const std::u16string &name, DWORD flags = 0) {
    SetLastError(0);
    const HMODULE module = LoadLibraryExW(name.c_str(), nullptr, flags);
    if (module == nullptr) {
        return std::to_string(GetLastError());
    }
    const std::string file = file_of(module);
    EXPECT_TRUE(FreeLibrary(module));
    return file;
}

#endif  // TESTS_SUPPORT_MODULES_H
