// Any bytes as a profile file: values, numbers and lists of names, into buffers of any size, with
// what must hold of each answer. The first byte gives the size of the buffer.

#include "fuzz/check.h"
#include "ostrel/platform/profile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>

#include "ostrel/platform/error.h"

namespace {

constexpr DWORD kEnough = 16 * 1024;

// The answer in a buffer of exactly `size` characters, whose end must be as promised.
std::u16string ask(const std::u16string &path, const WCHAR *section, const WCHAR *key, DWORD size) {
    const std::unique_ptr<WCHAR[]> buffer(new WCHAR[size]);
    SetLastError(ERROR_SUCCESS);
    const DWORD count =
        GetPrivateProfileStringW(section, key, TEXT("= "), buffer.get(), size, path.c_str());
    const bool lists = section == nullptr || key == nullptr;
    check(count < size || size == 0);
    check(size == 0 || buffer[count] == 0);
    check(!lists || size < 2 || count == 0 || buffer[count - 1] == 0 || buffer[count + 1] == 0);
    check(GetLastError() == ERROR_SUCCESS ||
          (GetLastError() == ERROR_MORE_DATA && count + (lists ? 2 : 1) >= size));
    return {buffer.get(), count};
}

// Asks twice: what is cut must be the beginning of the whole.
std::u16string ask_both(const std::u16string &path, const WCHAR *section, const WCHAR *key,
                        DWORD size) {
    const std::u16string whole = ask(path, section, key, kEnough);
    const std::u16string cut = ask(path, section, key, size);
    check(whole.compare(0, cut.size(), cut) == 0);
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0 || size > kEnough / 2) {
        return 0;
    }
    const int file = memfd_create("profile", MFD_CLOEXEC);
    check(file >= 0 && write(file, data + 1, size - 1) == static_cast<ssize_t>(size - 1));
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    const std::u16string path(name.begin(), name.end());

    // The first names of each list are found: what is listed has a value, of text and of number.
    const std::u16string sections = ask_both(path, nullptr, nullptr, data[0]);
    for (std::size_t at = 0; at < sections.size() && at < 40;) {
        const std::u16string section = sections.c_str() + at;
        at += section.size() + 1;
        const std::u16string keys = ask_both(path, section.c_str(), nullptr, data[0]);
        for (std::size_t key = 0; key < keys.size() && key < 40;) {
            const std::u16string wanted = keys.c_str() + key;
            key += wanted.size() + 1;
            const std::u16string value = ask_both(path, section.c_str(), wanted.c_str(), data[0]);
            check(value.find(u'\0') == std::u16string::npos);
            const unsigned number =
                GetPrivateProfileIntW(section.c_str(), wanted.c_str(), 77, path.c_str());
            const unsigned other =
                GetPrivateProfileIntW(section.c_str(), wanted.c_str(), 78, path.c_str());
            check(number == other);  // no default
        }
    }
    ask_both(path, TEXT("s"), TEXT("k"), data[0]);
    close(file);
    return 0;
}
