#include "ostrel/platform/version.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/version/elf_image.h"
#include "ostrel/platform/version/image_file.h"
#include "ostrel/platform/version/pe_image.h"
#include "ostrel/platform/version/version_block.h"

namespace ostrel_platform {
namespace {

// Finds the version block in a file by the file's first bytes.
DWORD find_block(ImageFile *file, Extent *extent) {
    char magic[4];
    if (!file->Read(0, magic, sizeof magic)) {
        return file->Error() == ERROR_BAD_FORMAT ? ERROR_BAD_EXE_FORMAT : file->Error();
    }
    const std::string_view start(magic, sizeof magic);
    return start.starts_with("MZ") ? find_in_pe(file, extent)
           : start ==
                   "\x7F"
                   "ELF"
               ? find_in_elf(file, extent)
               : ERROR_BAD_EXE_FORMAT;
}

// Reads the version block of a file. Returns 0 or an error code.
DWORD read_block(const WCHAR *path, std::string *block) {
    ImageFile file;
    Extent extent;
    DWORD code = file.Open(path);
    if (code == ERROR_SUCCESS) {
        code = find_block(&file, &extent);
    }
    if (code != ERROR_SUCCESS) {
        return code;
    }
    char length[sizeof(WORD)];
    if (!file.Read(extent.offset, length, sizeof length)) {
        return file.Error();
    }
    block->resize(length_of_version_block(length));
    if (block->size() > extent.size || block->size() < kMinVersionBlock) {
        return ERROR_BAD_FORMAT;
    }
    if (!file.Read(extent.offset, block->data(), block->size())) {
        return file.Error();
    }
    // Another process may have written to the file meanwhile, so the root has the last word here.
    set_length_of_version_block(block->size(), block->data());
    if (!is_version_block(*block)) {
        return ERROR_BAD_FORMAT;
    }
    terminate_version_texts(block);
    return ERROR_SUCCESS;
}

}  // namespace
}  // namespace ostrel_platform

DWORD GetFileVersionInfoSizeW(const WCHAR *path, DWORD *ignored) noexcept {
    if (ignored != nullptr) {
        *ignored = 0;
    }
    std::size_t size = 0;
    ostrel_platform::call_result([&] {
        std::string block;
        const DWORD code = ostrel_platform::read_block(path, &block);
        size = code == ERROR_SUCCESS ? block.size() : 0;
        return code;
    });
    return static_cast<DWORD>(size);
}

BOOL GetFileVersionInfoW(const WCHAR *path, DWORD /*reserved*/, DWORD capacity,
                         void *block) noexcept {
    return ostrel_platform::call_result([&]() -> DWORD {
        if (block == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        std::string bytes;
        if (const DWORD code = ostrel_platform::read_block(path, &bytes)) {
            return code;
        }
        if (capacity < ostrel_platform::kMinVersionBlock) {
            return ERROR_INSUFFICIENT_BUFFER;
        }
        bytes.resize(std::min<std::size_t>(bytes.size(), capacity));
        ostrel_platform::set_length_of_version_block(bytes.size(), bytes.data());
        std::memcpy(block, bytes.data(), bytes.size());
        return ERROR_SUCCESS;
    });
}

BOOL VerQueryValueW(const void *block, const WCHAR *path, void **value, unsigned *length) noexcept {
    return ostrel_platform::call_result([&]() -> DWORD {
        if (block == nullptr || path == nullptr || value == nullptr || length == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        const auto *const bytes = static_cast<const char *>(block);
        const std::string_view content(bytes, ostrel_platform::length_of_version_block(bytes));
        ostrel_platform::VersionValue found = {};
        const DWORD code = ostrel_platform::find_version_value(content, path, &found);
        if (code == ERROR_SUCCESS) {
            // The platform's call hands out what the caller owns and may write to.
            *value = const_cast<char *>(bytes + found.offset);
            *length = static_cast<unsigned>(found.length);
        }
        return code;
    });
}
