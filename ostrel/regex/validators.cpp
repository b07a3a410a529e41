#include "ostrel/regex/validators.h"

#include <cstddef>
#include <cstring>

#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"

namespace {

using OS::RegexFailure;
using OS::regex::CompiledPattern;
using OS::regex::MatchContext;
using OS::regex::RegexOk;

constexpr std::size_t kInitialStack = 256;  // words

// The size of a buffer for the longest path, in characters with the NUL.
constexpr std::size_t kPathSize = 260;

// One number of one to three digits.
#define OSTREL_OCTET "{\\d}|{\\d\\d}|{\\d\\d\\d}"

constexpr WCHAR kAddressPattern[] = TEXT("^{{\\q}|{[\\._a-zA-Z0-9]}+}\\@{{[a-zA-Z0-9-]+}|")
    TEXT("{{[a-zA-Z0-9-]+\\.}+{{[a-zA-Z][a-zA-Z]}|{[a-zA-Z][a-zA-Z][a-zA-Z]}}}|")
        TEXT("{\\[" OSTREL_OCTET "\\." OSTREL_OCTET "\\." OSTREL_OCTET "\\." OSTREL_OCTET "\\]}}$");

// The first pattern forbids a blank or dot at the beginning of a name, the second one at its end.
constexpr WCHAR kNameStartPattern[] =
    TEXT("^[a-zA-Z]:\\\\([^ \\t/\\\\:*?\\\"<>|\\.][^\\t/\\\\:*?\\\"<>|]*\\\\)*$");
constexpr WCHAR kNameEndPattern[] =
    TEXT("^[a-zA-Z]:\\\\([^\\t/\\\\:*?\\\"<>|]*[^ \\t/\\\\:*?\\\"<>|\\.]\\\\)*$");

// Returns the decimal number at `text` and advances `text` to the character after the number.
int read_number(const WCHAR *&text) {
    int number = 0;
    for (; *text >= TEXT('0') && *text <= TEXT('9'); ++text) {
        number = number * 10 + (*text - TEXT('0'));
    }
    return number;
}

// Returns false when the capture is an address in brackets with a number above 255. The pattern
// admits only addresses of four numbers with three digits at most.
bool has_valid_numbers(const WCHAR *start, const WCHAR *end) {
    if (end - start <= 1 || *start != TEXT('[')) {
        return true;
    }
    for (int i = 0; i < 4; ++i) {
        ++start;
        if (read_number(start) > 255) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool VerifyEMailAddress(const WCHAR *address) {
    MatchContext context(kInitialStack);
    CompiledPattern pattern;
    if (pattern.Compile(kAddressPattern, 1) != RegexOk ||
        pattern.Match(address, &context, nullptr) == 0) {
        return false;
    }
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr;
        const WCHAR *end = nullptr;
        context.GetGroup(group, &start, &end);
        if (!has_valid_numbers(start, end)) {
            return false;
        }
    }
    return true;
}

bool CheckPathFormat(const WCHAR *path, std::uint64_t length) {
    if (length >= kPathSize) {
        return false;
    }
    CompiledPattern name_start;
    CompiledPattern name_end;
    if (name_start.Compile(kNameStartPattern, 0) != RegexOk ||
        name_end.Compile(kNameEndPattern, 0) != RegexOk) {
        return false;
    }
    if (path == nullptr && length != 0) {
        throw RegexFailure{RegexFailure::kInvalidArgument};
    }
    WCHAR copy[kPathSize] = {};
    if (length != 0) {
        std::memcpy(copy, path, static_cast<std::size_t>(length) * sizeof(WCHAR));
    }
    MatchContext start_context(kInitialStack);
    MatchContext end_context(kInitialStack);
    return name_start.Match(copy, &start_context, nullptr) != 0 &&
           name_end.Match(copy, &end_context, nullptr) != 0;
}
