// Compiles any text as a pattern. Input: a byte for the case rule, then the pattern in UTF-16.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ostrel/regex/regex_program.h"

using namespace OS::regex;

namespace {

// Each instruction leads to a place within the program and uses groups and slots that it counts.
bool is_sound(const CompiledPattern &program) {
    const std::size_t count = program.instructions.Count();
    for (std::size_t i = 0; i < count; ++i) {
        const auto [kind, operand] = program.instructions[i];
        switch (kind) {
            case OpCall:
            case OpJump:
                if (operand >= count) {
                    return false;
                }
                break;
            case OpRange:
            case OpNotRange:
                if (operand >= count || operand < i + 3 || (operand - i) % 2 == 0) {
                    return false;
                }
                i = operand - 1;
                break;
            case OpGroupStart:
            case OpGroupEnd:
            case OpPushGroup:
            case OpPopGroup:
            case OpBackReference:
                if (operand >= program.groupCount) {
                    return false;
                }
                break;
            case OpPushMemory:
            case OpPopMemory:
            case OpStorePos:
            case OpStoreStack:
            case OpLoadPos:
            case OpLoadStack:
            case OpReturnIfNoProgress:
                if (operand >= program.memoryCount) {
                    return false;
                }
                break;
            default:
                break;
        }
    }
    return count >= 3 && program.instructions[count - 1].kind == OpMatch;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::u16string pattern((size - 1) / 2, u'\0');
    std::memcpy(pattern.data(), data + 1, pattern.size() * 2);
    // Each + can double the program.
    if (std::count(pattern.begin(), pattern.end(), u'+') > 12) {
        return 0;
    }
    CompiledPattern program;
    const int result = program.Compile(pattern.c_str(), data[0] & 1);
    if (result != program.lastError || (result == RegexOk && !is_sound(program))) {
        __builtin_trap();
    }
    return 0;
}
