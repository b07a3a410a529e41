#ifndef OSTREL_PLATFORM_CODEPAGE_H
#define OSTREL_PLATFORM_CODEPAGE_H

// The system code page: how the bytes of narrow text are read.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// The number of the system code page. It is 65001 (UTF-8), unless the locale environment names
// another charset: of the variables LC_ALL, LC_CTYPE and LANG the first that is not empty counts,
// and in it the text between '.' and '@'. ja_JP.SJIS gives 932, de_DE.ISO-8859-15 gives 28605; a
// charset that is unknown, has no such number or does not hold ASCII gives 65001. The environment
// is read at the first use of the code page and then no more; the C locale (setlocale) plays no
// part.
OSTREL_PLATFORM_API unsigned GetACP() noexcept;

#endif

#endif  // OSTREL_PLATFORM_CODEPAGE_H
