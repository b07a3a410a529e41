#include "support/regex_model.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "ostrel/regex/regex_program.h"

namespace test {

using namespace OS::regex;

namespace {

struct OutOfSteps {};

// What is to match behind an element, and an element itself; null where no element stands.
using Next = std::function<bool(std::size_t)>;
using Matcher = std::function<bool(std::size_t, const Next &)>;

class Model {
public:
    Model(std::u16string pattern, std::u16string text, int steps)
        : m_pattern(std::move(pattern)), m_text(std::move(text)), m_steps(steps) {}

    std::string Run() {
        const bool anchored = Skip(u'^');
        bool empty = true;
        const Matcher matcher = ReadSequence(empty);
        std::size_t start = 0;
        do {
            if (matcher(start, [&](auto end) {
                    m_spans[0] = {start, end};
                    return true;
                })) {
                return describe(m_spans);
            }
        } while (!anchored && ++start < m_text.size());
        return "no";
    }

private:
    bool Skip(char16_t c) {
        const bool found = m_pattern[m_at] == c;
        m_at += found ? 1 : 0;
        return found;
    }

    // `empty` comes in as what is known so far and goes out as whether the text may be empty.
    Matcher ReadSequence(bool &empty) {
        Matcher first = ReadAlternation(empty);
        if (first == nullptr) {
            return [](auto at, auto &next) { return next(at); };
        }
        bool rest_empty = true;
        Matcher rest = ReadSequence(rest_empty);
        empty = empty && rest_empty;
        return Both(std::move(first), std::move(rest));
    }

    Matcher ReadAlternation(bool &empty) {
        bool left_empty = empty;
        Matcher left = ReadElement(left_empty);
        if (left == nullptr || !Skip(u'|')) {
            empty = left_empty;
            return left;
        }
        bool right_empty = false;
        Matcher right = ReadAlternation(right_empty);
        if (right == nullptr) {
            return nullptr;
        }
        empty = left_empty || right_empty;
        return [left = std::move(left), right = std::move(right)](
                   std::size_t at, const Next &next) { return left(at, next) || right(at, next); };
    }

    Matcher ReadElement(bool &empty) {
        const std::size_t begin = m_at;
        const std::size_t groups = m_spans.size();
        Matcher once = ReadAtom(empty);
        const char16_t quantifier = m_pattern[m_at];
        if (once == nullptr || (quantifier != u'*' && quantifier != u'+' && quantifier != u'?')) {
            return once;
        }
        m_at = begin;
        m_spans.resize(groups);
        empty = false;
        Matcher body = ReadAtom(empty);
        ++m_at;
        if (empty && quantifier != u'?') {
            throw RegexEmptyRepeat;
        }
        const bool lazy = Skip(u'?');
        const bool again = quantifier != u'?';
        empty = quantifier != u'+' || lazy;
        const auto began = std::make_shared<std::size_t>(kNowhere);
        Matcher loop = [=, this, body = std::move(body)](auto at, auto &next) {
            return lazy ? TryLazy(body, again, at, next) : TryGreedy(body, again, *began, at, next);
        };
        return quantifier == u'+' ? Both(std::move(once), std::move(loop)) : loop;
    }

    Matcher ReadAtom(bool &empty) {
        const char16_t c = m_pattern[m_at];
        if (c == 0 || c == u'}' || c == u']' || c == u')') {
            return nullptr;
        }
        ++m_at;
        if (c == u'{') {
            return ReadGroup(empty);
        }
        if (c == u'(') {
            return ReadBracket(u')', RegexParenExpected, empty);
        }
        if (c == u'!') {
            return ReadLookAhead(empty);
        }
        if (c == u'\\') {
            return ReadEscape(empty);
        }
        empty = false;
        if (c == u'[') {
            return ReadSet();
        }
        const char16_t wanted = c == u'$' && m_pattern[m_at] == 0 ? u'\0' : c;
        return Character([=](char16_t seen) { return c == u'.' ? seen != 0 : seen == wanted; });
    }

    Matcher ReadBracket(char16_t closing, RegexResult missing, bool &empty) {
        Matcher inner = ReadSequence(empty);
        if (!Skip(closing)) {
            throw missing;
        }
        return inner;
    }

    Matcher ReadGroup(bool &empty) {
        const std::size_t group = m_spans.size();
        m_spans.emplace_back(kNowhere, kNowhere);
        Matcher inner = ReadBracket(u'}', RegexBraceExpected, empty);
        return [=, this, inner = std::move(inner)](auto at, auto &next) {
            const Span saved = m_spans[group];
            m_spans[group].first = at;
            const bool matched = inner(at, [&](auto end) {
                m_spans[group].second = end;
                return next(end);
            });
            m_spans[group] = matched ? m_spans[group] : saved;
            return matched;
        };
    }

    Matcher ReadLookAhead(bool &empty) {
        Matcher inner = ReadAtom(empty);
        if (inner == nullptr) {
            return nullptr;
        }
        return [this, inner = std::move(inner)](auto at, auto &next) {
            return inner(at, [](auto) { return true; }) ? FailAt(at) : next(at);
        };
    }

