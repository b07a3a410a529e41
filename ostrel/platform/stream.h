#ifndef OSTREL_PLATFORM_STREAM_H
#define OSTREL_PLATFORM_STREAM_H

// The runtime's streams: text files read by lines of 16-bit characters. Paths are told in file.h.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdio>
#include <cwchar>

#else

#include <cstdio>

// Opens a stream.
//
// `mode` is one of the letters r, w, a, then any of: b or t (binary or text; text is the default),
// x (behind w: the file must not exist), c n N S R T (hints, without effect), and with r, instead
// of b, ", ccs=UTF-8", ", ccs=UTF-16LE" or ", ccs=UNICODE". Leading blanks are skipped. A stream
// goes in one direction: + is refused.
//
// A text stream reads CR LF as LF and ends at a Ctrl-Z (0x1A); a lone CR stays. It writes LF as
// CR LF. Its characters are those of the system code page (GetACP), of UTF-8 or of UTF-16 by the
// ccs= part; a byte order mark at the start wins over that part and is skipped, as is a UTF-8 mark
// without one. UNICODE without a mark is UTF-16LE.
//
// The stream is a stream of the host: fclose closes it, fread, fgets, fwrite and their kin take
// bytes (with the line ends of a text stream turned, and not decoded). One stream is read by
// fgetws or by those, not by both, and has no position calls; fgetws does not set what feof and
// ferror tell.
//
// Threads: a stream belongs to one thread at a time; different streams are independent.
//
// Result: the stream, or null with errno: ENOENT, EACCES (no permission, a directory, or a file
// that is open against it), EEXIST,
// EINVAL for a null or empty path or mode or one that does not read as above, or what else the
// host's open gives.
OSTREL_PLATFORM_API std::FILE *_wfopen(const WCHAR *path, const WCHAR *mode) noexcept;

// Reads `count` - 1 characters at most, up to and including the next line feed, and puts a NUL
// behind them; what `buffer` holds behind the NUL is not kept. Text is decoded; a broken sequence
// gives U+FFFD for each of its maximal parts. On a binary stream two bytes make a character, low
// byte first.
//
// Result: `buffer`, or null at the end of the file, with errno on a read error (what was read of
// that line is lost), or with errno EINVAL for a stream that is not of _wfopen or does not read, a
// null buffer or a `count` below 1.
OSTREL_PLATFORM_API WCHAR *fgetws(WCHAR *buffer, int count, std::FILE *stream) noexcept;

// Writes out what the process's streams hold back. Result: the number of open streams: those of
// _wfopen, and the three that every process starts with. Each stream is locked on the way: while
// another thread waits within a call for input of a stream of the host, such as a line of standard
// input, this call waits too.
OSTREL_PLATFORM_API int _flushall() noexcept;

#endif

#endif  // OSTREL_PLATFORM_STREAM_H
