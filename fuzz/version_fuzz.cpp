// Any bytes as the file of a module, and any bytes as a version block: every call ends, what it
// finds lies in the block, and a text has its NUL.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/version.h"

namespace {

// Asks a block for the values of a path. The block has just `size` bytes, so that an overrun shows.
void query(const char *block, std::size_t size, const std::u16string &path, bool is_text) {
    void *value = nullptr;
    unsigned length = 0;
    if (!VerQueryValueW(block, path.c_str(), &value, &length)) {
        check(value == nullptr && length == 0);
        return;
    }
    const std::size_t unit = is_text ? sizeof(WCHAR) : 1;
    const auto *const begin = static_cast<const char *>(value);
    const std::size_t bytes = std::max<std::size_t>(length, is_text ? 1 : 0) * unit;
    check(begin >= block && begin + bytes <= block + size);
    if (is_text) {
        check(begin[bytes - 1] == 0 && begin[bytes - 2] == 0);
    }
}

void query_all(const char *block, std::size_t size) {
    query(block, size, u"\\", false);
    query(block, size, u"\\VarFileInfo\\Translation", false);
    query(block, size, u"\\StringFileInfo", true);
    query(block, size, u"\\StringFileInfo\\041104B0", true);
    for (const char16_t *const name : {u"041104b0", u"040904e4"}) {
        query(block, size, u"\\StringFileInfo\\" + std::u16string(name) + u"\\FileVersion", true);
    }
}

std::unique_ptr<char[]> copy_of(const void *bytes, std::size_t size) {
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), bytes, size);
    return copy;
}

// Reads the bytes as a file, by one that has no place in a folder.
void read_file(const std::uint8_t *data, std::size_t size) {
    static const int file = memfd_create("module", MFD_CLOEXEC);
    static const std::u16string path = [] {
        const std::string name = "/proc/self/fd/" + std::to_string(file);
        return std::u16string(name.begin(), name.end());
    }();
    check(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    const DWORD length = GetFileVersionInfoSizeW(path.c_str(), nullptr);
    check(length <= 0xFFFF);
    for (const DWORD capacity : {length, length / 2 + 1, DWORD{40}}) {
        const std::unique_ptr<char[]> block(new char[capacity]);
        const bool is_read = GetFileVersionInfoW(path.c_str(), 0, capacity, block.get()) != FALSE;
        check(is_read == (length != 0 && capacity >= 40));
        if (is_read) {
            query_all(block.get(), std::min(length, capacity));
        }
    }
    DWORD major, minor, build;
    static WCHAR text[0x8000];
    const int has_numbers = NS_FileUtils::getModuleVersion(path.c_str(), major, minor, build);
    const int has_text = NS_FileUtils::getModuleVersion(path.c_str(), text);
    check(length != 0 || (has_numbers == 0 && has_text == 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    read_file(data, size);
    if (size >= 2) {
        // The length in a block is true, whatever else is not.
        const std::size_t length = std::min<std::size_t>(size, 0xFFFF);
        const std::unique_ptr<char[]> block = copy_of(data, length);
        block[0] = static_cast<char>(length & 0xFF);
        block[1] = static_cast<char>(length >> 8);
        query_all(block.get(), length);
    }
    return 0;
}