    Matcher ReadSet() {
        const bool inverted = Skip(u'^');
        std::vector<std::pair<char16_t, char16_t>> ranges;
        while (!Skip(u']')) {
            const bool escaped = Skip(u'\\');
            char16_t low = m_pattern[m_at++];
            low = escaped && low == u't' ? u'\t' : low;
            char16_t high = low;
            if (low != 0 && Skip(u'-')) {
                high = Skip(u']') ? u'\0' : m_pattern[m_at++];
            }
            if (low == 0 || high == 0) {
                throw RegexBracketExpected;
            }
            if (high < low) {
                throw RegexBadRange;
            }
            ranges.emplace_back(low, high);
        }
        if (ranges.empty()) {
            throw RegexEmptySet;
        }
        return Character([=](char16_t c) {
            return c != 0 && inverted != std::any_of(ranges.begin(), ranges.end(), [c](auto range) {
                                 return range.first <= c && c <= range.second;
                             });
        });
    }

    Matcher ReadEscape(bool &empty) {
        static constexpr const char16_t *kAbbreviations[] = {
            u"a([a-zA-Z0-9])", u"b([ \t])",      u"c([a-zA-Z])",  u"d([0-9])", u"h([0-9a-fA-F])",
            u"n(\r|(\r?\n))",  u"q(\"[^\"]*\")", u"w([a-zA-Z]+)", u"z([0-9]+)"};
        const char16_t c = m_pattern[m_at];
        if (c == 0) {
            throw RegexBadAbbreviation;
        }
        if (c >= u'0' && c <= u'9') {
            empty = false;
            return ReadBackReference();
        }
        ++m_at;
        for (const char16_t *abbreviation : kAbbreviations) {
            if (c == abbreviation[0]) {
                const std::u16string pattern = std::exchange(m_pattern, abbreviation);
                const std::size_t at = std::exchange(m_at, 1);
                Matcher element = ReadElement(empty);
                m_pattern = pattern;
                m_at = at;
                return element;
            }
        }
        return Character([=](char16_t seen) { return seen == c; });
    }

    Matcher ReadBackReference() {
        std::size_t group = 0;
        for (; m_pattern[m_at] >= u'0' && m_pattern[m_at] <= u'9'; ++m_at) {
            group = group * 10 + (m_pattern[m_at] - u'0');
        }
        if (++group >= m_spans.size()) {
            throw RegexBadGroup;
        }
        return [=, this](auto at, auto &next) {
            const auto [start, end] = m_spans[group];
            const std::size_t length = end != kNowhere && start < end ? end - start : 0;
            const bool again =
                length == 0 || m_text.compare(at, length, m_text, start, length) == 0;
            return again ? next(at + length) : FailAt(at);
        };
    }

    Matcher Character(const std::function<bool(char16_t)> &accepts) {
        return [=, this](auto at, auto &next) {
            return accepts(m_text[at]) ? next(at + 1) : FailAt(at);
        };
    }

    static Matcher Both(Matcher first, Matcher second) {
        return [first = std::move(first), second = std::move(second)](std::size_t at,
                                                                      const Next &next) {
            return first(at, [&](auto middle) { return second(middle, next); });
        };
    }

    // `began` is where the loop's current iteration began.
    bool TryGreedy(const Matcher &body, bool again, std::size_t &began, std::size_t at,
                   const Next &next) {
        CountStep();
        const std::size_t saved = std::exchange(began, at);
        const bool matched = body(at, [&](auto end) {
            const bool progress = std::exchange(began, end) != end;
            return !progress ? FailAt(end)
                   : again   ? TryGreedy(body, again, began, end, next)
                             : next(end);
        });
        began = matched ? began : saved;
        return matched || next(at);
    }

    bool TryLazy(const Matcher &body, bool again, std::size_t at, const Next &next) {
        CountStep();
        return next(at) || body(m_failed, [&](auto end) {
                   return again ? TryLazy(body, again, end, next) : next(end);
               });
    }

    bool FailAt(std::size_t at) {
        CountStep();
        m_failed = at;
        return false;
    }

    void CountStep() {
        if (--m_steps < 0) {
            throw OutOfSteps();
        }
    }

    std::u16string m_pattern;
    std::u16string m_text;
    int m_steps;
    std::size_t m_at = 0;           // in the pattern
    std::vector<Span> m_spans{{}};  // of the match and its groups
    // Where the last step failed: that is where the body of a lazy quantifier begins, which does
    // not go back.
    std::size_t m_failed = 0;
};

}  // namespace

std::string describe(const std::vector<Span> &spans) {
    std::string text;
    for (const auto &[start, end] : spans) {
        text += text.empty() ? "" : " ";
        text += start == kNowhere ? "" : std::to_string(start);
        text += end == kNowhere ? "-" : "-" + std::to_string(end);
    }
    return text;
}

std::string model_match(const std::u16string &pattern, const std::u16string &text, int steps) {
    try {
        return Model(pattern, text, steps).Run();
    } catch (const RegexResult &result) {
        return "error " + std::to_string(result);
    } catch (const OutOfSteps &) {
        return "";
    }
}

}  // namespace test
