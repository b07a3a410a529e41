#ifndef OSTREL_REGEX_REGEX_INTERPRETER_H
#define OSTREL_REGEX_REGEX_INTERPRETER_H

// Internal. Runs compiled patterns.
//
// One stack holds everything that a program saves: indexes to backtrack to, positions and captures.
// A step that fails pops an index and continues there; the code at that index restores the saved
// state. The first word on the stack is the index of the second instruction, which ends the
// attempt.

#include <cstddef>

#include "ostrel/platform/types.h"
#include "ostrel/regex/folded_text.h"
#include "ostrel/regex/growing_array.h"
#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"

namespace OS::regex {

enum class Outcome { kMatch, kFailure, kGivenUp };

// The stack and the slots hold positions as words.
inline Word to_word(const WCHAR *position) {
    return reinterpret_cast<Word>(position);
}
inline const WCHAR *to_position(Word word) {
    return reinterpret_cast<const WCHAR *>(word);
}

// An array of the context; operator[] checks the index and throws RegexFailure.
template <class T>
class Checked {
public:
    Checked(T *elements, std::size_t count) : m_elements(elements), m_count(count) {}

    T &operator[](Word index) const {
        check_index(index < m_count);
        return m_elements[index];
    }

private:
    T *m_elements;
    std::size_t m_count;
};

// Grows the stack so that it holds the index `top`. Returns false when memory is short.
bool grow_stack(MatchContext &context, Word top);

// The state that changes at each step of a match. run() keeps it in a local object whose address no
// call takes, so that the compiler can keep it in registers.
class Machine {
public:
    Machine(const WCHAR *text, MatchContext &context)
        : position(text),
          m_scan(text),
          m_stack(context.stack.Data()),
          m_stackCount(context.stack.Count()),
          m_context(context) {}

    void Backtrack() { index = Pop(); }

    // Steps over a character and continues at `next`, or backtracks.
    void Consume(bool matches, Word next) {
        if (matches) {
            ++position;
            index = next;
        } else {
            Backtrack();
        }
    }

    // Returns false when memory is short.
    bool Push(Word word) {
        if (++top >= m_stackCount && !Grow()) {
            return false;
        }
        m_stack[top] = word;
        return true;
    }

    Word Pop() {
        if (top == 0) {
            return 0;
        }
        check_index(top < m_stackCount);
        return m_stack[top--];
    }

    // Matches the text of a capture again. A group that is still open can have an end before its
    // start; it counts as empty, like a group that took no part in the match.
    void MatchAgain(const Capture &capture) {
        const WCHAR *at = position;
        for (const WCHAR *captured = capture.start; captured < capture.end; ++captured) {
            if (*at != *captured) {
                Backtrack();
                return;
            }
            ++at;
        }
        position = at;
    }

    // Begins the next attempt one character later. Returns false at the end of the text.
    bool Advance() {
        if (*m_scan == 0) {
            return false;
        }
        position = ++m_scan;
        top = 0;
        index = 0;
        return *m_scan != 0;
    }

    Word index = 0;  // of the next instruction
    Word top = 0;    // of the stack
    const WCHAR *position;

private:
    bool Grow() {
        if (!grow_stack(m_context, top)) {
            --top;
            return false;
        }
        m_stack = m_context.stack.Data();
        m_stackCount = m_context.stack.Count();
        return true;
    }

