#include "ostrel/regex/regex_compiler.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>

namespace OS::regex {

namespace {

// Each entry is a letter and the pattern for which the letter stands. Only the first element of the
// pattern counts.
constexpr const WCHAR *kAbbreviationTexts[] = {
    TEXT("a([a-zA-Z0-9])"),
    TEXT("b([ \\t])"),
    TEXT("c([a-zA-Z])"),
    TEXT("d([0-9])"),
    TEXT("h([0-9a-fA-F])"),
    TEXT("n(\r|(\r?\n))"),
    TEXT("q(\"[^\"]*\")|('[^']*')"),
    TEXT("w([a-zA-Z]+)"),
    TEXT("z([0-9]+)"),
};

constexpr std::uint8_t kAbbreviations = std::size(kAbbreviationTexts);

// The index of the entry for each ASCII character; kAbbreviations for a character without an entry.
constexpr auto kAbbreviationIndexes = [] {
    std::array<std::uint8_t, 128> indexes{};
    indexes.fill(kAbbreviations);
    for (std::uint8_t i = kAbbreviations; i-- != 0;) {
        indexes[kAbbreviationTexts[i][0]] = i;
    }
    return indexes;
}();

std::uint32_t find_abbreviation(WCHAR letter) {
    return letter < kAbbreviationIndexes.size() ? kAbbreviationIndexes[letter] : kAbbreviations;
}

// Sizes of the code before an atom, in instructions.
constexpr std::uint32_t kAlternationHead = 4;
constexpr std::uint32_t kLoopHead = 7;
constexpr std::uint32_t kLazyHead = 1;
constexpr std::uint32_t kLookAheadHead = 6;

constexpr std::uint32_t kBodyStart = 2;

constexpr bool is_digit(WCHAR character) {
    return character >= TEXT('0') && character <= TEXT('9');
}

// What an operand holds, which decides how a move of the instruction changes it.
enum Operand : std::uint8_t { kFixed, kIndex, kSlot };

constexpr Operand kOperands[] = {
    kFixed,  // OpNop
    kFixed,  // OpGroupStart
    kFixed,  // OpGroupEnd
    kFixed,  // OpSymbol
    kFixed,  // OpAny
    kIndex,  // OpRange
    kIndex,  // OpNotRange
    kIndex,  // OpJump
    kFixed,  // OpPushPos
    kFixed,  // OpPopPos
    kIndex,  // OpCall
    kFixed,  // OpReturn
    kSlot,   // OpPushMemory
    kSlot,   // OpPopMemory
    kSlot,   // OpStorePos
    kSlot,   // OpStoreStack
    kSlot,   // OpLoadPos
    kSlot,   // OpLoadStack
    kSlot,   // OpReturnIfNoProgress
    kFixed,  // OpBackReference
    kFixed,  // OpFail
    kFixed,  // OpAdvance
    kFixed,  // OpMatch
    kFixed,  // OpPushGroup
    kFixed,  // OpPopGroup
};
static_assert(std::size(kOperands) == OpPopGroup + 1);

// Moves or copies instructions and adapts their operands. Their indexes must be among themselves or
// the one right after them. `to` must not be before `from`.
void relocate(const Instruction *from, Instruction *to, std::uint32_t count, Word slotDistance) {
    const Word changes[] = {0, static_cast<Word>(to - from), slotDistance};
    for (std::uint32_t i = count; i-- != 0;) {
        const Instruction instruction = from[i];
        to[i] = {instruction.kind, instruction.operand + changes[kOperands[instruction.kind]]};
    }
}

}  // namespace

Compiler::Compiler(CompiledPattern &program, std::pmr::memory_resource *memory)
    : m_program(program), m_sequences(memory), m_bracketSuffixes(memory) {
    static_assert(std::tuple_size_v<decltype(m_expansions)> == kAbbreviations);
}

// Reserves the next `count` instructions and returns the first. Throws std::bad_alloc when memory
// is short or the program would have more than kMaxInstructions.
inline Instruction *Compiler::Take(std::uint32_t count) {
    if (count > m_program.instructions.Count() - m_next) {
        Grow(count);
    }
    Instruction *const first = m_program.instructions.Data() + m_next;
    m_next += count;
    return first;
}

template <class... Instructions>
inline void Compiler::Add(Instructions... instructions) {
    Instruction *next = Take(sizeof...(instructions));
    ((*next++ = instructions), ...);
}

RegexResult Compiler::Compile(const WCHAR *pattern) {
    RegexResult result = RegexOutOfMemory;
    try {
        m_sequences.reserve(8);
        result = CompileSequence(pattern);
    } catch (const std::bad_alloc &) {
        result = m_inAbbreviation ? RegexBadAbbreviation : RegexOutOfMemory;
    } catch (const std::length_error &) {
    }
    if (result != RegexOk) {
        m_program.instructions.Clear();
    }
    return result;
}

// The program begins with a call of the code that follows. The call pushes the index of the second
// instruction, to which the match returns when everything else has failed.
RegexResult Compiler::CompileSequence(const WCHAR *pattern) {
    const bool anchored = *pattern == TEXT('^');
    m_at = anchored ? pattern + 1 : pattern;
    m_pattern = m_at;
    Add(Instruction{OpCall, kBodyStart}, Instruction{anchored ? OpFail : OpAdvance, 0});
    BeginSequence(Opener::kPattern, 0);
    while (!m_ended) {
        const RegexResult result = CompileAtom();
        if (result != RegexOk) {
            return result;
        }
    }
    Add(Instruction{OpMatch, 0});
    return m_program.instructions.Resize(m_next) ? RegexOk : RegexOutOfMemory;
}

// Compiles the atom, look-ahead, or opening or closing bracket at the current position.
RegexResult Compiler::CompileAtom() {
    const WCHAR character = *m_at;
    switch (character) {
        case 0:
        case TEXT('}'):
        case TEXT(']'):
        case TEXT(')'):
            return FinishSequence();
        case TEXT('{'):
            return OpenGroup();
        case TEXT('('):
            return OpenParenthesis();
        case TEXT('!'):
            BeginLookAhead();
            return RegexOk;
        case TEXT('['):
            return CompileSet();
        case TEXT('\\'):
            return CompileEscape();
        case TEXT('.'):
            ++m_at;
            return CompileLeaf(OpAny, 0, Emptiness::kCleared);
        case TEXT('$'):
            ++m_at;
            return CompileLeaf(OpSymbol, *m_at == 0 ? 0 : character, Emptiness::kCleared);
        default:
            ++m_at;
            return CompileLeaf(OpSymbol, character, Emptiness::kCleared);
    }
}

RegexResult Compiler::CompileLeaf(InstructionKind kind, Word operand, Emptiness emptiness) {
    Add(Instruction{kind, operand});
    return FinishAtom(emptiness);
}

RegexResult Compiler::CompileSet() {
    const std::uint32_t set = m_next;
    const bool inverted = *++m_at == TEXT('^');
    m_at += inverted ? 1 : 0;
    if (*m_at == TEXT(']')) {
        return RegexEmptySet;
    }
    Add(Instruction{inverted ? OpNotRange : OpRange, 0});
    do {
        const RegexResult result = CompileRange();
        if (result != RegexOk) {
            return result;
        }
    } while (*m_at != TEXT(']'));
    ++m_at;
    At(set).operand = m_next;
    return FinishAtom(Emptiness::kCleared);
}

// Compiles one member of a set: a character, or a range.
RegexResult Compiler::CompileRange() {
    WCHAR low = *m_at;
    if (low == TEXT('\\')) {
        low = *++m_at == TEXT('t') ? TEXT('\t') : *m_at;
    }
    if (low == 0) {
        return RegexBracketExpected;
    }
    WCHAR high = low;
    if (*++m_at == TEXT('-')) {
        high = *++m_at;
        if (high == 0 || high == TEXT(']')) {
            return RegexBracketExpected;
        }
        if (high < low) {
            return RegexBadRange;
        }
        ++m_at;
    }
    Add(Instruction{OpNop, low}, Instruction{OpNop, high});
    return RegexOk;
}

RegexResult Compiler::CompileEscape() {
    const WCHAR character = *++m_at;
    if (character == 0) {
        return RegexBadAbbreviation;
    }
    if (is_digit(character)) {
        return CompileBackReference();
    }
    ++m_at;
    const std::uint32_t abbreviation = find_abbreviation(character);
    if (abbreviation < kAbbreviations) {
        return CompileAbbreviation(abbreviation);
    }
    return CompileLeaf(OpSymbol, character, Emptiness::kKept);
}

RegexResult Compiler::CompileBackReference() {
    constexpr std::uint64_t kMaxNumber = 0x7FFFFFFF;
    std::uint64_t number = 0;
    for (; is_digit(*m_at); ++m_at) {
        number = std::min<std::uint64_t>(number * 10 + (*m_at - TEXT('0')), kMaxNumber);
    }
    if (number >= m_program.groupCount) {
        return RegexBadGroup;
    }
    return CompileLeaf(OpBackReference, static_cast<Word>(number), Emptiness::kCleared);
}

// The first use of an abbreviation compiles its text; later uses copy the code.
RegexResult Compiler::CompileAbbreviation(std::uint32_t index) {
    const Expansion &known = m_expansions[index];
    if (known.size != 0) {
        m_inAbbreviation = true;
        Copy(known.start, known.size, known.slot, known.slots);
        m_inAbbreviation = false;
        return FinishAtom(known.emptiness);
    }
    const WCHAR *const resume = m_at;
    WriteHeads(m_sequences.back().element, read_suffix(m_at));
    m_inAbbreviation = true;
    BeginSequence(Opener::kAbbreviation, index);
    m_sequences.back().resume = resume;
    m_at = kAbbreviationTexts[index] + 1;
    return RegexOk;
}

void Compiler::BeginLookAhead() {
    ++m_at;
    const std::uint32_t position = m_program.memoryCount++;
    const std::uint32_t depth = m_program.memoryCount++;
    Add(Instruction{OpStorePos, position}, Instruction{OpStoreStack, depth},
        Instruction{OpCall, m_next + kLookAheadHead}, Instruction{OpLoadPos, position},
        Instruction{OpLoadStack, depth}, Instruction{OpJump, 0});
    ++m_sequences.back().element.look_aheads;
}

RegexResult Compiler::OpenGroup() {
    AnticipateSuffix();
    const std::uint32_t group = m_program.groupCount++;
    Add(Instruction{OpPushGroup, group}, Instruction{OpGroupStart, group},
        Instruction{OpCall, m_next + 5}, Instruction{OpPopGroup, group}, Instruction{OpReturn, 0});
    BeginSequence(Opener::kGroup, group);
    return RegexOk;
}

RegexResult Compiler::OpenParenthesis() {
    AnticipateSuffix();
    Add(Instruction{OpCall, m_next + 2}, Instruction{OpReturn, 0});
    BeginSequence(Opener::kParenthesis, 0);
    return RegexOk;
}

// Steps over an opening bracket. For a deeply nested bracket also writes the head that its suffix
// needs, because moving the content later would take time that grows with the depth.
void Compiler::AnticipateSuffix() {
    constexpr std::size_t kDeep = 16;
    ++m_at;
    if (m_inAbbreviation) {
        return;
    }
    const std::size_t bracket = m_brackets++;
    if (m_sequences.size() < kDeep) {
        return;
    }
    if (m_bracketSuffixes.empty()) {
        m_tooLongAt = read_bracket_suffixes(m_pattern, m_bracketSuffixes);
    }
    WriteHeads(m_sequences.back().element, m_bracketSuffixes.at(bracket));
}

RegexResult Compiler::CloseBracket() {
    if (m_at == m_tooLongAt) {
        return RegexOutOfMemory;
    }
    ++m_at;
    const Sequence sequence = m_sequences.back();
    m_sequences.pop_back();
    if (sequence.start == m_next) {
        Add(Instruction{OpNop, 0});
    }
    if (sequence.opener == Opener::kGroup) {
        Add(Instruction{OpGroupEnd, sequence.value});
    }
    return FinishAtom(sequence.whole);
}

void Compiler::BeginSequence(Opener opener, std::uint32_t value) {
    Sequence &sequence = m_sequences.emplace_back();
    sequence.opener = opener;
    sequence.value = value;
    sequence.start = m_next;
    sequence.alternation = m_next;
    sequence.slot = m_program.memoryCount;
    BeginElement(sequence);
}

// Ends the sequence at the end of the pattern or at a closing bracket.
RegexResult Compiler::FinishSequence() {
    DropIncomplete();
    switch (m_sequences.back().opener) {
        case Opener::kGroup:
            return *m_at == TEXT('}') ? CloseBracket() : RegexBraceExpected;
        case Opener::kParenthesis:
            return *m_at == TEXT(')') ? CloseBracket() : RegexParenExpected;
        default:
            m_ended = true;
            return RegexOk;
    }
}

// Drops an alternation without a right side and a `!` without an atom. Groups in the dropped code
// still count, because the order of the opening braces alone decides the number of a group.
void Compiler::DropIncomplete() {
    const Sequence &sequence = m_sequences.back();
    if (sequence.alternation == m_next) {
        return;
    }
    m_next = sequence.alternation;
    m_program.memoryCount = sequence.slot;
    for (Expansion &expansion : m_expansions) {
        if (expansion.start >= m_next) {
            expansion.size = 0;
        }
    }
}

void Compiler::BeginElement(Sequence &sequence) const {
    sequence.element = {.start = m_next, .atom = m_next, .slot = m_program.memoryCount};
}

// Continues after an atom.
RegexResult Compiler::FinishAtom(Emptiness emptiness) {
    if (begins_suffix(*m_at) || m_sequences.back().element.look_aheads != 0) {
        return FinishSuffix(emptiness);
    }
    return FinishAlternation(emptiness);
}

RegexResult Compiler::FinishSuffix(Emptiness emptiness) {
    Sequence &sequence = m_sequences.back();
    Element &element = sequence.element;
    Suffix suffix = read_suffix(m_at);
    // The text of an abbreviation ends after its first element.
    suffix.alternative = suffix.alternative && sequence.opener != Opener::kAbbreviation;
    WriteLookAheadTails(element);
    if (!element.headed) {
        WriteHeads(element, suffix);
    }
    if (suffix.quantifier != Quantifier::kNone) {
        if (suffix.quantifier != Quantifier::kQuestion && emptiness == Emptiness::kSet) {
            return RegexEmptyRepeat;
        }
        WriteQuantifierTail(element, suffix);
        emptiness = suffix.quantifier == Quantifier::kPlus && !suffix.lazy ? Emptiness::kCleared
                                                                           : Emptiness::kSet;
    }
    if (!suffix.alternative) {
        return FinishAlternation(emptiness);
    }
    FinishLeftSide(emptiness);
    return RegexOk;
}

// Continues after an element and its `|`. LeadJumps later sets the target of the jump over the
// other alternatives. Until then each of these jumps holds the index of the previous jump.
void Compiler::FinishLeftSide(Emptiness emptiness) {
    Sequence &sequence = m_sequences.back();
    if (sequence.jumps == 0 || emptiness == Emptiness::kSet) {
        sequence.last = emptiness;
    }
    At(sequence.element.start + kAlternationHead - 1).operand = m_next + 1;
    Add(Instruction{OpJump, sequence.jumps});
    sequence.jumps = m_next - 1;
    BeginElement(sequence);
}

// Continues after an element without a `|`.
RegexResult Compiler::FinishAlternation(Emptiness emptiness) {
    Sequence &sequence = m_sequences.back();
    if (sequence.jumps != 0) {
        emptiness = emptiness == Emptiness::kSet ? emptiness : sequence.last;
        LeadJumps(sequence);
    }
    if (sequence.alternation == sequence.start) {
        sequence.whole = emptiness;
    } else if (emptiness == Emptiness::kCleared) {
        sequence.whole = Emptiness::kCleared;
    }
    if (sequence.opener == Opener::kAbbreviation) {
        return FinishAbbreviation();
    }
    sequence.alternation = m_next;
    sequence.slot = m_program.memoryCount;
    BeginElement(sequence);
    return RegexOk;
}

void Compiler::LeadJumps(Sequence &sequence) {
    do {
        Word &operand = At(sequence.jumps).operand;
        sequence.jumps = static_cast<std::uint32_t>(operand);
        operand = m_next;
    } while (sequence.jumps != 0);
}

// Continues after the only element of an abbreviation's text.
RegexResult Compiler::FinishAbbreviation() {
    const Sequence sequence = m_sequences.back();
    m_sequences.pop_back();
    m_at = sequence.resume;
    m_inAbbreviation = false;
    m_expansions[sequence.value] = {.start = sequence.start,
                                    .size = m_next - sequence.start,
                                    .slot = sequence.slot,
                                    .slots = m_program.memoryCount - sequence.slot,
                                    .emptiness = sequence.whole};
    return FinishAtom(sequence.whole);
}

// Writes the head of an element in front of the code that its atom has so far. The operands that
// refer to the end of the element are set later.
void Compiler::WriteHeads(Element &element, Suffix suffix) {
    element.headed = true;
    const bool loop = !suffix.lazy && (suffix.quantifier == Quantifier::kStar ||
                                       suffix.quantifier == Quantifier::kQuestion);
    const bool lazy = suffix.lazy && suffix.quantifier != Quantifier::kPlus;
    const std::uint32_t size = (suffix.alternative ? kAlternationHead : 0) +
                               (loop ? kLoopHead : 0) + (lazy ? kLazyHead : 0);
    if (size == 0) {
        return;
    }
    const std::uint32_t present = m_next - element.start;
    Take(size);
    Instruction *const head = &At(element.start);
    relocate(head, head + size, present, loop ? 1 : 0);
    for (Expansion &expansion : m_expansions) {
        if (expansion.start >= element.start) {
            expansion.start += size;
            expansion.slot += loop ? 1 : 0;
        }
    }
    element.atom += size;
    if (suffix.alternative) {
        head[0] = {OpPushPos, 0};
        head[1] = {OpCall, element.start + kAlternationHead};
        head[2] = {OpPopPos, 0};
        head[3] = {OpJump, 0};
    }
    if (loop) {
        WriteLoopHead(head + size - kLoopHead, element.atom - kLoopHead, element.slot);
        ++element.slot;
        ++m_program.memoryCount;
    } else if (lazy) {
        head[size - kLazyHead] = {OpCall, 0};
    }
}

// Writes the head of a greedy loop to `target`, which is the instruction `index`. The body of the
// loop follows.
void Compiler::WriteLoopHead(Instruction *target, std::uint32_t index, std::uint32_t slot) {
    target[0] = {OpPushMemory, slot};
    target[1] = {OpStorePos, slot};
    target[2] = {OpPushPos, 0};
    target[3] = {OpCall, index + kLoopHead};
    target[4] = {OpPopPos, 0};
    target[5] = {OpPopMemory, slot};
    target[6] = {OpJump, 0};
}

// Writes the end of a greedy loop whose head is at the index `head`.
void Compiler::WriteLoopTail(std::uint32_t head, Quantifier quantifier) {
    const Word slot = At(head).operand;
    Add(Instruction{OpReturnIfNoProgress, slot}, Instruction{OpStorePos, slot});
    if (quantifier != Quantifier::kQuestion) {
        Add(Instruction{OpJump, head});
    }
    At(head + kLoopHead - 1).operand = m_next;
}

void Compiler::WriteLookAheadTails(const Element &element) {
    for (std::uint32_t left = element.look_aheads; left != 0; --left) {
        const std::uint32_t head = element.atom + (left - 1) * kLookAheadHead;
        const Word position = At(head).operand;
        Add(Instruction{OpLoadPos, position}, Instruction{OpLoadStack, position + 1},
            Instruction{OpReturn, 0});
        At(head + kLookAheadHead - 1).operand = m_next;
    }
}

void Compiler::WriteQuantifierTail(const Element &element, Suffix suffix) {
    const std::uint32_t atom = element.atom;
    const std::uint32_t size = m_next - atom;
    const std::uint32_t slots = m_program.memoryCount - element.slot;
    std::uint32_t head = m_next;
    if (suffix.quantifier != Quantifier::kPlus) {
        head = atom - (suffix.lazy ? kLazyHead : kLoopHead);
    } else if (suffix.lazy) {
        Add(Instruction{OpCall, 0});
        Copy(atom, size, element.slot, slots);
    } else {
        WriteLoopHead(Take(kLoopHead), head, m_program.memoryCount++);
        Copy(atom, size, element.slot, slots);
    }
    if (!suffix.lazy) {
        WriteLoopTail(head, suffix.quantifier);
        return;
    }
    if (suffix.quantifier != Quantifier::kQuestion) {
        Add(Instruction{OpJump, head});
    }
    At(head).operand = m_next;
}

void Compiler::Grow(std::uint32_t count) {
    const std::uint64_t needed = std::uint64_t{m_next} + count;
    const std::uint64_t doubled = 2 * std::uint64_t{m_next};
    const std::uint64_t size =
        std::min(std::max({needed, doubled, std::uint64_t{kLocalInstructions}}), kMaxInstructions);
    if (needed > kMaxInstructions ||
        !m_program.instructions.Resize(static_cast<std::size_t>(size))) {
        throw std::bad_alloc();
    }
}

// Adds a copy of the `size` instructions at `start`. The copy uses new slots in place of the
// `slots` slots from `slot` on. Has no effect when the program will be discarded as too long.
void Compiler::Copy(std::uint32_t start, std::uint32_t size, std::uint32_t slot,
                    std::uint32_t slots) {
    if (m_tooLongAt != nullptr) {
        return;
    }
    Instruction *const copy = Take(size);
    relocate(&At(start), copy, size, m_program.memoryCount - slot);
    m_program.memoryCount += slots;
}

}  // namespace OS::regex
