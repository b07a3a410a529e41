#ifndef OSTREL_PLATFORM_STREAM_TEXT_BLOCK_H
#define OSTREL_PLATFORM_STREAM_TEXT_BLOCK_H

// Internal. A block of text that a stream has decoded, and that is taken out line by line.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

class TextBlock {
public:
    static constexpr std::size_t kBytes = std::size_t{8} << 10;  // what is decoded at once
    static constexpr std::size_t kCapacity = StreamDecoder::Capacity(kBytes);  // in units

    TextBlock() { Fill(0, false); }

    // Where the next block is decoded to. Fill then says how many units it has, and whether they
    // are text: a line may end at a LF, a CR and a Ctrl-Z there, otherwise at a LF alone.
    WCHAR *Buffer() { return m_units; }
    void Fill(std::size_t count, bool text);

    bool Empty() const { return m_next == m_end; }
    void Clear() { m_next = m_end; }

    // The next unit of a block that is not empty.
    WCHAR Next() const { return m_units[m_next]; }
    WCHAR Take() { return m_units[m_next++]; }

    // Copies the units short of the next at which a line may end, `room` at most. Result: how many.
    std::size_t TakeRun(WCHAR *out, std::size_t capacity);

    // Copies a line that ends in LF or CR LF, as LF and NUL, to `line`, which has room for `count`
    // units; what is there behind the NUL is lost. Result: false, and nothing is taken, when the
    // block has no such line, when the line may be longer than 56 units, and when `count` is less
    // than 72: TakeRun does for those.
    bool TakeLine(WCHAR *line, std::size_t count);

private:
#ifdef __SSE2__
    // How many units a look reaches beyond the last: 64, from a place rounded up to 16.
    static constexpr std::size_t kBeyond = 80;

    std::uint64_t EndsFrom(std::size_t at) const;

    // A bit for each unit at which a line may end, and one for the place behind the last, where
    // each look stops; the bits from there on mean nothing.
    unsigned char m_ends[(kCapacity + kBeyond) / 8];
#else
    static constexpr std::size_t kBeyond = 0;

    bool m_text;
#endif
    std::size_t m_next;
    std::size_t m_end;
    WCHAR m_units[kCapacity + kBeyond];
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_STREAM_TEXT_BLOCK_H
