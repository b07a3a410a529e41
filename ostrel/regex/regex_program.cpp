#include "ostrel/regex/regex_program.h"

#include <cstddef>
#include <memory_resource>

#include "ostrel/regex/folded_text.h"
#include "ostrel/regex/regex_compiler.h"

namespace OS::regex {

namespace {

RegexResult compile(const WCHAR *pattern, CompiledPattern &program) {
    std::byte local[2048];  // bytes; enough for the patterns of the validators
    std::pmr::monotonic_buffer_resource memory(local, sizeof(local));
    return Compiler(program, &memory).Compile(pattern);
}

}  // namespace

int CompiledPattern::Compile(const WCHAR *pattern, int sensitive) {
    if (pattern == nullptr) {
        return RegexNullPattern;
    }
    instructions.Clear();
    groupCount = 0;
    memoryCount = 0;
    caseSensitive = sensitive;
    lastError = RegexOk;
    if (sensitive != 0) {
        lastError = compile(pattern, *this);
    } else {
        const FoldedText folded(pattern);
        lastError = folded.Get() == nullptr ? RegexOutOfMemory : compile(folded.Get(), *this);
    }
    return lastError;
}

}  // namespace OS::regex
