#ifndef OSTREL_PLATFORM_TEXT_CODE_PAGE_NAMES_H
#define OSTREL_PLATFORM_TEXT_CODE_PAGE_NAMES_H

// Internal. Names: the code page that a charset's name means, and ICU's converter of a code page.
//
// ICU loads its table of aliases at the first use. When memory is short at that moment, ICU never
// loads the table again. The usual charsets and code pages therefore have their names here and need
// no alias.
//
// Errors: std::bad_alloc when memory is short.

#include <unicode/ucnv.h>

#include <memory>

namespace ostrel_platform {

struct CloseConverter {
    void operator()(UConverter *converter) const { ucnv_close(converter); }
};
using ConverterPtr = std::unique_ptr<UConverter, CloseConverter>;

// Returns the code page of a charset, by any of the charset's usual names. Case, '-' and '_' do not
// count. An unknown name gives 65001.
unsigned code_page_of_charset(const char *charset);

// Returns the code page that the locale environment names; see GetACP.
unsigned code_page_of_environment();

// Opens ICU's converter, with ICU's own callbacks. Null for an unknown code page.
ConverterPtr open_converter(unsigned code_page);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_CODE_PAGE_NAMES_H
