#include <cerrno>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/text/utf8.h"

namespace {

using ostrel_platform::is_digit;

struct ByteRange {
    unsigned code_page;
    unsigned char first;
    unsigned char last;
};

// Lead bytes of the double-byte code pages, from Microsoft's tables of these code pages.
constexpr ByteRange kLeadBytes[] = {
    {932, 0x81, 0x9F},   {932, 0xE0, 0xFC},   {936, 0x81, 0xFE},
    {949, 0x81, 0xFE},   {950, 0x81, 0xFE},   {51932, 0xA1, 0xFE},
    {51932, 0x8E, 0x8F}, {51949, 0xA1, 0xFE}, {54936, 0x81, 0xFE},
};

bool is_lead(unsigned code_page, unsigned char byte) {
    for (const ByteRange &range : kLeadBytes) {
        if (range.code_page == code_page && byte >= range.first && byte <= range.last) {
            return true;
        }
    }
    return false;
}

std::size_t multibyte_length(const unsigned char *text, unsigned code_page) {
    if (text[0] < 0x80) {
        return 1;
    }
    if (code_page == ostrel_platform::kCodePageUtf8) {
        std::size_t available = 1;
        while (available < 4 && text[available] != 0) {
            ++available;
        }
        const std::size_t length = ostrel_platform::utf8_length(text[0]);
        return ostrel_platform::utf8_sound_length(text, available) == length ? length : 1;
    }
    if (!is_lead(code_page, text[0])) {
        return 1;
    }
    // A GB18030 character has four bytes when its second byte is a digit, and an EUC-JP character
    // has three when its first byte is 0x8F. All others have two, and their trail byte lies above
    // the digits.
    if (code_page == 54936 && is_digit(text[1])) {
        return text[2] >= 0x81 && text[2] <= 0xFE && is_digit(text[3]) ? 4 : 1;
    }
    if (code_page == 51932 && text[0] == 0x8F) {
        return text[1] >= 0xA1 && text[2] >= 0xA1 ? 3 : 1;
    }
    return text[1] >= 0x40 ? 2 : 1;
}

}  // namespace

unsigned char *_mbsinc(const unsigned char *text) noexcept {
    if (text == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return const_cast<unsigned char *>(text) +
           multibyte_length(text, ostrel_platform::system_code_page());
}
