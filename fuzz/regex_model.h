#ifndef OSTREL_FUZZ_REGEX_MODEL_H
#define OSTREL_FUZZ_REGEX_MODEL_H

// A second reading of the pattern language, as slow and plain as can be: functions that call each
// other, without a program. For short patterns and texts.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace regex_model {

// The start and end of a match or a group.
using Span = std::pair<std::size_t, std::size_t>;
inline constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

// The spans of a match and its groups as text: "2-5 2-3 -".
inline std::string describe(const std::vector<Span> &spans) {
    std::string text;
    for (const auto &[start, end] : spans) {
        text += text.empty() ? "" : " ";
        text += start == kNowhere ? "" : std::to_string(start);
        text += end == kNowhere ? "-" : "-" + std::to_string(end);
    }
    return text;
}

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
        const Matcher matcher = ReadSequence();
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

    Matcher ReadSequence() {
        Matcher first = ReadAlternation();
        if (first == nullptr) {
            return [](auto at, auto &next) { return next(at); };
        }
        return Both(std::move(first), ReadSequence());
    }

    Matcher ReadAlternation() {
        Matcher left = ReadElement();
        if (left == nullptr || !Skip(u'|')) {
            return left;
        }
        Matcher right = ReadAlternation();
        if (right == nullptr) {
            return nullptr;
        }
        return [left = std::move(left), right = std::move(right)](
                   std::size_t at, const Next &next) { return left(at, next) || right(at, next); };
    }

    Matcher ReadElement() {
        const std::size_t begin = m_at;
        const std::size_t groups = m_spans.size();
        Matcher once = ReadAtom();
        const char16_t quantifier = m_pattern[m_at];
        if (once == nullptr || (quantifier != u'*' && quantifier != u'+' && quantifier != u'?')) {
            return once;
        }
        m_at = begin;
        m_spans.resize(groups);
        Matcher body = ReadAtom();
        ++m_at;
        const bool lazy = Skip(u'?');
        const bool again = quantifier != u'?';
        const auto began = std::make_shared<std::size_t>(kNowhere);
        Matcher loop = [=, this, body = std::move(body)](auto at, auto &next) {
            return lazy ? TryLazy(body, again, at, next) : TryGreedy(body, again, *began, at, next);
        };
        return quantifier == u'+' ? Both(std::move(once), std::move(loop)) : loop;
    }

    Matcher ReadAtom() {
        const char16_t c = m_pattern[m_at];
        if (c == 0 || c == u'}' || c == u']' || c == u')') {
            return nullptr;
        }
        ++m_at;
        switch (c) {
            case u'{':
                return ReadGroup();
            case u'(':
                return ReadBracket();
            case u'!':
                return ReadLookAhead();
            case u'\\':
                return ReadEscape();
            case u'[':
                return ReadSet();
            default:
                break;
        }
        const char16_t wanted = c == u'$' && m_pattern[m_at] == 0 ? u'\0' : c;
        return Character([=](char16_t seen) { return c == u'.' ? seen != 0 : seen == wanted; });
    }

    Matcher ReadBracket() {
        Matcher inner = ReadSequence();
        ++m_at;
        return inner;
    }

    Matcher ReadGroup() {
        const std::size_t group = m_spans.size();
        m_spans.emplace_back(kNowhere, kNowhere);
        return [=, this, inner = ReadBracket()](auto at, auto &next) {
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

    Matcher ReadLookAhead() {
        Matcher inner = ReadAtom();
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
            ranges.emplace_back(low, Skip(u'-') ? m_pattern[m_at++] : low);
        }
        return Character([=](char16_t c) {
            return c != 0 && inverted != std::any_of(ranges.begin(), ranges.end(), [c](auto range) {
                                 return range.first <= c && c <= range.second;
                             });
        });
    }

    Matcher ReadEscape() {
        const char16_t c = m_pattern[m_at];
        if (c >= u'0' && c <= u'9') {
            return ReadBackReference();
        }
        ++m_at;
        return Character([=](char16_t seen) { return seen == c; });
    }

    Matcher ReadBackReference() {
        std::size_t group = 0;
        for (; m_pattern[m_at] >= u'0' && m_pattern[m_at] <= u'9'; ++m_at) {
            group = group * 10 + (m_pattern[m_at] - u'0');
        }
        return [=, this](auto at, auto &next) {
            const auto [start, end] = m_spans[group + 1];
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

// What `pattern`, which is one that compiles and has no abbreviations, finds in `text`: a
// description, "no", or nothing at all when that takes more than `steps`. Case counts.
inline std::string match(const std::u16string &pattern, const std::u16string &text, int steps) {
    try {
        return Model(pattern, text, steps).Run();
    } catch (const OutOfSteps &) {
        return "";
    }
}

}  // namespace regex_model

#endif  // OSTREL_FUZZ_REGEX_MODEL_H
