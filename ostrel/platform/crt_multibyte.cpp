#include <cerrno>

#include "ostrel/platform/charset.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/utf8.h"

namespace {

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
    if (code_page == platform::kCodePageUtf8) {
        std::size_t available = 1;
        while (available < 4 && text[available] != 0) {
            ++available;
        }
        const std::size_t length = platform::utf8_length(text[0]);
        return platform::utf8_sound_length(text, available) == length ? length : 1;
    }
    if (!is_lead(code_page, text[0]) || text[1] == 0) {
        return 1;
    }
    // GB18030: a digit as the second byte makes a character of four bytes. EUC-JP: 0x8F makes one
    // of three.
    const bool four = code_page == 54936 && text[1] >= '0' && text[1] <= '9';
    const std::size_t length = four ? 4 : code_page == 51932 && text[0] == 0x8F ? 3 : 2;
    for (std::size_t i = 2; i < length; ++i) {
        if (text[i] == 0) {
            return 1;
        }
    }
    return length;
}

}  // namespace

unsigned char *_mbsinc(const unsigned char *text) noexcept {
    if (text == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return const_cast<unsigned char *>(text) + multibyte_length(text, platform::system_code_page());
}
