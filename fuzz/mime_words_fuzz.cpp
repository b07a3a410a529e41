// Any text as a mail header with encoded words and as JIS to make words of, and any bytes through
// Base64 and quoted-printable both ways.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ostrel/charset/mime_words.h"
#include "ostrel/charset/transfer_coding.h"

using namespace OS::charset;

namespace {

void check(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

struct Bytes {
    bool complete;
    std::string content;
};

// What a coding makes of bytes that lie in a block of just their size.
Bytes code(char *(*coding)(const char *, unsigned, unsigned *), const std::string &data) {
    const std::vector<char> block(data.begin(), data.end());
    unsigned length = 77;
    char *const result =
        coding(block.empty() ? "" : block.data(), static_cast<unsigned>(block.size()), &length);
    check(result != nullptr ? result[length] == '\0' : length == 0);
    const Bytes bytes{result != nullptr, std::string(result == nullptr ? "" : result, length)};
    std::free(result);
    return bytes;
}

Bytes words(char *(*function)(const char *), const std::string &text) {
    const std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);
    char *const result = function(block.data());
    const Bytes bytes{result != nullptr, result == nullptr ? "" : result};
    std::free(result);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);

    code(DecodeBase64, bytes);
    code(DecodeQuotedPrintable, bytes);
    const Bytes base64 = code(EncodeBase64, bytes);
    check(base64.complete && code(DecodeBase64, base64.content).content == bytes);
    const Bytes quoted = code(EncodeQuotedPrintable, bytes);
    check(quoted.complete && code(DecodeQuotedPrintable, quoted.content).content == bytes);

    const std::string text = bytes.c_str();
    const Bytes decoded = words(DecodeMimeWords, text);
    check(text.find('=') != text.npos || (decoded.complete && decoded.content == text));
    const Bytes encoded = words(EncodeMimeWords, text);
    check(encoded.complete && encoded.content.find_first_of("\r\n") == std::string::npos);
    // Where no word stands yet and no line break, the text comes back.
    if (text.find_first_of("=\r\n") == text.npos) {
        const Bytes back = words(DecodeMimeWords, encoded.content);
        check(back.complete && back.content == text);
    }
    return 0;
}
