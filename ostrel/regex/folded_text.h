#ifndef OSTREL_REGEX_FOLDED_TEXT_H
#define OSTREL_REGEX_FOLDED_TEXT_H

// Internal. The copy in lower case that patterns and texts are worked on when case plays no part.

#include <cstddef>
#include <memory>

#include "ostrel/platform/types.h"

namespace OS::regex {

// Throws RegexFailure unless `result`, of one of the runtime's calls with bounds, is 0 or 80 (text
// was cut).
void check_runtime(int result);

class FoldedText {
public:
    explicit FoldedText(const WCHAR *text);
    FoldedText(const FoldedText &) = delete;
    FoldedText &operator=(const FoldedText &) = delete;

    // The copy with its NUL; null when there was no memory for it.
    const WCHAR *Get() const { return m_text; }

private:
    static constexpr std::size_t kLocal = 264;  // holds the longest path

    WCHAR m_local[kLocal];
    std::unique_ptr<WCHAR[]> m_heap;
    const WCHAR *m_text = nullptr;
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_FOLDED_TEXT_H
