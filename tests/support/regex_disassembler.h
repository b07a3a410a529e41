#ifndef OSTREL_TESTS_SUPPORT_REGEX_DISASSEMBLER_H
#define OSTREL_TESTS_SUPPORT_REGEX_DISASSEMBLER_H

// Programs of the pattern engine as text: "Call 2; Fail; Symbol a; Match". Operands are decimal,
// those of Symbol that are printable ASCII are the character itself.

#include <iterator>
#include <string>

#include "ostrel/regex/regex_program.h"

namespace test {

inline std::string disassemble(const OS::regex::Instruction *code, std::size_t count) {
    static constexpr const char *kNames[] = {"Nop",
                                             "GroupStart",
                                             "GroupEnd",
                                             "Symbol",
                                             "Any",
                                             "Range",
                                             "NotRange",
                                             "Jump",
                                             "PushPos",
                                             "PopPos",
                                             "Call",
                                             "Return",
                                             "PushMemory",
                                             "PopMemory",
                                             "StorePos",
                                             "StoreStack",
                                             "LoadPos",
                                             "LoadStack",
                                             "ReturnIfNoProgress",
                                             "BackReference",
                                             "Fail",
                                             "Advance",
                                             "Match",
                                             "PushGroup",
                                             "PopGroup"};
    static constexpr bool kOperand[] = {true,  true, true,  true,  false, true, true, true, false,
                                        false, true, false, true,  true,  true, true, true, true,
                                        true,  true, false, false, false, true, true};
    static_assert(std::size(kNames) == std::size(kOperand));
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        const auto kind = static_cast<std::size_t>(code[i].kind);
        text += i == 0 ? "" : "; ";
        text += kind < std::size(kNames) ? kNames[kind] : "?";
        const OS::regex::Word operand = code[i].operand;
        if (code[i].kind == OS::regex::OpSymbol && operand > 0x20 && operand < 0x7F) {
            text += std::string(" ") + static_cast<char>(operand);
        } else if (operand != 0 || kind >= std::size(kNames) || kOperand[kind]) {
            text += ' ' + std::to_string(operand);
        }
    }
    return text;
}

inline std::string disassemble(const OS::regex::CompiledPattern &program) {
    return disassemble(program.instructions.Data(), program.instructions.Count());
}

}  // namespace test

#endif  // OSTREL_TESTS_SUPPORT_REGEX_DISASSEMBLER_H
