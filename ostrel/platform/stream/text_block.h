#ifndef OSTREL_PLATFORM_STREAM_TEXT_BLOCK_H
#define OSTREL_PLATFORM_STREAM_TEXT_BLOCK_H

// Internal. Holds a decoded block of a stream, and marks in a table of bits where lines may end.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

class TextBlock {
public:
    static constexpr std::size_t kBytes = std::size_t{8} << 10;  // the bytes decoded at once
    static constexpr std::size_t kCapacity = StreamDecoder::Capacity(kBytes);  // in units

    TextBlock() { Fill(0, false); }

    // Returns the buffer for the next block, kCapacity units. The caller decodes into the buffer
    // and then calls Fill with the number of units. `text` says where a line may end: at a LF, a CR
    // and a Ctrl-Z when true, at a LF alone when false.
    WCHAR *Buffer() { return m_units; }
    void Fill(std::size_t count, bool text);

    bool Empty() const { return m_next == m_end; }
    void Clear() { m_next = m_end; }

    // Return the next unit of a block that is not empty; Take also removes the unit.
    WCHAR Next() const { return m_units[m_next]; }
    WCHAR Take() { return m_units[m_next++]; }

    // Copies and removes the units before the next one at which a line may end, at most `capacity`.
    // Returns the number of units.
    std::size_t TakeRun(WCHAR *out, std::size_t capacity);

    // Copies and removes a line that ends with LF or CR LF; stores LF and a NUL at its end. `line`
    // holds `count` units; the call may overwrite all of them. Returns false and removes nothing
    // when the block has no whole line of that kind, when the line may be longer than 56 units,
    // when `count` is less than 72, and always without SSE2. TakeRun handles these cases.
    bool TakeLine(WCHAR *line, std::size_t count);

private:
#ifdef __SSE2__
    // The units that a scan reaches beyond the last one: 64, from a position rounded up to 16.
    static constexpr std::size_t kBeyond = 80;

    std::uint64_t EndsFrom(std::size_t at) const;

    // A set bit for each unit at which a line may end, and for the position behind the last unit,
    // where each scan stops. Later bits have no meaning.
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
