#include "ostrel/charset/japanese.h"

#include <cstddef>
#include <cstring>

#include "ostrel/charset/heap_text.h"
#include "ostrel/charset/japanese_walks.h"
#include "ostrel/charset/mime_words.h"

namespace OS::charset {
namespace {

const Byte *bytes_of(const char *text) {
    return reinterpret_cast<const Byte *>(text);
}

// Returns what `convert` writes for the text. `capacity` is the number of bytes to allocate for
// each byte of the text.
template <class Convert>
char *convert_walking(const char *text, std::size_t capacity, Convert convert) {
    const std::size_t length = std::strlen(text);
    HeapText result = allocate_text(length, capacity);
    if (result != nullptr) {
        Byte *const out = reinterpret_cast<Byte *>(result.get());
        *convert(Walk{bytes_of(text), bytes_of(text) + length, out}) = 0;
    }
    return result.release();
}

// Converts from one encoding to the other through JIS.
char *convert(const char *text, int source, int target) {
    if (text == nullptr || *text == '\0') {
        return ConvertToJis(text, EncodingNone);
    }
    if (source == target) {
        return copy_text(text).release();
    }
    if (source == EncodingJis) {
        return ConvertFromJis(text, target);
    }
    HeapText jis(ConvertToJis(text, source));
    return target == EncodingJis ? jis.release() : ConvertFromJis(jis.get(), target);
}

}  // namespace

int DetectJapaneseEncoding(const char *text) {
    return text == nullptr ? static_cast<int>(EncodingNone)
                           : detect<kHasBlocks>(bytes_of(text), bytes_of(text) + std::strlen(text));
}

char *ConvertToJis(const char *text, int encoding) {
    if (text == nullptr) {
        return nullptr;
    }
    constexpr std::size_t kCapacity =
        8;  // an escape sequence, a byte, and the final escape sequence
    switch (encoding) {
        case EncodingMime:
            return DecodeMimeWords(text);
        case EncodingNone:
        case EncodingJis:
            return copy_text(text).release();
        case EncodingShiftJis:
            return convert_walking(text, kCapacity, shift_jis_to_jis<kHasBlocks>);
        case EncodingEucJp:
            return convert_walking(text, kCapacity, euc_to_jis<kHasBlocks>);
        default:
            return copy_text("").release();
    }
}

char *ConvertFromJis(const char *text, int target) {
    if (text == nullptr) {
        return nullptr;
    }
    switch (target) {
        case EncodingMime:
            return EncodeMimeWords(text);
        case EncodingJis:
            return copy_text(text).release();
        default:
            return convert_walking(text, 2, [target](const Walk &walk) {
                return from_jis_to<kHasBlocks>(walk, target);
            });
    }
}

char *ConvertDetected(const char *text, int target) {
    return convert(text, DetectJapaneseEncoding(text), target);
}

char *ConvertToInternal(const char *text, int source) {
    return convert(text, source, InternalEncoding);
}

char *ConvertFromInternal(const char *text, int target) {
    return convert(text, InternalEncoding, target);
}

}  // namespace OS::charset
