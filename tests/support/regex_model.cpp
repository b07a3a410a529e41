#include "support/regex_model.h"

#include <algorithm>
#include <cstdlib>

namespace test {

using namespace OS::regex;

namespace {

struct OutOfSteps {};

constexpr bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

}  // namespace

std::shared_ptr<ModelNode> ModelNode::Clone() const {
    auto copy = std::make_shared<ModelNode>(*this);
    for (auto &part : copy->parts) {
        part = part->Clone();
    }
    return copy;
}

RegexModel::RegexModel(std::u16string pattern, bool case_sensitive)
    : m_pattern(std::move(pattern)), m_case_sensitive(case_sensitive) {
    std::transform(m_pattern.begin(), m_pattern.end(), m_pattern.begin(),
                   [this](char16_t c) { return Fold(c); });
    m_anchored = Peek() == u'^';
    m_at = m_anchored ? 1 : 0;
    bool empty = true;
    m_root = ParseSequence(empty);
    if (error != 0) {
        return;
    }
    Put(OpCall, 2);
    Put(m_anchored ? OpFail : OpAdvance);
    Emit(*m_root);
    Put(OpMatch);
}

char16_t RegexModel::Fold(char16_t c) const {
    return !m_case_sensitive && c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
}

char16_t RegexModel::Peek(std::size_t ahead) const {
    return m_at + ahead < m_pattern.size() ? m_pattern[m_at + ahead] : u'\0';
}

RegexModel::Node RegexModel::Fail(int code_of_error) {
    error = code_of_error;
    return nullptr;
}

RegexModel::Node RegexModel::ParseSequence(bool &empty) {
    auto sequence = std::make_shared<ModelNode>(ModelNode{ModelNode::kSequence});
    for (bool first = true;; first = false) {
        bool part_empty = first ? empty : true;
        const Node part = ParseAlternation(part_empty);
        if (part == nullptr) {
            return error == 0 ? sequence : nullptr;
        }
        sequence->parts.push_back(part);
        empty = first ? part_empty : empty && part_empty;
    }
}

RegexModel::Node RegexModel::ParseAlternation(bool &empty) {
    bool left_empty = empty;
    const Node left = ParseElement(left_empty);
    if (left == nullptr) {
        return nullptr;
    }
    if (Peek() != u'|') {
        empty = left_empty;
        return left;
    }
    ++m_at;
    bool right_empty = false;
    const Node right = ParseAlternation(right_empty);
    if (right == nullptr) {
        return nullptr;
    }
    empty = left_empty || right_empty;
    return std::make_shared<ModelNode>(ModelNode{ModelNode::kAlternation, 0, {}, {left, right}});
}

RegexModel::Node RegexModel::ParseElement(bool &empty) {
    const std::size_t at = m_at;
    const unsigned groups = group_count;
    Node atom = ParseAtom(empty);
    const char16_t quantifier = Peek();
    if (atom == nullptr || (quantifier != u'*' && quantifier != u'+' && quantifier != u'?')) {
        return atom;
    }
    m_at = at;
    group_count = groups;
    empty = false;
    atom = ParseAtom(empty);
    if (empty && quantifier != u'?') {
        return Fail(RegexEmptyRepeat);
    }
    ++m_at;
    const bool lazy = Peek() == u'?';
    m_at += lazy ? 1 : 0;
    empty = quantifier != u'+' || lazy;
    if (quantifier != u'+') {
        return std::make_shared<ModelNode>(
            ModelNode{ModelNode::kRepeat, 0, {}, {atom}, quantifier, lazy});
    }
    const Node more = std::make_shared<ModelNode>(
        ModelNode{ModelNode::kRepeat, 0, {}, {atom->Clone()}, u'*', lazy});
    return std::make_shared<ModelNode>(ModelNode{ModelNode::kSequence, 0, {}, {atom, more}});
}

RegexModel::Node RegexModel::ParseAtom(bool &empty) {
    const char16_t c = Peek();
    if (c == 0 || c == u'}' || c == u']' || c == u')') {
        return nullptr;
    }
    ++m_at;
    if (c == u'\\') {
        return ParseEscape(empty);
    }
    if (c == u'{') {
        const unsigned group = group_count++;
        const Node inner = ParseBracket(u'}', RegexBraceExpected, empty);
        return inner == nullptr
                   ? nullptr
                   : std::make_shared<ModelNode>(ModelNode{ModelNode::kGroup, group, {}, {inner}});
    }
    if (c == u'(') {
        // The value tells a parenthesis from a sequence that is none.
        const Node inner = ParseBracket(u')', RegexParenExpected, empty);
        return inner == nullptr
                   ? nullptr
                   : std::make_shared<ModelNode>(ModelNode{ModelNode::kSequence, 1, {}, {inner}});
    }
    if (c == u'!') {
        const Node inner = ParseAtom(empty);
        return inner == nullptr
                   ? nullptr
                   : std::make_shared<ModelNode>(ModelNode{ModelNode::kLookAhead, 0, {}, {inner}});
    }
    empty = false;
    if (c == u'[') {
        return ParseSet();
    }
    if (c == u'.') {
        return std::make_shared<ModelNode>(ModelNode{ModelNode::kAny});
    }
    const bool end = c == u'$' && Peek() == 0;
    return std::make_shared<ModelNode>(ModelNode{ModelNode::kSymbol, end ? 0U : c});
}

RegexModel::Node RegexModel::ParseBracket(char16_t closing, int missing, bool &empty) {
    const Node inner = ParseSequence(empty);
    if (inner != nullptr && Peek() != closing) {
        return Fail(missing);
    }
    ++m_at;
    return inner;
}

RegexModel::Node RegexModel::ParseSet() {
    auto set = std::make_shared<ModelNode>(ModelNode{ModelNode::kSet});
    if (Peek() == u'^') {
        ++m_at;
        set->kind = ModelNode::kNotSet;
    }
    for (; Peek() != u']'; ++m_at) {
        char16_t low = Peek();
        if (low == u'\\') {
            ++m_at;
            low = Peek() == u't' ? u'\t' : Peek();
        }
        char16_t high = low;
        if (low != 0 && Peek(1) == u'-') {
            m_at += 2;
            high = Peek() == u']' ? u'\0' : Peek();
        }
        if (low == 0 || high == 0) {
            return Fail(RegexBracketExpected);
        }
        if (high < low) {
            return Fail(RegexBadRange);
        }
        set->ranges.emplace_back(low, high);
    }
    ++m_at;
    return set->ranges.empty() ? Fail(RegexEmptySet) : set;
}

RegexModel::Node RegexModel::ParseEscape(bool &empty) {
    static const std::pair<char16_t, const char16_t *> kAbbreviations[] = {
        {u'a', u"([a-zA-Z0-9])"}, {u'b', u"([ \\t])"},      {u'c', u"([a-zA-Z])"},
        {u'd', u"([0-9])"},       {u'h', u"([0-9a-fA-F])"}, {u'n', u"(\r|(\r?\n))"},
        {u'q', u"(\"[^\"]*\")"},  {u'w', u"([a-zA-Z]+)"},   {u'z', u"([0-9]+)"}};
    const char16_t c = Peek();
    if (c == 0) {
        return Fail(RegexBadAbbreviation);
    }
    if (is_digit(c)) {
        empty = false;
        std::string digits;
        for (; is_digit(Peek()); ++m_at) {
            digits += static_cast<char>(Peek());
        }
        const unsigned long group = std::strtoul(digits.c_str(), nullptr, 10);
        if (group >= group_count) {
            return Fail(RegexBadGroup);
        }
        return std::make_shared<ModelNode>(
            ModelNode{ModelNode::kBackReference, static_cast<unsigned>(group)});
    }
    ++m_at;
    for (const auto &[letter, text] : kAbbreviations) {
        if (c == letter) {
            const std::u16string pattern = std::exchange(m_pattern, text);
            const std::size_t at = std::exchange(m_at, 0);
            Node element = ParseElement(empty);
            m_pattern = pattern;
            m_at = at;
            return element;
        }
    }
    return std::make_shared<ModelNode>(ModelNode{ModelNode::kSymbol, c});
}

std::size_t RegexModel::Put(InstructionKind kind, Word operand) {
    code.push_back({kind, operand});
    return code.size() - 1;
}

void RegexModel::Emit(const ModelNode &node) {
    const auto inner = [&](const ModelNode &part) {
        const std::size_t before = code.size();
        Emit(part);
        if (code.size() == before) {
            Put(OpNop);
        }
    };
    switch (node.kind) {
        case ModelNode::kSymbol:
            Put(OpSymbol, node.value);
            break;
        case ModelNode::kAny:
            Put(OpAny);
            break;
        case ModelNode::kSet:
        case ModelNode::kNotSet:
            Put(node.kind == ModelNode::kSet ? OpRange : OpNotRange,
                code.size() + 1 + 2 * node.ranges.size());
            for (const auto &[low, high] : node.ranges) {
                Put(OpNop, low);
                Put(OpNop, high);
            }
            break;
        case ModelNode::kGroup:
            Put(OpPushGroup, node.value);
            Put(OpGroupStart, node.value);
            Put(OpCall, code.size() + 3);
            Put(OpPopGroup, node.value);
            Put(OpReturn);
            inner(*node.parts[0]);
            Put(OpGroupEnd, node.value);
            break;
        case ModelNode::kSequence:
            if (node.value == 1) {
                Put(OpCall, code.size() + 2);
                Put(OpReturn);
                inner(*node.parts[0]);
                break;
            }
            for (const Node &part : node.parts) {
                Emit(*part);
            }
            break;
        case ModelNode::kLookAhead: {
            const unsigned slot = slot_count;
            slot_count += 2;
            Put(OpStorePos, slot);
            Put(OpStoreStack, slot + 1);
            Put(OpCall, code.size() + 4);
            Put(OpLoadPos, slot);
            Put(OpLoadStack, slot + 1);
            const std::size_t jump = Put(OpJump);
            Emit(*node.parts[0]);
            Put(OpLoadPos, slot);
            Put(OpLoadStack, slot + 1);
            Put(OpReturn);
            code[jump].operand = code.size();
            break;
        }
        case ModelNode::kAlternation: {
            Put(OpPushPos);
            Put(OpCall, code.size() + 3);
            Put(OpPopPos);
            const std::size_t right = Put(OpJump);
            Emit(*node.parts[0]);
            const std::size_t end = Put(OpJump);
            code[right].operand = code.size();
            Emit(*node.parts[1]);
            code[end].operand = code.size();
            break;
        }
        case ModelNode::kBackReference:
            Put(OpBackReference, node.value);
            break;
        case ModelNode::kRepeat:
            EmitRepeat(node);
            break;
    }
}

void RegexModel::EmitRepeat(const ModelNode &node) {
    const std::size_t start = code.size();
    if (node.lazy) {
        Put(OpCall);
        Emit(*node.parts[0]);
        if (node.quantifier == u'*') {
            Put(OpJump, start);
        }
        code[start].operand = code.size();
        return;
    }
    const unsigned slot = slot_count++;
    Put(OpPushMemory, slot);
    Put(OpStorePos, slot);
    Put(OpPushPos);
    Put(OpCall, start + 7);
    Put(OpPopPos);
    Put(OpPopMemory, slot);
    const std::size_t jump = Put(OpJump);
    Emit(*node.parts[0]);
    Put(OpReturnIfNoProgress, slot);
    Put(OpStorePos, slot);
    if (node.quantifier == u'*') {
        Put(OpJump, start);
    }
    code[jump].operand = code.size();
}

RegexModel::Match RegexModel::Run(const std::u16string &text, int steps) {
    m_text = text;
    std::transform(m_text.begin(), m_text.end(), m_text.begin(),
                   [this](char16_t c) { return Fold(c); });
    m_steps = steps;
    m_match = {};
    m_match.groups.assign(group_count, {-1, -1});
    const Next end = [this](std::size_t at) {
        m_match.end = at;
        return true;
    };
    try {
        do {
            m_match.matched = Try(*m_root, m_match.start, end);
        } while (!m_match.matched && !m_anchored && ++m_match.start < m_text.size());
    } catch (const OutOfSteps &) {
        m_match.known = false;
    }
    return m_match;
}

bool RegexModel::FailAt(std::size_t at) {
    m_failed = at;
    return false;
}

bool RegexModel::Try(ModelNode &node, std::size_t at, const Next &next) {
    if (--m_steps < 0) {
        throw OutOfSteps();
    }
    const char16_t c = at < m_text.size() ? m_text[at] : u'\0';
    switch (node.kind) {
        case ModelNode::kSymbol:
            return c == node.value ? next(at + 1) : FailAt(at);
        case ModelNode::kAny:
            return c != 0 ? next(at + 1) : FailAt(at);
        case ModelNode::kSet:
        case ModelNode::kNotSet: {
            const bool within = std::any_of(
                node.ranges.begin(), node.ranges.end(),
                [c](const auto &range) { return range.first <= c && c <= range.second; });
            return c != 0 && within == (node.kind == ModelNode::kSet) ? next(at + 1) : FailAt(at);
        }
        case ModelNode::kGroup: {
            auto &group = m_match.groups[node.value];
            const auto saved = group;
            group.first = static_cast<std::ptrdiff_t>(at);
            if (Try(*node.parts[0], at, [&](std::size_t end) {
                    group.second = static_cast<std::ptrdiff_t>(end);
                    return next(end);
                })) {
                return true;
            }
            group = saved;
            return false;
        }
        case ModelNode::kSequence:
            return TrySequence(node, 0, at, next);
        case ModelNode::kLookAhead:
            return Try(*node.parts[0], at, [](std::size_t) { return true; }) ? FailAt(at)
                                                                             : next(at);
        case ModelNode::kAlternation:
            return Try(*node.parts[0], at, next) || Try(*node.parts[1], at, next);
        case ModelNode::kBackReference: {
            const auto [start, end] = m_match.groups[node.value];
            if (start < 0 || end < start) {
                return next(at);
            }
            const auto length = static_cast<std::size_t>(end - start);
            const bool again =
                m_text.compare(at, length, m_text, static_cast<std::size_t>(start), length) == 0;
            return again ? next(at + length) : FailAt(at);
        }
        case ModelNode::kRepeat:
            return TryRepeat(node, at, next);
    }
    return false;
}

bool RegexModel::TrySequence(ModelNode &node, std::size_t part, std::size_t at, const Next &next) {
    if (part == node.parts.size()) {
        return next(at);
    }
    return Try(*node.parts[part], at,
               [&, part](std::size_t end) { return TrySequence(node, part + 1, end, next); });
}

bool RegexModel::TryRepeat(ModelNode &node, std::size_t at, const Next &next) {
    if (--m_steps < 0) {
        throw OutOfSteps();
    }
    const bool once = node.quantifier == u'?';
    if (node.lazy) {
        return next(at) || Try(*node.parts[0], m_failed, [&](std::size_t end) {
                   return once ? next(end) : TryRepeat(node, end, next);
               });
    }
    const std::size_t saved = std::exchange(node.slot, at);
    if (Try(*node.parts[0], at, [&](std::size_t end) {
            if (end == node.slot) {
                return FailAt(end);
            }
            node.slot = end;
            return once ? next(end) : TryRepeat(node, end, next);
        })) {
        return true;
    }
    node.slot = saved;
    return next(at);
}

}  // namespace test
