#ifndef OSTREL_CORE_RAW_TEXT_H
#define OSTREL_CORE_RAW_TEXT_H

// Internal. Copies terminated text to new memory that the caller releases with operator delete.

#include "ostrel/platform/types.h"

namespace OS::detail {

// Point `*target` at a new copy of `text`, its NUL included. Where the widths differ, the text is
// converted from or to the system code page. When the platform refuses the conversion, `*target`
// keeps its value. Throw std::bad_alloc when memory is short; `*target` keeps its value then.
void new_text(const WCHAR *text, WCHAR **target);
void new_text(const WCHAR *text, char **target);
void new_text(const char *text, WCHAR **target);
void new_text(const char *text, char **target);

}  // namespace OS::detail

#endif  // OSTREL_CORE_RAW_TEXT_H
