// Any text as a mail header with encoded words and as JIS to make words of, and any bytes through
// Base64 and quoted-printable both ways.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "ostrel/charset/mime_words.h"
#include "ostrel/charset/transfer_coding.h"

using namespace OS::charset;

namespace {

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

// Base64 a character at a time, in lines of 60.
std::string plain_base64(const std::string &data) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::basic_string<unsigned char> bytes(data.begin(), data.end());
    std::string text;
    for (std::size_t bit = 0; bit < data.size() * 8; bit += 6) {
        const unsigned next = bit / 8 + 1 < bytes.size() ? bytes[bit / 8 + 1] : 0;
        text += alphabet[(bytes[bit / 8] * 256 + next) >> (10 - bit % 8) & 63];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    std::string lines;
    for (std::size_t at = 0; at <= text.size(); at += 60) {  // one more after a full line
        lines += text.substr(at, 60) + "\r\n";
    }
    return lines;
}

// The text with more of what is not of the alphabet in it.
std::string scattered(const std::string &text, std::size_t distance) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i % (distance + 1) == distance) {
            result += "\r\n -_\xFF\x80!"[i % 8];
        }
        result += text[i];
        if (text[i] == '=') {  // padding is not taken apart
            return result + text.substr(i + 1);
        }
    }
    return result;
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
    check(bytes.empty() || base64.content == plain_base64(bytes));
    const std::string more = scattered(base64.content, size % 11);
    check(code(DecodeBase64, more).content == bytes);
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
