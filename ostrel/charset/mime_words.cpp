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

constexpr std::int32_t kStep = 512;  // bytes by which the capacity of a text grows

char to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// Compares up to the first difference, so it reads past the end of neither text.
bool begins_with(const char *text, const char *capitals) {
    while (*capitals != '\0' && to_upper(*text) == *capitals) {
        ++text;
        ++capitals;
    }
    return *capitals == '\0';
}

// A text that grows by appended pieces. `capacity` grows by whole steps. The memory doubles
// instead, so that many small pieces do not cause many copies.
struct GrowingText {
    std::int32_t capacity = 0;  // limit of the length, in bytes
    std::int32_t step = 0;
    std::int32_t length = 0;
    char *buffer = nullptr;
    std::size_t reserved = 0;  // bytes of memory: at least the capacity and a zero byte

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

// Decodes the body of a word, from `data` to `end`, and converts it to JIS. Returns null when the
// body is not well-formed and when memory is short.
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

// Writes a text in ISO-2022-JP as MIME words: text between Enter and Leave becomes a word, other
// text stays. Each call processes the text up to `at`. Begin, Enter and Leave return false when
// memory is short or the result would be too long.
class MimeWordWriter {
public:
    bool Begin(const char *at) {
        m_copied = at;
        return m_result.Init(kStep, kStep);
    }

    bool Enter(const char *at) {
        if (m_inside) {
            return true;
        }
        m_inside = true;
        return Copy(at) && m_result.Append(kPrefixes[0].text);
    }

    bool Leave(const char *at) {
        if (!m_inside) {
            return true;
        }
        m_inside = false;
        return append_as_word_body(&m_result, std::exchange(m_copied, at), at);
    }

    // Processes the rest of the text. Returns the result, which the caller owns, or null.
    char *End() {
        const char *const end = m_copied + std::strlen(m_copied);
        return (m_inside ? Leave(end) : Copy(end)) ? RemoveLineBreaks(m_result.Detach()) : nullptr;
    }

private:
    bool Copy(const char *at) {
        const char *const from = std::exchange(m_copied, at);
        return m_result.Append(from, static_cast<std::size_t>(at - from));
    }

    GrowingText m_result;
    const char *m_copied = nullptr;  // the first character that is not written
    bool m_inside = false;
};

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
    if (text == nullptr || std::strlen(text) >= INT_MAX) {
        return nullptr;
    }
    MimeWordWriter writer;
    const char *at = text;
    bool complete = writer.Begin(text);
    while (complete && (at = std::strchr(at, '\x1B')) != nullptr) {
        if (at[1] == '$' && (at[2] == 'B' || at[2] == 'J')) {
            complete = writer.Enter(at);
            at += 3;
        } else if (at[1] == '(' && at[2] == 'B') {
            at += 3;
            complete = writer.Leave(at);
        } else {
            ++at;
        }
    }
    return complete ? writer.End() : nullptr;
}

}  // namespace OS::charset
