// The module that the tests load. It tells the program when it begins and ends.

#include "ostrel/platform/module.h"

extern "C" {
__attribute__((weak)) void note_of_module(const char *note);
int needed_number();

OSTREL_PLATFORM_API int sample_number() {
    return needed_number();
}
}

namespace {

struct Notes {
    Notes() {
        const HMODULE module = LoadLibraryW(TEXT("libc.so.6"));  // calls of the layer
        const bool is_done = LoadLibraryW(TEXT("none")) == nullptr && FreeLibrary(module);
        note_of_module != nullptr ? note_of_module(is_done ? "+" : "?") : void();
    }
    ~Notes() { note_of_module != nullptr ? note_of_module("-") : void(); }
} notes;

}  // namespace
