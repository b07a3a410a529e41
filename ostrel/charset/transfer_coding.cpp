#include "ostrel/charset/transfer_coding.h"

#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ostrel/charset/heap_text.h"

namespace OS::charset {
namespace {

using Byte = unsigned char;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kLineEnd[] = "\r\n";
constexpr std::size_t kLineBytes = 45;  // 15 groups, 60 characters

// The two characters for each value of 12 bits.
constexpr auto kPairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kAlphabet[value >> 6], kAlphabet[value & 63]};
    }
    return pairs;
}();

// The bits that each character adds to the three bytes of its group, for each of the four positions
// in a group. The bytes are in memory order. The fourth byte is 0xFF for a character outside the
// alphabet.
using Group = std::array<unsigned char, 4>;

constexpr std::uint32_t kNoValue = std::bit_cast<std::uint32_t>(Group{0, 0, 0, 0xFF});
constexpr auto kGroups = [] {
    std::array<std::array<std::uint32_t, 256>, 4> groups{};
    for (unsigned position = 0; position < 4; ++position) {
        groups[position].fill(kNoValue);
        for (unsigned value = 0; value < 64; ++value) {
            const unsigned bits = value << (18 - 6 * position);
            groups[position][static_cast<Byte>(kAlphabet[value])] = std::bit_cast<std::uint32_t>(
                Group{static_cast<Byte>(bits >> 16), static_cast<Byte>(bits >> 8),
                      static_cast<Byte>(bits), 0});
        }
    }
    return groups;
}();

inline std::uint32_t group_at(const Byte *at) {
    return kGroups[0][at[0]] | kGroups[1][at[1]] | kGroups[2][at[2]] | kGroups[3][at[3]];
}

// The six bits of each character; 64 for a character outside the alphabet.
constexpr auto kValues = [] {
    std::array<Byte, 256> values{};
    values.fill(64);
    for (std::size_t value = 0; value < 64; ++value) {
        values[static_cast<Byte>(kAlphabet[value])] = static_cast<Byte>(value);
    }
    return values;
}();

// Returns 8 bytes, the first in the highest bits. Compilers turn this into one load.
inline std::uint64_t six_bytes_on_top(const Byte *at) {
    return std::uint64_t{at[0]} << 56 | std::uint64_t{at[1]} << 48 | std::uint64_t{at[2]} << 40 |
           std::uint64_t{at[3]} << 32 | std::uint64_t{at[4]} << 24 | std::uint64_t{at[5]} << 16 |
           std::uint64_t{at[6]} << 8 | at[7];
}

// Encodes `length` bytes, and pads the last group with `=`. Returns the end of the characters.
char *write_groups(const Byte *at, std::size_t length, char *out) {
    for (; length >= 8; length -= 6, at += 6, out += 8) {
        const std::uint64_t bits = six_bytes_on_top(at);
        std::memcpy(out, kPairs[bits >> 52].data(), 2);
        std::memcpy(out + 2, kPairs[bits >> 40 & 0xFFF].data(), 2);
        std::memcpy(out + 4, kPairs[bits >> 28 & 0xFFF].data(), 2);
        std::memcpy(out + 6, kPairs[bits >> 16 & 0xFFF].data(), 2);
    }
    for (; length >= 3; length -= 3, at += 3, out += 4) {
        const std::size_t bits = std::size_t{at[0]} << 16 | std::size_t{at[1]} << 8 | at[2];
        std::memcpy(out, kPairs[bits >> 12].data(), 2);
        std::memcpy(out + 2, kPairs[bits & 0xFFF].data(), 2);
    }
    if (length != 0) {
        const unsigned second = length == 2 ? at[1] : 0u;
        const std::size_t bits = std::size_t{at[0]} << 16 | std::size_t{second} << 8;
        std::memcpy(out, kPairs[bits >> 12].data(), 2);
        out[2] = length == 2 ? kPairs[bits & 0xFFF][0] : '=';
        out[3] = '=';
        out += 4;
    }
    return out;
}

// Decodes Base64 text. Positions in a group count from 0.
class Base64Reader {
public:
    Base64Reader(const char *data, std::size_t length, char *out)
        : m_at(reinterpret_cast<const Byte *>(data)),
          m_end(m_at + length),
          m_out(reinterpret_cast<Byte *>(out)) {}

