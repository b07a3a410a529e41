// Compares what patterns match with what a model finds. Input: a byte for the case rule and for how
// deep the pattern lies in brackets; up to 12 bytes for the parts of the pattern; behind the first
// 255 up to 7 bytes for the characters of the text.

#include "fuzz/regex_model.h"

#include <cstdint>

#include "ostrel/regex/regex_interpreter.h"
#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"

using namespace OS::regex;

namespace {

constexpr const WCHAR *kParts[] = {
    u"a",    u"b",         u"B",      u"c",     u"{",    u"}",    u"(",   u")",      u"{",
    u"}",    u"(",         u")",      u"*",     u"+",    u"?",    u"*?",  u"+?",     u"?\?",
    u"|",    u"!",         u".",      u"^",     u"$",    u"\\.",  u"\\0", u"\\1",    u"[a-c]",
    u"[^-]", u"[\\t\\]b]", u"[B-\\]", u"{b|a}", u"(a+)", u"{a*}", u")*",  u"(b?B)|", u"[a-\\]"};

// In the form of the model: also nothing when it takes more than `most_steps`.
std::string match(const CompiledPattern &program, const std::u16string &text, int most_steps) {
    MatchContext context(2);
    int steps = 0;
    const auto go_on = [&] { return ++steps < most_steps; };
    if (match_while(program, text.c_str(), &context, nullptr, go_on) == 0) {
        return steps < most_steps ? "no" : "";
    }
    const auto place = [&text](const WCHAR *at) {
        return at == nullptr ? regex_model::kNowhere : static_cast<std::size_t>(at - text.c_str());
    };
    std::vector<regex_model::Span> spans{{place(context.matchStart), place(context.matchEnd)}};
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr;
        const WCHAR *end = nullptr;
        context.GetGroup(group, &start, &end);
        spans.emplace_back(place(start), place(end));
    }
    return regex_model::describe(spans);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool case_sensitive = data[0] % 4 != 0;
    const std::size_t depth = data[0] / 4 % 3 == 0 ? 17 : 0;
    const std::uint8_t *const end = data + size;
    const std::uint8_t *const between = std::find(data + 1, end, 255);

    std::u16string pattern = (data[0] >= 128 ? u"^" : u"") + std::u16string(depth, u'(');
    const auto parts = std::min<std::ptrdiff_t>(between - data, 13);
    for (std::ptrdiff_t i = 1; i < parts; ++i) {
        pattern += kParts[data[i] % std::size(kParts)];
    }
    pattern.append(depth, u')');
    std::u16string text;
    for (const std::uint8_t *at = between; at != end && ++at != end && text.size() < 7;) {
        text += u"aabbBc+"[*at % 7];
    }

    CompiledPattern program;
    if (program.Compile(pattern.c_str(), case_sensitive ? 1 : 0) != RegexOk) {
        return 0;
    }
    const auto fold = [case_sensitive](std::u16string folded) {
        std::replace(folded.begin(), folded.end(), case_sensitive ? u'b' : u'B', u'b');
        return folded;
    };
    // Either can try ways without end.
    const std::string found = match(program, text, 30000);
    const std::string expected =
        found.empty() ? "" : regex_model::match(fold(pattern), fold(text), 1000);
    if (!expected.empty() && found != expected) {
        __builtin_trap();
    }
    return 0;
}
