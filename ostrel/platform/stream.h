#ifndef OSTREL_PLATFORM_STREAM_H
#define OSTREL_PLATFORM_STREAM_H

// The runtime's streams: text files read by lines of 16-bit characters. Paths and sharing are
// described in file.h.
//
//   if (std::FILE *const file = _wfopen(TEXT("C:\\srv\\list.txt"), TEXT("rt, ccs=UTF-8"))) {
//       for (WCHAR line[200]; fgetws(line, 200, file) != nullptr;) {
//           add(line);
//       }
//       std::fclose(file);
//   }
//
// Implemented with fopencookie over open, read and write, and with ICU for text that is not UTF-8
// or UTF-16.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdio>
#include <cwchar>

#else

#include <cstdio>

// Opens a stream on a file.
//
// `mode` is, behind any blanks, r (opens an existing file), w (creates or truncates a file) or a
// (creates a file or appends to it), then any of:
//   b or t            binary or text, one of them once; text is the default
//   x                 behind w: the file must not exist
//   c n N S R T, ' '  no effect
//   , ccs=NAME        last, with r and without b: the encoding UTF-8, UTF-16LE or UNICODE, in any
//                     case and with blanks around each part
// A stream goes in one direction: + is refused.
//
// A text stream reads CR LF as LF, keeps a lone CR, ends at a Ctrl-Z (0x1A), and writes LF as CR
// LF. The encoding is the system code page (GetACP), or that of the ccs= part. With a ccs= part a
// byte order mark of UTF-8 or UTF-16LE at the start of the file is skipped and decides the
// encoding; UNICODE without a mark is UTF-16LE. Without a ccs= part a mark of UTF-8 is skipped and
// changes nothing. A binary stream changes and skips nothing.
//
// The result is a stream of the host. fclose closes it. fread, fgets, fwrite and their kin transfer
// its bytes: a text stream translates line ends, ends at a Ctrl-Z and skips the mark, but does not
// decode. Read one stream either with fgetws or with these calls, not with both. There are no
// position calls. What feof and ferror return does not depend on fgetws.
//
// Mode r opens regular files alone: a FIFO, socket or device could keep its reader waiting for
// ever, or never end. w and a also open a device, and a FIFO that has a reader. The call never
// waits for a peer.
//
// Threads: use a stream on one thread at a time. Different streams are independent.
//
// Returns the stream. On failure returns null and sets errno:
//   EINVAL  `path` or `mode` is null or empty, or `mode` does not read as above
//   ENOENT  the file or a directory on the way is missing, or no host file can have the path (its
//           drive does not exist)
//   EEXIST  x is given and the file exists
//   EACCES  a directory; r on what is no regular file; w or a on a read-only file; another handle's
//           share mode forbids the access; others keep deleting and creating the file; or the host
//           denies it
//   ENXIO   w or a on a FIFO that nobody reads, or on a socket
//   ENOMEM  memory is missing; an existing file is not truncated then
// or another errno of the host's open or ftruncate, such as ETXTBSY for writing to a running
// program.
OSTREL_PLATFORM_API std::FILE *_wfopen(const WCHAR *path, const WCHAR *mode) noexcept;

// Reads a line: at most `count` - 1 characters, up to and including the next line feed, and stores
// a NUL behind them. `buffer` holds `count` characters; the call may overwrite all of them. A text
// stream is decoded, with U+FFFD for each maximal part of a broken sequence. On a binary stream two
// bytes make a character, low byte first, and an odd byte at the end of the file is dropped.
//
// Returns `buffer`, or null at the end of the file. With a `count` of 1 stores the NUL alone and
// returns `buffer`, at the end too. On failure returns null and sets errno to EINVAL (null
// `buffer`, `count` below 1, a stream that _wfopen did not open or that does not read), to ENOMEM,
// or to the errno of the host's read; what was read of that line is lost.
OSTREL_PLATFORM_API WCHAR *fgetws(WCHAR *buffer, int count, std::FILE *stream) noexcept;

// Writes out the buffers of the streams of _wfopen that write, of stdout and of stderr; a write
// that fails is not reported. Returns the number of open streams: those of _wfopen, and the three
// that every process starts with.
//
// The call never waits for a reader of standard input: it leaves stdin and other streams that read
// alone. It passes over a stream of _wfopen that another thread is using in a call, and it leaves
// streams alone that the program opened with the host's calls, such as fopen; fflush serves those.
OSTREL_PLATFORM_API int _flushall() noexcept;

#endif

#endif  // OSTREL_PLATFORM_STREAM_H
