#ifndef OSTREL_REGEX_REGEX_COMPILER_H
#define OSTREL_REGEX_REGEX_COMPILER_H

// Internal. Compiles a pattern in one pass, from left to right, and reads each character once.
//
// The suffix of an atom decides how the code of the atom begins. The compiler therefore moves the
// code of an atom once it has read the suffix; for deeply nested brackets it reads the suffix
// before the content (regex_suffix.h). Code that the program needs twice is copied, unless the
// suffixes tell that the program becomes too long: then the pattern is only checked, up to the
// bracket at which that happens, because an error before that bracket is the result. So the time is
// proportional to the lengths of the pattern and of the program, and the thread's stack does not
// grow with the depth of the pattern.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <vector>

#include "ostrel/platform/types.h"
#include "ostrel/regex/regex_program.h"
#include "ostrel/regex/regex_suffix.h"

namespace OS::regex {

class Compiler {
public:
    // Writes the program to `program`, which must be empty. `memory` serves working data only.
    Compiler(CompiledPattern &program, std::pmr::memory_resource *memory);

    // Returns RegexOk. On failure returns the first error of the pattern and leaves no program.
    RegexResult Compile(const WCHAR *pattern);

private:
    enum class Opener : std::uint8_t { kPattern, kGroup, kParenthesis, kAbbreviation };

    // Whether code can match the empty text: no, undecided, yes. An escaped character leaves the
    // answer to the code around it.
    enum class Emptiness : std::uint8_t { kCleared, kKept, kSet };

    // The element that is being compiled.
    struct Element {
        std::uint32_t start;            // index of its first instruction
        std::uint32_t atom;             // index of the first one of its atom and look-aheads
        std::uint32_t slot;             // the first memory slot of its atom
        std::uint32_t look_aheads = 0;  // number of look-aheads before the atom
        bool headed = false;            // the head that the suffix needs has been written
    };

    // A sequence that is being compiled.
    struct Sequence {
        Opener opener;
        std::uint32_t value = 0;    // the group's number, the abbreviation's index
        std::uint32_t start;        // index of its first instruction
        std::uint32_t alternation;  // index of the first instruction of its last alternation
        std::uint32_t slot;         // the first memory slot of that alternation
        std::uint32_t jumps = 0;    // index of the last jump to the end of that alternation
        Emptiness whole = Emptiness::kKept;  // of the code before that alternation
        Emptiness last = Emptiness::kKept;   // of that alternation's left sides
        Element element;
        const WCHAR *resume = nullptr;  // the pattern after an abbreviation
    };

    // The first code of an abbreviation; size 0 means that there is none.
    struct Expansion {
        std::uint32_t start = 0;
        std::uint32_t size = 0;
        std::uint32_t slot = 0;
        std::uint32_t slots = 0;
        Emptiness emptiness = Emptiness::kKept;
    };

    RegexResult CompileSequence(const WCHAR *pattern);
    RegexResult CompileAtom();
    RegexResult CompileLeaf(InstructionKind kind, Word operand, Emptiness emptiness);
    RegexResult CompileSet();
    RegexResult CompileRange();
    RegexResult CompileEscape();
    RegexResult CompileBackReference();
    RegexResult CompileAbbreviation(std::uint32_t index);
    void BeginLookAhead();
    RegexResult OpenGroup();
    RegexResult OpenParenthesis();
    RegexResult CloseBracket();

    void BeginSequence(Opener opener, std::uint32_t value);
    RegexResult FinishSequence();
    void BeginElement(Sequence &sequence) const;
    RegexResult FinishAtom(Emptiness emptiness);
    RegexResult FinishSuffix(Emptiness emptiness);
    void FinishLeftSide(Emptiness emptiness);
    RegexResult FinishAlternation(Emptiness emptiness);
    void LeadJumps(Sequence &sequence);
    RegexResult FinishAbbreviation();
    void DropIncomplete();

    void AnticipateSuffix();
    void WriteHeads(Element &element, Suffix suffix);
    void WriteLookAheadTails(const Element &element);
    void WriteQuantifierTail(const Element &element, Suffix suffix);
    void WriteLoopHead(Instruction *target, std::uint32_t index, std::uint32_t slot);
    void WriteLoopTail(std::uint32_t head, Quantifier quantifier);

    Instruction &At(std::uint32_t index) { return m_program.instructions[index]; }
    Instruction *Take(std::uint32_t count);
    template <class... Instructions>
    void Add(Instructions... instructions);
    void Grow(std::uint32_t count);
    void Copy(std::uint32_t start, std::uint32_t size, std::uint32_t slot, std::uint32_t slots);

    CompiledPattern &m_program;
    std::uint32_t m_next = 0;          // index of the next instruction
    const WCHAR *m_pattern = nullptr;  // without its `^`
    const WCHAR *m_at = nullptr;
    bool m_ended = false;
    bool m_inAbbreviation = false;
    std::pmr::vector<Sequence> m_sequences;
    std::pmr::vector<Suffix> m_bracketSuffixes;  // empty until they are needed
    const WCHAR *m_tooLongAt = nullptr;          // where the program exceeds its limit
    std::size_t m_brackets = 0;                  // number of brackets opened so far
    std::array<Expansion, 9> m_expansions;       // one for each abbreviation
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_COMPILER_H