    // Returns the end of the bytes written, or null when the text is not well-formed.
    char *Read() {
        while (m_at != m_end) {
            if (m_position == 0) {
                ReadGroups();
                if (m_at == m_end) {
                    break;
                }
            }
            const Byte c = *m_at++;
            if (c != '=') {
                Take(kValues[c]);
            } else if (!Pad()) {
                return nullptr;
            }
        }
        return reinterpret_cast<char *>(m_out);
    }

private:
    // Decodes whole groups with nothing but line ends between them. Writes four bytes for each
    // group and advances by three; the buffer has room for the extra byte after the last group.
    void ReadGroups() {
        while (m_end - m_at >= 4) {
            const std::uint32_t bytes = group_at(m_at);
            if ((bytes & kNoValue) == 0) {
                std::memcpy(m_out, &bytes, 4);
                m_out += 3;
                m_at += 4;
            } else if (m_at[0] == '\r' && m_at[1] == '\n') {
                m_at += 2;
            } else {
                return;
            }
        }
    }

    void Take(unsigned value) {
        if (value > 63) {
            return;
        }
        m_bits = m_bits << 6 | value;
        if (m_position != 0) {
            *m_out++ = static_cast<Byte>(m_bits >> (6 - 2 * m_position));
        }
        m_position = (m_position + 1) % 4;
    }

    // Handles a `=` that has just been read. Returns false when no `=` may stand there.
    bool Pad() {
        if (m_position == 2 && m_at != m_end && *m_at == '=') {
            m_position = 3;
            return true;
        }
        if (m_position == 3) {
            m_position = 0;
            return true;
        }
        return false;
    }

    const Byte *m_at;
    const Byte *m_end;
    Byte *m_out;
    unsigned m_bits = 0;  // of the group so far; older bits lie above them
    unsigned m_position = 0;
};

constexpr bool is_control(Byte c) {
    return c < 0x20 || c == 0x7F;
}

// Returns the value of a hexadecimal digit, or 16 for another byte.
constexpr unsigned hex_value(Byte c) {
    return c >= '0' && c <= '9'   ? c - unsigned{'0'}
           : c >= 'A' && c <= 'F' ? c - unsigned{'A'} + 10
           : c >= 'a' && c <= 'f' ? c - unsigned{'a'} + 10
                                  : 16;
}

// Decodes the `=` at `*at` with the characters that belong to it, and may write a byte. Returns
// false when the text is not well-formed.
bool read_equals_sign(const Byte **at, const Byte *end, Byte **out) {
    const Byte *const next = *at + 1;
    if (next == end || *next == 0) {
        *at = end;
        return true;
    }
    if (*next == '\r') {
        *at = next + (end - next >= 2 && next[1] == '\n' ? 2 : 1);
        return true;
    }
    const unsigned high = hex_value(*next);
    const unsigned low = end - next >= 2 ? hex_value(next[1]) : 16;
    if (high > 15 || low > 15) {
        return false;
    }
    *(*out)++ = static_cast<Byte>(high << 4 | low);
    *at = next + 2;
    return true;
}

// Decodes quoted-printable text. Returns the end of the bytes written, or null when the text is not
// well-formed.
Byte *read_quoted_printable(const Byte *at, const Byte *end, Byte *out) {
    Byte *solid = out;  // the end without unencoded blanks
    while (at != end && *at != 0) {
        if (*at == ' ') {
            *out++ = *at++;
            continue;
        }
        if (*at == '=') {
            Byte *const before = out;
            if (!read_equals_sign(&at, end, &out)) {
                return nullptr;
            }
            solid = out != before ? out : solid;
            continue;
        }
        if (*at == '\r') {
            out = solid;
        }
        *out++ = *at++;
        solid = out;
    }
    return out;
}

// Writes lines of quoted-printable text.
class QuotedPrintableWriter {
public:
    explicit QuotedPrintableWriter(char *out) : m_out(out) {}

    void LineEnd() {
        Put(kLineEnd, 2);
        m_column = 0;
    }

    void Literal(Byte c) {
        Reserve(1);
        *m_out++ = static_cast<char>(c);
    }

    void Encoded(Byte c) {
        static constexpr char kDigits[] = "0123456789ABCDEF";
        Reserve(3);
        const char text[] = {'=', kDigits[c >> 4], kDigits[c & 15]};
        Put(text, sizeof text);
    }

    char *End() const { return m_out; }

private:
    void Reserve(unsigned width) {
        constexpr unsigned kMaxColumns = 75;
        m_column += width;
        if (m_column > kMaxColumns) {
            Put("=\r\n", 3);
            m_column = width;
        }
    }

