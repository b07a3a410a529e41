#ifndef OSTREL_PLATFORM_TEXT_CODE_PAGE_FACTS_H
#define OSTREL_PLATFORM_TEXT_CODE_PAGE_FACTS_H

// Internal. What the platform's tables of code pages say and ICU's do not. The facts are those of
// Microsoft's tables, published by the Unicode Consortium below MAPPINGS/VENDORS/MICSFT.

#include <span>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Bytes of a code page that stand for consecutive characters.
struct ByteRun {
    unsigned code_page;
    unsigned char first;
    unsigned char last;
    WCHAR character;  // of the first byte
};

// Returns the runs of a code page for whose bytes ICU has no character or another one.
std::span<const ByteRun> byte_runs(unsigned code_page);

// Returns the character that the runs give a byte, or 0.
WCHAR character_of_byte(unsigned code_page, unsigned char byte);

// Returns the byte that the runs give a character, or -1.
int byte_of_character(unsigned code_page, WCHAR character);

// Returns the character that the platform writes in place of one that the code page lacks, or 0.
WCHAR best_fit(unsigned code_page, WCHAR character);

// A character that ICU's table of a code page has, and what the platform writes in its place.
struct Override {
    unsigned code_page;
    WCHAR character;
    WCHAR written;
};
inline constexpr Override kOverrides[] = {{932, 0x00A6, '|'}, {1253, 0x00AA, '?'}};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_CODE_PAGE_FACTS_H