    const WCHAR *m_scan;  // the beginning of the attempt
    Word *m_stack;
    std::size_t m_stackCount;
    MatchContext &m_context;
};

// Returns true when `character` is in one of the ranges from `range` up to `end`.
inline bool in_ranges(WCHAR character, const Instruction *range, const Instruction *end) {
    for (; end - range > 1; range += 2) {
        if (character >= range[0].operand && character <= range[1].operand) {
            return true;
        }
    }
    return false;
}

// Runs `program` on `text` until the program ends, memory runs out, or `goOn()` returns false; run
// calls `goOn` before each step. `context` must have been prepared.
template <class GoOn>
Outcome run(const CompiledPattern &program, const WCHAR *text, MatchContext &context, GoOn &goOn) {
    const Instruction *const code = program.instructions.Data();
    const Word count = program.instructions.Count();
    const Checked memory(context.memory.Data(), context.memory.Count());
    const Checked groups(context.groups.Data(), context.groups.Count());
    Machine machine(text, context);
    const auto in_set = [&](Word end) {
        check_index(end <= count);
        return in_ranges(*machine.position, code + machine.index, code + end);
    };
    const auto end = [&](Outcome outcome) {
        context.matchEnd = machine.position;
        context.stackTop = machine.top;
        return outcome;
    };

    while (goOn()) {
        if (machine.index - 1 >= count - 1) {  // the first instruction, or none
            check_index(machine.index < count);
            context.matchStart = machine.position;
        }
        const Instruction &instruction = code[machine.index++];
        const Word operand = instruction.operand;
        bool pushed = true;
        switch (instruction.kind) {
            case OpNop:
                break;
            case OpGroupStart:
                groups[operand].start = machine.position;
                break;
            case OpGroupEnd:
                groups[operand].end = machine.position;
                break;
            case OpSymbol:
                machine.Consume(*machine.position == operand, machine.index);
                break;
            case OpAny:
                machine.Consume(*machine.position != 0, machine.index);
                break;
            case OpRange:
                machine.Consume(*machine.position != 0 && in_set(operand), operand);
                break;
            case OpNotRange:
                machine.Consume(*machine.position != 0 && !in_set(operand), operand);
                break;
            case OpJump:
                machine.index = operand;
                break;
            case OpPushPos:
                pushed = machine.Push(to_word(machine.position));
                break;
            case OpPopPos:
                machine.position = to_position(machine.Pop());
                break;
            case OpCall:
                pushed = machine.Push(machine.index);
                machine.index = operand;
                break;
            case OpReturn:
                machine.Backtrack();
                break;
            case OpPushMemory:
                pushed = machine.Push(memory[operand]);
                break;
            case OpPopMemory:
                memory[operand] = machine.Pop();
                break;
            case OpStorePos:
                memory[operand] = to_word(machine.position);
                break;
            case OpStoreStack:
                memory[operand] = machine.top;
                break;
            case OpLoadPos:
                machine.position = to_position(memory[operand]);
                break;
            case OpLoadStack:
                machine.top = memory[operand];
                break;
            case OpReturnIfNoProgress:
                if (to_word(machine.position) == memory[operand]) {
                    machine.Backtrack();
                }
                break;
            case OpBackReference:
                machine.MatchAgain(groups[operand]);
                break;
            case OpFail:
                return end(Outcome::kFailure);
            case OpAdvance:
                if (!machine.Advance()) {
                    return end(Outcome::kFailure);
                }
                break;
            case OpMatch:
                return end(Outcome::kMatch);
            case OpPushGroup:
                pushed = machine.Push(to_word(groups[operand].start)) &&
                         machine.Push(to_word(groups[operand].end));
                break;
            case OpPopGroup:
                groups[operand].end = to_position(machine.Pop());
                groups[operand].start = to_position(machine.Pop());
                break;
        }
        if (!pushed) {
            break;
        }
    }
    return end(Outcome::kGivenUp);
}

// Prepares the arrays of `context` for the program. Returns false when memory is short.
bool prepare(MatchContext &context, const CompiledPattern &program);

// Moves the results of a match in a copy of a text, at `copy`, to the text itself.
void translate(MatchContext &context, const WCHAR *copy, const WCHAR *text);

// Does the work of CompiledPattern::Match as long as `goOn()` returns true.
template <class GoOn>
int match_while(const CompiledPattern &program, const WCHAR *text, MatchContext *context,
                const WCHAR **stopped, GoOn goOn) {
    if (stopped != nullptr) {
        *stopped = nullptr;
    }
    if (text == nullptr || context == nullptr) {
        return 0;
    }
    const auto match = [&](const WCHAR *subject) {
        if (subject == nullptr || !prepare(*context, program)) {
            return Outcome::kGivenUp;
        }
        const Outcome outcome = run(program, subject, *context, goOn);
        translate(*context, subject, text);
        return outcome;
    };
    const Outcome outcome =
        program.caseSensitive != 0 ? match(text) : match(FoldedText(text).Get());
    if (stopped != nullptr && outcome != Outcome::kGivenUp) {
        *stopped = context->matchEnd;
    }
    return outcome == Outcome::kMatch ? 1 : 0;
}

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_INTERPRETER_H
