#include "ostrel/regex/folded_text.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "ostrel/platform/crt_text.h"
#include "ostrel/regex/validators.h"

namespace OS::regex {

void check_runtime(int result) {
    constexpr int kTruncated = 80;  // STRUNCATE
    switch (result) {
        case 0:
        case kTruncated:
            return;
        case ENOMEM:
            throw RegexFailure{RegexFailure::kOutOfMemory};
        case EINVAL:
        case ERANGE:
            throw RegexFailure{RegexFailure::kInvalidArgument};
        default:
            throw RegexFailure{RegexFailure::kFailed};
    }
}

FoldedText::FoldedText(const WCHAR *text) {
    const std::size_t size = std::char_traits<WCHAR>::length(text) + 1;
    WCHAR *copy = m_local;
    if (size > kLocal) {
        m_heap.reset(new (std::nothrow) WCHAR[size]);
        copy = m_heap.get();
        if (copy == nullptr) {
            return;
        }
    }
    std::memcpy(copy, text, size * sizeof(WCHAR));
    check_runtime(_wcslwr_s(copy, size));
    m_text = copy;
}

}  // namespace OS::regex
