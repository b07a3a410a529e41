#ifndef OSTREL_CORE_ACC_BUFFER_H
#define OSTREL_CORE_ACC_BUFFER_H

// CAccBuffer: gathers bytes that arrive in pieces in one block that grows in large steps. It can
// also wrap a block of the caller's, so that reading code takes one type in both cases.
//
//   CAccBuffer lines;
//   lines.Append(bytes, count);
//   lines.Commit(Receive(lines.Prepare(room), room));  // without a copy
//   Send(lines.GetBuffer(), lines.BytesUsed());
//
// All sizes are in bytes and have 32 bits.
//
// Ownership: the object owns the block that it has allocated. A block that it wraps stays the
// caller's, must live as long, and is left behind at the first growth.
// Threads: an object belongs to one thread at a time.
// Errors: std::bad_alloc when memory is short, std::length_error when the capacity would exceed
// 4,294,967,295 bytes; the object is unchanged then.

#include <cstdint>

#include "ostrel/core/api.h"

class OSTREL_API CAccBuffer {
public:
    static constexpr std::uint32_t kDefaultUnit = 32768;

    CAccBuffer() noexcept = default;

    // An empty buffer that grows by multiples of `unit` bytes; 0 stands for the default.
    explicit CAccBuffer(std::uint32_t unit) noexcept;

    // Wraps the caller's block of `count` bytes, without copying it. Nothing is written to it
    // before ResetBuffer, which makes it room to append to.
    CAccBuffer(const unsigned char *bytes, std::uint32_t count) noexcept;

    // A copy owns a block of its own, of the source's capacity. The copy constructor starts with
    // the default unit, and an assignment keeps the unit of the target.
    CAccBuffer(const CAccBuffer &source);
    const CAccBuffer &operator=(const CAccBuffer &source);

    virtual ~CAccBuffer();

    std::uint32_t BytesUsed() const noexcept { return m_used; }

    // The block itself, valid until the next growth; null when there is none.
    unsigned char *GetBuffer() const noexcept { return m_block; }

    // Adds a copy of `count` bytes, which may lie in the block itself. When they do not fit, the
    // block grows to ((capacity + count) / unit + 1) * unit bytes.
    void Append(const unsigned char *bytes, std::uint32_t count);

    // Room for `count` bytes behind those used, for a caller that writes them itself, such as a
    // read. The block grows for them as for Append. Valid until the next growth.
    unsigned char *Prepare(std::uint32_t count) {
        if (m_capacity - m_used < count) {
            Grow(count);
        }
        return m_block + m_used;
    }

    // Adds the first `count` bytes of that room, no more than were prepared, to the bytes used.
    void Commit(std::uint32_t count) noexcept { m_used += count; }

    // Sets all bytes of the block to 0 and the bytes used to 0; keeps the block. Not for a wrapper
    // of memory that cannot be written to.
    void ResetBuffer() noexcept;

    // Gives the block up. The object is empty afterwards and can be used again.
    void FreeBuffer() noexcept;

    // Whether the bytes used are the same, in number and value.
    bool IsContentTheSame(const CAccBuffer &other) const noexcept;

private:
    void Grow(std::uint32_t count);

    std::uint32_t m_capacity = 0;
    std::uint32_t m_used = 0;
    std::uint32_t m_unit = kDefaultUnit;
    unsigned char *m_block = nullptr;
    bool m_owns = true;
};

#endif  // OSTREL_CORE_ACC_BUFFER_H
