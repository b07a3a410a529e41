// Gives any text to the two validators. Input: a byte, then UTF-16, embedded NULs and lone
// surrogates included. The path's length is the text's, or another below 260 when the byte is odd.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ostrel/regex/validators.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::vector<WCHAR> text((size - 1) / 2);
    if (!text.empty()) {
        std::memcpy(text.data(), data + 1, text.size() * 2);
    }
    const std::size_t length =
        data[0] % 2 == 0 ? text.size() : std::min<std::size_t>(text.size(), data[0]);
    const bool path = CheckPathFormat(text.empty() ? nullptr : text.data(), length);

    const std::u16string address(text.begin(), text.end());
    const bool valid = VerifyEMailAddress(address.c_str());
    // What is accepted tells what it must look like.
    const std::u16string seen = address.c_str();
    if ((valid && seen.find(u'@') == std::u16string::npos) ||
        (path && (length < 3 || length >= 260 || text[1] != u':'))) {
        __builtin_trap();
    }
    return 0;
}
