#ifndef OSTREL_REGEX_REGEX_PROGRAM_H
#define OSTREL_REGEX_REGEX_PROGRAM_H

// Internal. Patterns of the validators, compiled into programs for the matcher.
//
// The language is not the common one:
//
//   ^        as the very first character: the match begins where the text begins
//   $        as the very last character: the end of the text; a literal elsewhere
//   .        any character
//   {x}      a capture group; groups are numbered from 0 in the order of their opening braces
//   (x)      a group without capture
//   [a-z\t]  a set of characters and ranges, [^a-z] its complement; \t is the tab, other characters
//            behind a backslash stand for themselves
//   !x       succeeds, and consumes nothing, where the atom x does not match
//   x|y      x or y; both are single elements: ab|cd is a, then b or c, then d
//   x* x+ x? zero or more, one or more, zero or one; with a further ? the shortest first, and then
//            going on where that failed, not where it began
//   \0       what that group has captured; the group must have been opened before
//   \d       an abbreviation: \a letter or digit, \b blank or tab, \c letter, \d digit,
//            \h hexadecimal digit, \n line end, \q text in double quotes, \w letters, \z digits
//   \.       any other character behind a backslash: that character
//
// A closing bracket that closes nothing ends the pattern without an error, and a `|` with nothing
// on its right is dropped together with its left side.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/types.h"
#include "ostrel/regex/growing_array.h"

namespace OS::regex {

class MatchContext;

using Word = std::uintptr_t;

enum InstructionKind : std::int32_t {
    OpNop,
    OpGroupStart,          // group: its start becomes the position
    OpGroupEnd,            // group: its end becomes the position
    OpSymbol,              // character: match it; 0 matches the end of the text
    OpAny,                 // match any character
    OpRange,               // index behind the set: match a character within one of its ranges
    OpNotRange,            // the same, within none of them
    OpJump,                // index: go there
    OpPushPos,             // push the position
    OpPopPos,              // pop the position
    OpCall,                // index: push the next index, go there
    OpReturn,              // pop an index, go there
    OpPushMemory,          // slot: push its value
    OpPopMemory,           // slot: pop its value
    OpStorePos,            // slot: takes the position
    OpStoreStack,          // slot: takes the depth of the stack
    OpLoadPos,             // slot: the position becomes its value
    OpLoadStack,           // slot: the depth of the stack becomes its value
    OpReturnIfNoProgress,  // slot: OpReturn if the position equals its value
    OpBackReference,       // group: match its text again
    OpFail,                // end without a match
    OpAdvance,             // start again one character further on
    OpMatch,               // end with a match
    OpPushGroup,           // group: push its start and its end
    OpPopGroup,            // group: pop its end and its start
};

// One step of a program. The ranges of a set stand behind its OpRange or OpNotRange, as two OpNop
// each: the low and the high character. They are data.
struct Instruction {
    InstructionKind kind;
    Word operand;  // 0 where the kind has none
};

enum RegexResult : std::int32_t {
    RegexOk = 0,
    RegexOutOfMemory = 1,
    RegexBraceExpected = 2,
    RegexParenExpected = 3,
    RegexBracketExpected = 4,  // also: a range lacks its high end
    RegexBadAbbreviation = 5,  // also: nothing behind a backslash
    RegexEmptySet = 6,
    RegexBadGroup = 7,     // \n before that group's opening brace
    RegexBadRange = 8,     // the high end lies below the low one
    RegexEmptyRepeat = 9,  // * + *? or +? on what can match the empty text
    RegexNullPattern = 10,
};

// Holds the programs of the validators.
inline constexpr std::size_t kLocalInstructions = 512;

// One compiled pattern.
//
// Threads: Match does not change it, so that one object serves any number of contexts.
struct CompiledPattern {
    std::int32_t lastError = RegexOk;
    GrowingArray<Instruction, kLocalInstructions> instructions;
    std::uint32_t groupCount = 0;
    std::uint32_t memoryCount = 0;  // slots that the program uses
    std::int32_t caseSensitive = 1;

    // Compiles `pattern` and discards what was compiled before. With `caseSensitive` 0 the pattern
    // is turned to lower case first. Result: RegexOk, or why there is no program; lastError keeps
    // it. A null pattern leaves the object as it is.
    //
    // Time and memory follow the length of the pattern and of its program; `+` alone makes the
    // program longer than the pattern, for it repeats its atom. A program of more than 2^31 - 1
    // instructions is RegexOutOfMemory.
    int Compile(const WCHAR *pattern, int caseSensitive);

    // Looks for the leftmost match in `text`, which ends with a NUL. The last place at which a
    // match is looked for is the last character.
    //
    // `context` receives what was found; `stopped` may be null, else it receives where in `text`
    // the program ended, or null when it did not come to its end. Result: 1 for a match; 0 for
    // none, for a null `text` or `context`, and when there is no memory.
    //
    // Time is not bounded: a pattern can try many ways, or without end.
    int Match(const WCHAR *text, MatchContext *context, const WCHAR **stopped) const;
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_PROGRAM_H
