// Versions of modules.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/version.h"

namespace NS_FileUtils {
namespace {

// The version block of a file, with room for as much again. Null on failure.
std::unique_ptr<char[]> read_version_block(const WCHAR *path) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    std::unique_ptr<char[]> block(new (std::nothrow) char[std::size_t{2} * size]);
    if (block != nullptr && !GetFileVersionInfoW(path, 0, size, block.get())) {
        block.reset();
    }
    return block;
}

// Copies a text of the block. Returns 1, or 0 when there is none.
int copy_text(const char *block, const WCHAR *name, WCHAR *version) {
    void *text = nullptr;
    unsigned length = 0;
    if (!VerQueryValueW(block, name, &text, &length)) {
        return 0;
    }
    // A text without a value has the length 0.
    std::memcpy(version, text, std::max(length, 1U) * sizeof(WCHAR));
    return 1;
}

}  // namespace

int getModuleVersion(const WCHAR *path, DWORD &major, DWORD &minor, DWORD &build) {
    const std::unique_ptr<char[]> block = read_version_block(path);
    void *value = nullptr;
    unsigned length = 0;
    if (block != nullptr) {
        VerQueryValueW(block.get(), TEXT("\\"), &value, &length);
    }
    if (value == nullptr) {
        return 0;
    }
    VS_FIXEDFILEINFO info;
    std::memcpy(&info, value, sizeof info);
    major = info.dwFileVersionMS >> 16;
    minor = info.dwFileVersionMS & 0xFFFF;
    build = info.dwFileVersionLS >> 16;
    return 1;
}

int getModuleVersion(const WCHAR *path, WCHAR *version) {
    const std::unique_ptr<char[]> block = read_version_block(path);
    void *translation = nullptr;
    unsigned length = 0;
    WORD pair[2];  // a language and a code page
    if (block == nullptr ||
        !VerQueryValueW(block.get(), TEXT("\\VarFileInfo\\Translation"), &translation, &length) ||
        length < sizeof pair) {
        return 0;
    }
    std::memcpy(pair, translation, sizeof pair);
    WCHAR name[] = TEXT("\\StringFileInfo\\00000000\\FileVersion");
    WCHAR *digit = std::find(name, std::end(name), TEXT('0'));
    for (const WORD number : pair) {
        for (int shift = 12; shift >= 0; shift -= 4) {
            *digit++ = TEXT("0123456789ABCDEF")[number >> shift & 0xF];
        }
    }
    return copy_text(block.get(), name, version) != 0 ||
                   copy_text(block.get(), TEXT("\\StringFileInfo\\040904E4\\FileVersion"),
                             version) != 0
               ? 1
               : 0;
}

}  // namespace NS_FileUtils
