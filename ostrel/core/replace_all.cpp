#include "ostrel/core/replace_all.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace OS::detail {
namespace {

#ifdef __SSE2__

// A block of 16 bytes as characters.
template <class Char>
struct Block {
    static constexpr std::size_t kCount = 16 / sizeof(Char);

    static __m128i Load(const Char *text) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(text));
    }

    static __m128i Fill(Char c) {
        if constexpr (sizeof(Char) == 1) {
            return _mm_set1_epi8(static_cast<char>(c));
        } else {
            return _mm_set1_epi16(static_cast<short>(c));
        }
    }

    // Sets all bits of each character that is equal in both blocks.
    static __m128i Equal(__m128i one, __m128i other) {
        return sizeof(Char) == 1 ? _mm_cmpeq_epi8(one, other) : _mm_cmpeq_epi16(one, other);
    }
};

// Finds candidates, a block at a time: positions where both the first and the last character of the
// search text match.
template <class Char>
class CandidateFinder {
public:
    using Blocks = Block<Char>;

    explicit CandidateFinder(std::basic_string_view<Char> search)
        : m_first(Blocks::Fill(search.front())),
          m_last(Blocks::Fill(search.back())),
          m_distance(search.size() - 1) {}

    // Returns the candidates of the block at `text`: sizeof(Char) bits for each position.
    unsigned Mask(const Char *text) const {
        return static_cast<unsigned>(_mm_movemask_epi8(Places(text)));
    }

    // Returns the index of the first of `blocks` blocks at `text` with a candidate, or `blocks`.
    std::size_t FirstBlock(const Char *text, std::size_t blocks) const {
        std::size_t at = 0;
        for (; at + 2 <= blocks; at += 2) {
            const Char *const pair = text + at * Blocks::kCount;
            const __m128i one = Places(pair);
            if (_mm_movemask_epi8(_mm_or_si128(one, Places(pair + Blocks::kCount))) != 0) {
                return _mm_movemask_epi8(one) != 0 ? at : at + 1;
            }
        }
        return at < blocks && Mask(text + at * Blocks::kCount) == 0 ? blocks : at;
    }

private:
    __m128i Places(const Char *text) const {
        return _mm_and_si128(Blocks::Equal(Blocks::Load(text), m_first),
                             Blocks::Equal(Blocks::Load(text + m_distance), m_last));
    }

    __m128i m_first;
    __m128i m_last;
    std::size_t m_distance;
};

#endif

// Does what for_each_hit does, from `at` on, with the algorithm of Knuth, Morris and Pratt: linear
// time, however often the text nearly matches. `border` holds search.size() + 1 numbers, all 0.
template <class Char, class OnHit>
void for_each_hit_linear(const Char *text, std::size_t length, std::size_t at,
                         std::basic_string_view<Char> search, std::size_t *border, OnHit on_hit) {
    for (std::size_t n = 1, k = 0; n < search.size(); border[++n] = k) {
        while (k > 0 && search[n] != search[k]) {
            k = border[k];
        }
        k += search[n] == search[k] ? 1 : 0;
    }
    for (std::size_t matched = 0; at < length; ++at) {
        while (matched > 0 && text[at] != search[matched]) {
            matched = border[matched];
        }
        matched += text[at] == search[matched] ? 1 : 0;
        if (matched == search.size()) {
            if (!on_hit(at + 1 - matched)) {
                return;
            }
            matched = 0;
        }
    }
}

// Continues with the linear search from `at` and returns true. Returns false when memory for its
// table is short. The caller then continues its own search, because on_hit may have changed the
// text already.
template <class Char, class OnHit>
bool went_on_linear(const Char *text, std::size_t length, std::size_t at,
                    std::basic_string_view<Char> search, OnHit on_hit) {
    const std::unique_ptr<std::size_t[]> border(new (std::nothrow)
                                                    std::size_t[search.size() + 1]());
    if (border == nullptr) {
        return false;
    }
    for_each_hit_linear(text, length, at, search, border.get(), on_hit);
    return true;
}

// Calls on_hit(position) for each occurrence from left to right, without overlaps, until on_hit
// returns false. on_hit may write to the text in front of the end of the occurrence.
template <class Char, class OnHit>
void for_each_hit(const Char *text, std::size_t length, std::basic_string_view<Char> search,
                  OnHit on_hit) {
    const std::size_t width = search.size();
    if (width > length) {
        return;
    }
    const Char first = search.front();
    const Char last = search.back();
    std::size_t compared = 0;
    const auto inner_equal = [&](std::size_t at) {
        compared += width;
        return width <= 2 ||
               std::memcmp(text + at + 1, search.data() + 1, (width - 2) * sizeof(Char)) == 0;
    };
    const std::size_t end = length - width + 1;  // occurrences begin in front of this position
    std::size_t at = 0;

#ifdef __SSE2__
    constexpr std::size_t kBlock = Block<Char>::kCount;
    const CandidateFinder<Char> finder(search);
    while (at + kBlock <= end) {
        const std::size_t blocks = (end - at) / kBlock;
        const std::size_t found = finder.FirstBlock(text + at, blocks);
        at += found * kBlock;
        if (found == blocks) {
            break;
        }
        std::size_t from = at;
        for (unsigned mask = finder.Mask(text + at); mask != 0;) {
            const auto bit = static_cast<unsigned>(__builtin_ctz(mask));
            mask &= ~(((1u << sizeof(Char)) - 1) << bit);
            const std::size_t hit = at + bit / sizeof(Char);
            if (hit < from || !inner_equal(hit)) {
                continue;
            }
            if (!on_hit(hit)) {
                return;
            }
            from = hit + width;
        }
        at = std::max(at + kBlock, from);
        if (compared > 8 * (length / 4 + width) &&
            went_on_linear(text, length, at, search, on_hit)) {
            return;
        }
    }
#endif

    while (at < end) {
        if (text[at] == first && text[at + width - 1] == last && inner_equal(at)) {
            if (!on_hit(at)) {
                return;
            }
            at += width;
        } else {
            ++at;
        }
    }
}

