#ifndef OSTREL_REGEX_REGEX_PROGRAM_H
#define OSTREL_REGEX_REGEX_PROGRAM_H

// Internal. Compiles the patterns of the validators into programs for the matcher.
//
// The language of the patterns is not the common one:
//
//   ^        as the first character of the pattern: the match begins where the text begins
//   $        as the last character of the pattern: the end of the text; a literal elsewhere
//   .        any character
//   {x}      a capture group; groups are numbered from 0 in the order of their opening braces
//   (x)      a group without capture
//   [a-z\t]  a set of characters and ranges, [^a-z] its complement; \t is the tab, other characters
//            after a backslash stand for themselves
//   !x       succeeds, and consumes nothing, where the atom x does not match
//   x|y      x or y; both are single elements: ab|cd is a, then b or c, then d
//   x* x+ x? zero or more, one or more, zero or one; with a further ? the shortest first, and the
//            next attempt goes on where the failed one ended, not where it began
//   \0       the text that the group captured; the group must have been opened before
//   \d       an abbreviation: \a letter or digit, \b blank or tab, \c letter, \d digit,
//            \h hexadecimal digit, \n line end, \q text in double quotes, \w letters, \z digits
//   \.       any other character after a backslash: that character
//
// A closing bracket without an opening one ends the pattern without an error. A `|` with nothing on
// its right is dropped together with its left side.

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
    OpRange,               // index after the set: match a character within one of its ranges
    OpNotRange,            // the same, but within none of them
    OpJump,                // index: continue there
    OpPushPos,             // push the position
    OpPopPos,              // pop the position
    OpCall,                // index: push the next index, continue there
    OpReturn,              // pop an index, continue there
    OpPushMemory,          // slot: push its value
    OpPopMemory,           // slot: pop its value
    OpStorePos,            // slot: store the position in it
    OpStoreStack,          // slot: store the depth of the stack in it
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

// One step of a program. The ranges of a set follow its OpRange or OpNotRange. Each range is two
// OpNop, which serve as data: the low and the high character.
struct Instruction {
    InstructionKind kind;
    Word operand;  // 0 where the kind has none
};

enum RegexResult : std::int32_t {
    RegexOk = 0,
    RegexOutOfMemory = 1,
    RegexBraceExpected = 2,
    RegexParenExpected = 3,
    RegexBracketExpected = 4,  // also: a range without a high end
    RegexBadAbbreviation = 5,  // also: nothing after a backslash
    RegexEmptySet = 6,
    RegexBadGroup = 7,     // \n before that group's opening brace
    RegexBadRange = 8,     // the high end is below the low one
    RegexEmptyRepeat = 9,  // * + *? or +? after an atom that can match the empty text
    RegexNullPattern = 10,
};

// Enough for the programs of the validators.
inline constexpr std::size_t kLocalInstructions = 512;

// One compiled pattern.
//
// Threads: Match does not change the object, so several threads may match with one object, each
// with its own context.
struct CompiledPattern {
    std::int32_t lastError = RegexOk;
    GrowingArray<Instruction, kLocalInstructions> instructions;
    std::uint32_t groupCount = 0;
    std::uint32_t memoryCount = 0;  // number of slots that the program uses
    std::int32_t caseSensitive = 1;

    // Compiles `pattern` and discards the previous program. With `caseSensitive` 0 the call first
    // converts the pattern to lower case.
    //
    // Returns RegexOk and stores it in lastError. On failure returns the error, stores it in
    // lastError and leaves the object without a program: an error of the pattern, or
    // RegexOutOfMemory when memory is short or the program would have more than 2^31 - 1
    // instructions. When memory runs out within an abbreviation, the error is RegexBadAbbreviation.
    // A null pattern returns RegexNullPattern and changes nothing.
    //
    // Time and memory are proportional to the lengths of the pattern and of the program. Only `+`
    // makes the program longer than a multiple of the pattern, because it repeats its atom.
    int Compile(const WCHAR *pattern, int caseSensitive);

    // Searches for the leftmost match in `text`, which is terminated. The search tries each
    // character as the beginning of a match, but not the end of the text; an empty text is tried
    // once. With caseSensitive 0 the search uses a lower-case copy of `text`.
    //
    // `context` receives the result. `stopped` may be null; `*stopped` receives the position in
    // `text` at which the program ended, or null when the program did not end.
    //
    // Returns 1 for a match. Returns 0 for no match, for a null `text` or `context`, and when
    // memory is short. Time is not bounded: the search can try very many ways, or never end.
    int Match(const WCHAR *text, MatchContext *context, const WCHAR **stopped) const;
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_PROGRAM_H
