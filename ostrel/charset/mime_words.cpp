#include "ostrel/charset/mime_words.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "ostrel/charset/heap_text.h"
#include "ostrel/charset/japanese.h"
#include "ostrel/charset/transfer_coding.h"

namespace OS::charset {
namespace {

constexpr MimePrefix kPrefixes[] = {
    {"=?ISO-2022-JP?B?", EncodingJis, 16, 'B'},    {"=?ISO-2022-JP?Q?", EncodingJis, 16, 'Q'},
    {"=?SHIFT_JIS?B?", EncodingShiftJis, 14, 'B'}, {"=?SHIFT_JIS?Q?", EncodingShiftJis, 14, 'Q'},
    {"=?EUC-JP?B?", EncodingEucJp, 11, 'B'},       {"=?EUC-JP?Q?", EncodingEucJp, 11, 'Q'},
};

constexpr std::int32_t kStep = 512;  // growth of the texts here

char to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// Looks no further than the first difference, so not behind the end of either.
bool begins_with(const char *text, const char *capitals) {
    while (*capitals != '\0' && to_upper(*text) == *capitals) {
        ++text;
        ++capitals;
    }
    return *capitals == '\0';
}

// A text that pieces are appended to. Its capacity grows by whole steps. The memory behind it is
// doubled instead, so that many small pieces are not copied again and again.
struct GrowingText {
    std::int32_t capacity = 0;  // bytes for text
    std::int32_t step = 0;
    std::int32_t length = 0;
    char *buffer = nullptr;
    std::size_t reserved = 0;  // bytes of memory: for the capacity and a zero byte, at least

    GrowingText() = default;
    ~GrowingText() { std::free(buffer); }
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;

    bool Init(std::size_t first_capacity, std::int32_t growth) {
        step = growth;
        return SetCapacity(first_capacity);
    }

    bool Append(const char *text, std::size_t count) {
        const auto available = static_cast<std::size_t>(capacity - length);
        if (count > available) {
            const auto unit = static_cast<std::size_t>(step);
            if (!SetCapacity(static_cast<std::size_t>(capacity) + (count / unit + 1) * unit)) {
                return false;
            }
        }
        std::memcpy(buffer + length, text, count);
        length += static_cast<std::int32_t>(count);
        return true;
    }

    bool Append(const char *text) { return Append(text, std::strlen(text)); }

    char *Detach() {
        if (capacity == 0) {
            return nullptr;
        }
        buffer[length] = '\0';
        capacity = 0;
        step = 0;
        reserved = 0;
        return std::exchange(buffer, nullptr);
    }

private:
    bool SetCapacity(std::size_t count) {
        if (count >= INT_MAX) {
            return false;
        }
        if (count >= reserved) {
            const std::size_t size = std::max(count + 1, 2 * reserved);
            char *const grown = static_cast<char *>(std::realloc(buffer, size));
            if (grown == nullptr) {
                return false;
            }
            buffer = grown;
            reserved = size;
        }
        capacity = static_cast<std::int32_t>(count);
        return true;
    }
};

// The converted bytes of a word, which lie in front of `end`. Null when they are not well-formed or
// there is no memory.
HeapText decode_word(const MimePrefix &prefix, const char *data, const char *end) {
    const auto length = static_cast<unsigned>(end - data);
    unsigned decoded_length = 0;
    HeapText decoded(prefix.coding == 'B' ? DecodeBase64(data, length, &decoded_length)
                                          : DecodeQuotedPrintable(data, length, &decoded_length));
    return HeapText(decoded == nullptr ? nullptr : ConvertToJis(decoded.get(), prefix.encoding));
}

bool append_as_word_body(GrowingText *text, const char *data, const char *end) {
    unsigned length = 0;
    const HeapText body(EncodeBase64(data, static_cast<unsigned>(end - data), &length));
    return body != nullptr && text->Append(body.get(), length) && text->Append("?=");
}

}  // namespace

const MimePrefix *find_mime_prefix(const char *text) {
    if (text[0] == '=' && text[1] == '?') {
        for (const MimePrefix &prefix : kPrefixes) {
            if (begins_with(text, prefix.text)) {
                return &prefix;
            }
        }
    }
    return nullptr;
}

char *DecodeMimeWords(const char *text) {
    GrowingText result;
    if (text == nullptr || !result.Init(std::strlen(text) + 1, kStep)) {
        return nullptr;
    }
    const std::string_view whole(text);
    const char *copied = text;
    const char *at = std::strchr(text, '=');
    while (at != nullptr) {
        const MimePrefix *const prefix = find_mime_prefix(at);
        if (prefix == nullptr) {
            at = std::strchr(at + 1, '=');
            continue;
        }
        const char *const data = at + prefix->length;
        const std::size_t found = whole.find("?=", static_cast<std::size_t>(data - text));
        if (found == whole.npos) {
            break;
        }
        const char *const end = text + found;
        const HeapText word = decode_word(*prefix, data, end);
        if (word == nullptr || !result.Append(copied, static_cast<std::size_t>(at - copied)) ||
            !result.Append(word.get())) {
            return nullptr;
        }
        copied = end + 2;
        at = std::strchr(copied, '=');
    }
    return result.Append(copied) ? result.Detach() : nullptr;
}

char *EncodeMimeWords(const char *text) {
    GrowingText result;
    if (text == nullptr || std::strlen(text) >= INT_MAX || !result.Init(kStep, kStep)) {
        return nullptr;
    }
    const char *copied = text;  // inside a word, where its bytes begin
    bool inside = false;
    const char *at = std::strchr(text, '\x1B');
    for (; at != nullptr; at = std::strchr(at, '\x1B')) {
        if (at[1] == '$' && (at[2] == 'B' || at[2] == 'J')) {
            if (!inside) {
                if (!result.Append(copied, static_cast<std::size_t>(at - copied)) ||
                    !result.Append(kPrefixes[0].text)) {
                    return nullptr;
                }
                copied = at;
                inside = true;
            }
            at += 3;
        } else if (at[1] == '(' && at[2] == 'B') {
            at += 3;
            if (inside) {
                if (!append_as_word_body(&result, copied, at)) {
                    return nullptr;
                }
                copied = at;
                inside = false;
            }
        } else {
            ++at;
        }
    }
    const char *const end = copied + std::strlen(copied);
    const bool complete = inside ? append_as_word_body(&result, copied, end)
                                 : result.Append(copied, static_cast<std::size_t>(end - copied));
    return complete ? RemoveLineBreaks(result.Detach()) : nullptr;
}

}  // namespace OS::charset