// Joins pieces to a string by way of a buffer that stays in the cache. Resizing the string first
// and then filling it would write each byte of the string twice.
template <class Char>
class PieceWriter {
public:
    explicit PieceWriter(std::size_t expected_size) { m_out.reserve(expected_size); }

    // Reads up to 16 bytes after the piece too, but never past `piece_end`.
    void Put(const Char *piece, std::size_t count, const Char *piece_end) {
        if (count > kCapacity - m_used) {
            Flush();
            if (count > kCapacity) {
                m_out.append(piece, count);
                return;
            }
        }
#ifdef __SSE2__
        if (count <= kShort && static_cast<std::size_t>(piece_end - piece) >= count + kBlock) {
            for (std::size_t done = 0; done < count; done += kBlock) {
                _mm_storeu_si128(reinterpret_cast<__m128i *>(m_buffer + m_used + done),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i *>(piece + done)));
            }
            m_used += count;
            return;
        }
#else
        (void)piece_end;
#endif
        std::memcpy(m_buffer + m_used, piece, count * sizeof(Char));
        m_used += count;
    }

    std::basic_string<Char> Take() {
        Flush();
        return std::move(m_out);
    }

private:
    void Flush() {
        m_out.append(m_buffer, m_used);
        m_used = 0;
    }

    static constexpr std::size_t kBlock = 16 / sizeof(Char);
    static constexpr std::size_t kShort = 4 * kBlock;
    static constexpr std::size_t kCapacity = 64 * kBlock;

    std::basic_string<Char> m_out;
    Char m_buffer[kCapacity + kBlock];
    std::size_t m_used = 0;
};

// For a result that is not longer than the text: writes the result over the text.
template <class Char>
std::uint64_t replace_in_place(std::basic_string<Char> *text, std::basic_string_view<Char> search,
                               std::basic_string_view<Char> replacement, std::uint64_t limit) {
    Char *const begin = text->data();
    const bool moves = replacement.size() != search.size();
    std::size_t written = 0;
    std::size_t read = 0;
    std::uint64_t count = 0;
    const auto take = [&](std::size_t upto) {
        if (moves) {
            std::memmove(begin + written, begin + read, (upto - read) * sizeof(Char));
        }
        written += upto - read;
        read = upto;
    };
    for_each_hit(begin, text->size(), search, [&](std::size_t hit) {
        take(hit);
        std::memcpy(begin + written, replacement.data(), replacement.size() * sizeof(Char));
        written += replacement.size();
        read = hit + search.size();
        return ++count < limit;
    });
    take(text->size());
    text->resize(written);
    return count;
}

// For a result that is longer than the text: copies each stretch of the text as soon as it has been
// searched, while it is still in the cache, so that a long text is read from memory once.
template <class Char>
std::uint64_t replace_growing(std::basic_string<Char> *text, std::basic_string_view<Char> search,
                              std::basic_string_view<Char> replacement, std::uint64_t limit) {
    const Char *const end = text->data() + text->size();
    const Char *read = text->data();
    std::uint64_t count = 0;
    std::optional<PieceWriter<Char>> writer;  // set at the first occurrence
    std::basic_string<Char> padded;           // the replacement and 16 characters that Put may read
    for_each_hit(read, text->size(), search, [&](std::size_t hit) {
        if (!writer) {
            const std::size_t most = std::min<std::uint64_t>(limit, text->size() / search.size());
            const std::size_t growth = replacement.size() - search.size();
            const std::size_t spare = text->size() / 2;
            writer.emplace(text->size() + (growth < spare / most ? growth * most : spare));
            padded.assign(replacement).append(16, Char());
        }
        const Char *const at = text->data() + hit;
        writer->Put(read, static_cast<std::size_t>(at - read), end);
        writer->Put(padded.data(), replacement.size(), padded.data() + padded.size());
        read = at + search.size();
        return ++count < limit;
    });
    if (writer) {
        writer->Put(read, static_cast<std::size_t>(end - read), end);
        *text = writer->Take();
    }
    return count;
}

template <class Char>
bool lies_inside(std::basic_string_view<Char> part, const std::basic_string<Char> &text) {
    const std::less<const Char *> before;
    return !before(part.data(), text.data()) && !before(text.data() + text.size(), part.data());
}

template <class Char>
std::uint64_t replace(std::basic_string<Char> *text, std::basic_string_view<Char> search,
                      std::basic_string_view<Char> replacement, std::uint64_t limit) {
    if (lies_inside(search, *text) || lies_inside(replacement, *text)) {
        const std::basic_string<Char> own_search(search);
        const std::basic_string<Char> own_replacement(replacement);
        return replace<Char>(text, own_search, own_replacement, limit);
    }
    return replacement.size() <= search.size() ? replace_in_place(text, search, replacement, limit)
                                               : replace_growing(text, search, replacement, limit);
}

}  // namespace

std::uint64_t replace_all(std::string *text, std::string_view search, std::string_view replacement,
                          std::uint64_t limit) {
    return replace(text, search, replacement, limit);
}

std::uint64_t replace_all(std::basic_string<WCHAR> *text, std::basic_string_view<WCHAR> search,
                          std::basic_string_view<WCHAR> replacement, std::uint64_t limit) {
    return replace(text, search, replacement, limit);
}

}  // namespace OS::detail
