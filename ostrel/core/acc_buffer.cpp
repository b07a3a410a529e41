#include "ostrel/core/acc_buffer.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>

CAccBuffer::CAccBuffer(std::uint32_t unit) noexcept : m_unit(unit != 0 ? unit : kDefaultUnit) {}

CAccBuffer::CAccBuffer(const unsigned char *bytes, std::uint32_t count) noexcept
    : m_capacity(count),
      m_used(count),
      m_block(const_cast<unsigned char *>(bytes)),
      m_owns(false) {}

CAccBuffer::CAccBuffer(const CAccBuffer &source) : CAccBuffer() {
    *this = source;
}

const CAccBuffer &CAccBuffer::operator=(const CAccBuffer &source) {
    if (this == &source) {
        return *this;
    }
    unsigned char *block = nullptr;
    if (source.m_capacity != 0) {
        block = static_cast<unsigned char *>(std::malloc(source.m_capacity));
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(block, source.m_block, source.m_used);
    }
    FreeBuffer();
    m_capacity = source.m_capacity;
    m_used = source.m_used;
    m_block = block;
    return *this;
}

CAccBuffer::~CAccBuffer() {
    FreeBuffer();
}

void CAccBuffer::Append(const unsigned char *bytes, std::uint32_t count) {
    if (count == 0) {
        return;
    }
    if (m_capacity - m_used < count) {
        const std::less<const unsigned char *> before;
        const bool own =
            m_block != nullptr && !before(bytes, m_block) && before(bytes, m_block + m_capacity);
        const std::size_t offset = own ? static_cast<std::size_t>(bytes - m_block) : 0;
        Grow(count);
        bytes = own ? m_block + offset : bytes;
    }
    std::memmove(m_block + m_used, bytes, count);
    m_used += count;
}

void CAccBuffer::Grow(std::uint32_t count) {
    const std::uint64_t capacity = ((std::uint64_t{m_capacity} + count) / m_unit + 1) * m_unit;
    if (capacity > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("CAccBuffer");
    }
    void *const block =
        std::realloc(m_owns ? m_block : nullptr, static_cast<std::size_t>(capacity));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    if (!m_owns) {
        if (m_used != 0) {
            std::memcpy(block, m_block, m_used);
        }
        m_owns = true;
    }
    m_block = static_cast<unsigned char *>(block);
    m_capacity = static_cast<std::uint32_t>(capacity);
}

void CAccBuffer::ResetBuffer() noexcept {
    if (m_block != nullptr) {
        std::memset(m_block, 0, m_capacity);
    }
    m_used = 0;
}

void CAccBuffer::FreeBuffer() noexcept {
    if (m_owns) {
        std::free(m_block);
    }
    m_capacity = 0;
    m_used = 0;
    m_block = nullptr;
    m_owns = true;
}

bool CAccBuffer::IsContentTheSame(const CAccBuffer &other) const noexcept {
    return m_used == other.m_used &&
           (m_used == 0 || std::memcmp(m_block, other.m_block, m_used) == 0);
}