    void Put(const char *text, std::size_t length) {
        std::memcpy(m_out, text, length);
        m_out += length;
    }

    char *m_out;
    unsigned m_column = 0;
};

// Writes the zero byte at `end` and returns the string. Returns null and stores 0 when `text` or
// `end` is null and when the length does not fit `*outLength`.
char *finish(HeapText text, char *end, unsigned *outLength) {
    *outLength = 0;
    if (text == nullptr || end == nullptr || end - text.get() > std::ptrdiff_t{UINT_MAX}) {
        return nullptr;
    }
    *end = '\0';
    *outLength = static_cast<unsigned>(end - text.get());
    return text.release();
}

}  // namespace

char *DecodeBase64(const char *data, unsigned length, unsigned *outLength) {
    *outLength = 0;
    if (data == nullptr || length >= INT_MAX) {
        return nullptr;
    }
    HeapText bytes = allocate_text(std::size_t{length} * 3 / 4 + 3);
    char *const end = bytes == nullptr ? nullptr : Base64Reader(data, length, bytes.get()).Read();
    return finish(std::move(bytes), end, outLength);
}

char *EncodeBase64(const char *data, unsigned length, unsigned *outLength) {
    *outLength = 0;
    if (data == nullptr || length >= INT_MAX) {
        return nullptr;
    }
    const std::size_t characters = (std::size_t{length} + 2) / 3 * 4;
    const std::size_t size = characters + characters / 60 * 2 + 2;
    HeapText text(static_cast<char *>(std::malloc(size + 1)));
    if (text == nullptr) {
        return nullptr;
    }
    char *out = text.get();
    if (length == 0) {
        std::memset(out, 0, size + 1);
        *outLength = static_cast<unsigned>(size);
        return text.release();
    }
    const Byte *at = reinterpret_cast<const Byte *>(data);
    std::size_t left = length;
    const auto end_line = [&out] {
        std::memcpy(out, kLineEnd, 2);
        out += 2;
    };
    for (; left >= kLineBytes; left -= kLineBytes, at += kLineBytes) {
        out = write_groups(at, kLineBytes, out);
        end_line();
    }
    const bool full = left > kLineBytes - 3;  // the last group makes a whole line, `=` included
    out = write_groups(at, left, out);
    if (full) {
        end_line();
    }
    end_line();
    return finish(std::move(text), out, outLength);
}

char *DecodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength) {
    *outLength = 0;
    if (data == nullptr) {
        return nullptr;
    }
    HeapText bytes = length < INT_MAX ? allocate_text(length) : nullptr;
    if (bytes == nullptr) {
        return nullptr;
    }
    const Byte *const at = reinterpret_cast<const Byte *>(data);
    Byte *const out = reinterpret_cast<Byte *>(bytes.get());
    Byte *const end = read_quoted_printable(at, at + length, out);
    return finish(std::move(bytes), reinterpret_cast<char *>(end), outLength);
}

char *EncodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength) {
    *outLength = 0;
    if (data == nullptr) {
        return nullptr;
    }
    // Three characters for each byte, and three more for each line, which has at least 73.
    HeapText text = allocate_text(std::size_t{length} + 1, 4);
    if (text == nullptr) {
        return nullptr;
    }
    const Byte *at = reinterpret_cast<const Byte *>(data);
    const Byte *const end = at + length;
    QuotedPrintableWriter writer(text.get());
    while (at != end) {
        const Byte next = end - at >= 2 ? at[1] : Byte{0};
        if (*at == '\r' && next == '\n') {
            writer.LineEnd();
            at += 2;
            continue;
        }
        const bool literal =
            !is_control(*at) && *at < 0x80 && *at != '=' && !(*at == ' ' && next == '\r');
        literal ? writer.Literal(*at) : writer.Encoded(*at);
        ++at;
    }
    return finish(std::move(text), writer.End(), outLength);
}

char *RemoveLineBreaks(char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    char *out = text + std::strcspn(text, kLineEnd);
    for (const char *at = out; *at != '\0';) {
        if (*at == '\r' || *at == '\n') {
            ++at;
        } else {
            const std::size_t run = std::strcspn(at, kLineEnd);
            std::memmove(out, at, run);
            out += run;
            at += run;
        }
    }
    *out = '\0';
    return text;
}

}  // namespace OS::charset
