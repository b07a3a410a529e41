#ifndef OSTREL_TESTS_SUPPORT_REGEX_MODEL_H
#define OSTREL_TESTS_SUPPORT_REGEX_MODEL_H

// A second reading of the pattern language, as slow and plain as can be: a tree, the program that
// belongs to it, and a matcher that calls itself. For short patterns and texts.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/regex/regex_program.h"

namespace test {

struct ModelNode {
    enum Kind {
        kSymbol,
        kAny,
        kSet,
        kNotSet,
        kGroup,
        kSequence,
        kLookAhead,
        kAlternation,
        kBackReference,
        kRepeat
    };

    Kind kind;
    unsigned value = 0;  // character or group
    std::vector<std::pair<char16_t, char16_t>> ranges = {};
    std::vector<std::shared_ptr<ModelNode>> parts = {};
    char16_t quantifier = 0;
    bool lazy = false;
    std::size_t slot = 0;  // where the current iteration began

    std::shared_ptr<ModelNode> Clone() const;
};

class RegexModel {
public:
    RegexModel(std::u16string pattern, bool case_sensitive);

    int error = 0;
    unsigned group_count = 0;
    unsigned slot_count = 0;
    std::vector<OS::regex::Instruction> code;

    struct Match {
        bool known = true;  // the bound on the steps has not been met
        bool matched = false;
        std::size_t start = 0;
        std::size_t end = 0;
        std::vector<std::pair<std::ptrdiff_t, std::ptrdiff_t>> groups;  // -1 for none
    };
    Match Run(const std::u16string &text, int steps);

private:
    using Node = std::shared_ptr<ModelNode>;
    using Next = std::function<bool(std::size_t)>;

    Node ParseSequence(bool &empty);
    Node ParseAlternation(bool &empty);
    Node ParseElement(bool &empty);
    Node ParseAtom(bool &empty);
    Node ParseBracket(char16_t closing, int missing, bool &empty);
    Node ParseSet();
    Node ParseEscape(bool &empty);
    char16_t Peek(std::size_t ahead = 0) const;
    Node Fail(int code);

    void Emit(const ModelNode &node);
    void EmitRepeat(const ModelNode &node);
    std::size_t Put(OS::regex::InstructionKind kind, OS::regex::Word operand = 0);

    bool Try(ModelNode &node, std::size_t at, const Next &next);
    bool TrySequence(ModelNode &node, std::size_t part, std::size_t at, const Next &next);
    bool TryRepeat(ModelNode &node, std::size_t at, const Next &next);
    bool FailAt(std::size_t at);
    char16_t Fold(char16_t character) const;

    std::u16string m_pattern;
    bool m_case_sensitive;
    std::size_t m_at = 0;
    bool m_anchored = false;
    Node m_root;
    std::u16string m_text;
    int m_steps = 0;
    Match m_match;
    // Where the last step failed: that is where the body of a lazy quantifier begins, whose code
    // does not bring the position back.
    std::size_t m_failed = 0;
};

}  // namespace test

#endif  // OSTREL_TESTS_SUPPORT_REGEX_MODEL_H
