// Converts any bytes to UTF-16 and any UTF-16 to bytes, in UTF-8 and other code pages, with every
// way to size the buffer, and in pieces. In UTF-8 the text is that which ICU gives. Input: a byte
// for the code page, one for the room, then the text.

#include <unicode/ucnv.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "ostrel/platform/codepage.h"
#include "ostrel/platform/text/charset.h"

namespace {

std::u16string to_wide(unsigned page, const std::string &bytes, int less) {
    const int length = static_cast<int>(bytes.size());
    const int needed = MultiByteToWideChar(page, 0, bytes.data(), length, nullptr, 0);
    const std::unique_ptr<WCHAR[]> units(new WCHAR[static_cast<std::size_t>(needed)]);
    if (needed == 0) {
        return {};
    }
    check(MultiByteToWideChar(page, 0, bytes.data(), length, units.get(), needed) == needed);
    if (const int room = needed - less; room > 0 && less > 0) {
        const std::unique_ptr<WCHAR[]> small(new WCHAR[static_cast<std::size_t>(room)]);
        check(MultiByteToWideChar(page, 0, bytes.data(), length, small.get(), room) == 0);
    }
    return {units.get(), static_cast<std::size_t>(needed)};
}

std::string to_narrow(unsigned page, const std::u16string &text, int less) {
    const int length = static_cast<int>(text.size());
    const auto convert = [&](char *bytes, int room) {
        return WideCharToMultiByte(page, 0, text.data(), length, bytes, room, nullptr, nullptr);
    };
    const int needed = convert(nullptr, 0);
    if (needed == 0) {
        return {};
    }
    const std::unique_ptr<char[]> bytes(new char[static_cast<std::size_t>(needed)]);
    check(convert(bytes.get(), needed) == needed);
    if (const int room = needed - less; room > 0 && less > 0) {
        const std::unique_ptr<char[]> small(new char[static_cast<std::size_t>(room)]);
        check(convert(small.get(), room) == 0);
    }
    return {bytes.get(), static_cast<std::size_t>(needed)};
}

// Decodes some bytes at a time, however that cuts the characters.
std::u16string in_pieces(unsigned page, const std::string &bytes, std::size_t most) {
    ostrel_platform::StreamDecoder decoder(page);
    std::u16string text;
    for (std::size_t at = 0; at < bytes.size(); at += most) {
        const std::size_t count = std::min(most, bytes.size() - at);
        const bool last = at + count == bytes.size();
        std::u16string piece(ostrel_platform::StreamDecoder::Capacity(count), u'\0');
        piece.resize(decoder.Decode(&bytes[at], count, last, piece.data()));
        text += piece;
    }
    return text;
}

std::u16string icu_wide(const std::string &bytes) {
    UErrorCode status = U_ZERO_ERROR;
    static UConverter *const converter = ucnv_open("UTF-8", &status);
    std::u16string text(bytes.size(), u'\0');
    const int32_t length = ucnv_toUChars(converter, text.data(), static_cast<int32_t>(text.size()),
                                         bytes.data(), static_cast<int32_t>(bytes.size()), &status);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr unsigned kPages[] = {65001, 65001, 65001, 932,   936,   949,  950,
                                          54936, 51932, 50220, 52936, 65000, 1252, 57002};
    if (size < 3) {
        return 0;
    }
    const unsigned page = kPages[data[0] % std::size(kPages)];
    const int less = data[1];
    const std::string bytes(reinterpret_cast<const char *>(data) + 2, size - 2);
    const std::u16string text = to_wide(page, bytes, less);
    check(in_pieces(page, bytes, 1 + data[1] % 9u) == text);
    if (page == 65001) {
        check(text == icu_wide(bytes));
        // What has been decoded once is sound. Repeated, it fills whole blocks.
        check(to_wide(page, to_narrow(page, text, less), less) == text);
        std::string many;
        for (std::size_t i = 0; i < 1 + data[1] % 40u; ++i) {
            many += bytes;
        }
        check(to_wide(page, many, 0) == icu_wide(many));
    }
    std::u16string units(bytes.size() / 2, u'\0');
    std::memcpy(units.data(), bytes.data(), units.size() * 2);
    to_narrow(page, units, less);
    return 0;
}
