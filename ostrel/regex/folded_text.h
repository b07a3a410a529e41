#ifndef OSTREL_REGEX_FOLDED_TEXT_H
#define OSTREL_REGEX_FOLDED_TEXT_H

// Internal. Makes the lower-case copies of patterns and texts for matching without regard to case.

#include <cstddef>
#include <memory>

#include "ostrel/platform/types.h"

namespace OS::regex {

// Checks the result of a bounds-checking call of the runtime. Throws RegexFailure unless `result`
// is 0 or 80 (truncated): with kOutOfMemory for ENOMEM, with kInvalidArgument for EINVAL and
// ERANGE, with kFailed for any other value.
void check_runtime(int result);

class FoldedText {
public:
    // Copies `text`, which is terminated and not null, with A to Z in lower case.
    explicit FoldedText(const WCHAR *text);
    FoldedText(const FoldedText &) = delete;
    FoldedText &operator=(const FoldedText &) = delete;

    // Returns the terminated copy, or null when memory was short.
    const WCHAR *Get() const { return m_text; }

private:
    static constexpr std::size_t kLocal = 264;  // characters with the NUL; the longest path fits

    WCHAR m_local[kLocal];
    std::unique_ptr<WCHAR[]> m_heap;
    const WCHAR *m_text = nullptr;
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_FOLDED_TEXT_H
