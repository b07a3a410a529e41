#ifndef OSTREL_CORE_RAW_TEXT_H
#define OSTREL_CORE_RAW_TEXT_H

// Internal. Terminated text in memory of its own, for callers who release it with operator delete.

#include "ostrel/platform/types.h"

namespace OS::detail {

// Each points `*target` at a new copy of `text`, converted from or to the system code page where
// the widths differ. When the conversion fails `*target` keeps its value.
void new_text(const WCHAR *text, WCHAR **target);
void new_text(const WCHAR *text, char **target);
void new_text(const char *text, WCHAR **target);
void new_text(const char *text, char **target);

}  // namespace OS::detail

#endif  // OSTREL_CORE_RAW_TEXT_H
