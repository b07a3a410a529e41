#ifndef OSTREL_CORE_ACC_BUFFER_H
#define OSTREL_CORE_ACC_BUFFER_H

// CAccBuffer collects bytes that arrive in pieces in one block that grows in large steps. It can
// also wrap a caller's block, so that code that reads bytes needs only one type.
//
//   CAccBuffer lines;
//   lines.Append(bytes, count);
//   lines.Commit(Receive(lines.Prepare(limit), limit));  // stores without a copy
//   Send(lines.GetBuffer(), lines.BytesUsed());
//
// All sizes are in bytes and have 32 bits.
//
// Ownership: the object owns a block that it allocates. The caller owns a wrapped block and keeps
// it alive while the object uses it. The first growth copies a wrapped block to an own block.
// Threads: one thread at a time may use an object.
// Errors: copying and growing throw std::bad_alloc when memory is short. Growing throws
// std::length_error when the capacity would exceed 4,294,967,295 bytes. The object is unchanged
// then.

#include <cstdint>

#include "ostrel/core/api.h"

class OSTREL_API CAccBuffer {
public:
    static constexpr std::uint32_t kDefaultUnit = 32768;  // bytes

    // Makes an empty buffer without a block; its unit is the default.
    CAccBuffer() noexcept = default;

    // Makes an empty buffer without a block, whose capacities are multiples of `unit` bytes. 0
    // stands for the default.
    explicit CAccBuffer(std::uint32_t unit) noexcept;

    // Wraps the caller's block of `count` bytes without copying it. All `count` bytes count as
    // used. Bytes are added inside the caller's block only after ResetBuffer, which itself
    // overwrites the block with zeros; otherwise the first addition makes the object grow.
    CAccBuffer(const unsigned char *bytes, std::uint32_t count) noexcept;

    // Copy the used bytes to an own block of the source's capacity. The copy constructor starts
    // with the default unit; the assignment keeps the unit of the target.
    CAccBuffer(const CAccBuffer &source);
    const CAccBuffer &operator=(const CAccBuffer &source);

    virtual ~CAccBuffer();

    // Returns the number of bytes used.
    std::uint32_t BytesUsed() const noexcept { return m_used; }

    // Returns the block, valid until the next growth, assignment or FreeBuffer. Returns null when
    // there is no block.
    unsigned char *GetBuffer() const noexcept { return m_block; }

    // Adds a copy of `count` bytes, which may lie in the block itself; a `count` of 0 has no effect
    // and allows null. When the bytes do not fit, the block grows to
    // ((capacity + count) / unit + 1) * unit bytes.
    void Append(const unsigned char *bytes, std::uint32_t count);

    // Returns the first byte after the used bytes, with space for `count` bytes, for a caller that
    // writes the bytes itself, such as a read call. The block grows as for Append. The pointer is
    // valid until the next growth. Returns null when there is no block and `count` is 0.
    unsigned char *Prepare(std::uint32_t count) {
        if (m_capacity - m_used < count) {
            Grow(count);
        }
        return m_block + m_used;
    }

    // Adds the first `count` bytes of the prepared space to the used bytes. `count` is not checked
    // and must not exceed the count that was prepared.
    void Commit(std::uint32_t count) noexcept { m_used += count; }

    // Overwrites the whole block with zeros, sets BytesUsed to 0 and keeps the block. Do not call
    // for a wrapped block in read-only memory.
    void ResetBuffer() noexcept;

    // Frees an own block or drops a wrapped one. The object is empty afterwards, keeps its unit and
    // can be used again.
    void FreeBuffer() noexcept;

    // Returns true when both objects have the same number of used bytes with the same values.
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
