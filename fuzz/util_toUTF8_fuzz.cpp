// Converts any bytes from one of the charsets whose converters differ most. Input: a byte that
// chooses, then the text up to its first NUL.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>

#include "ostrel/charset/util_toUTF8.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const char *const charsets[] = {"Shift_JIS",   "EUC-JP",      "GB18030", "Big5",
                                           "ISO-2022-JP", "ISO-2022-CN", "UTF-7",   "UTF-16",
                                           "HZ",          "UTF-8"};
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const CUTF8String utf8(text.c_str(), size, charsets[data[0] % std::size(charsets)]);
    // What comes out is sound UTF-8, so that it comes out of itself.
    if (utf8.Get() != nullptr) {
        const CUTF8String again(utf8.Get(), 0, "UTF-8");
        if (again.Get() == nullptr || std::strcmp(again.Get(), utf8.Get()) != 0) {
            __builtin_trap();
        }
    }
    return 0;
}
