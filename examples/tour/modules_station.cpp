#include <cstddef>
#include <filesystem>
#include <iostream>
#include <string>

#include "ostrel/core/cm_guid.h"
#include "ostrel/core/convert.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/class.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/module.h"
#include "ostrel/registry/reg_key.h"
#include "tour.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kVersionSize = 100;  // characters; the longest version of the files below

OS::x_astring utf8(const WCHAR *text) {
    return OS::WCharToUTF8Char(text, nullptr);
}

OS::x_wstring program_folder() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return NS_FileUtils::getFilePath(path);
}

void show_version(const WCHAR *file) {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD build = 0;
    WCHAR text[kVersionSize] = {};
    std::cout << "    " << utf8(file) << ": ";
    if (NS_FileUtils::getModuleVersion(file, major, minor, build) == 0) {
        std::cout << "no version, code " << GetLastError() << '\n';
        return;
    }
    std::cout << major << '.' << minor << '.' << build;
    if (NS_FileUtils::getModuleVersion(file, text) != 0) {
        std::cout << ", by its text \"" << utf8(text) << '"';
    }
    std::cout << '\n';
}

void show_module(const char *road, HINSTANCE module) {
    WCHAR path[MAX_PATH] = {};
    std::cout << "    " << road << ": ";
    const auto greeting = reinterpret_cast<const char *(*)()>(GetProcAddress(module, "greeting"));
    if (greeting == nullptr || GetModuleFileNameW(module, path, MAX_PATH) == 0) {
        std::cout << "not loaded, code " << GetLastError() << '\n';
        return;
    }
    std::cout << '"' << greeting() << "\" of "
              << utf8(NS_FileUtils::getFilenameWithExt(path).c_str()) << '\n';
    FreeLibrary(module);
}

// Puts a copy of the module into the product's folder, and the folder into the registry.
bool install_product(const OS::x_wstring &folder) {
    const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path product = own / "tour-product" / "VEKA";
    fs::create_directories(product);
    fs::copy_file(own / "greeting.so", product / "installed.so",
                  fs::copy_options::overwrite_existing);
    return OS::CRegKey::SetValue(
               HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Nimbara\\Larkspur\\service\\Information"),
               folder + TEXT("tour-product\\"), TEXT("Local_Path")) == ERROR_SUCCESS;
}

}  // namespace

void modules_station() {
    std::cout << "  Versions, read from the files\n";
    for (const WCHAR *const file : {TEXT("greeting.dll"), TEXT("libostrel.so.0"),
                                    TEXT("addresses.txt"), TEXT("missing.dll")}) {
        show_version(file);
    }
    std::cout << "\n  A module, loaded by both roads\n";
    WCHAR beside[] = TEXT("greeting.dll");
    show_module("by name, from the program's folder", CUtilZorv::LoadLibExPlim(beside));
    if (!install_product(program_folder())) {
        std::cout << "    the product's folder cannot be written to the registry\n";
        return;
    }
    WCHAR installed[] = TEXT("installed.dll");
    show_module("from the folder that the registry names", CUtilZorv::LoadLibExPlim(installed));
    std::cout << "\n  A new GUID\n    " << utf8(CGUID().GetStringBraced().c_str()) << '\n';
}
