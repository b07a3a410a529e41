#ifndef OSTREL_PLATFORM_VERSION_H
#define OSTREL_PLATFORM_VERSION_H

// Version blocks: what a module's file says of its version, and texts about the module.
//
//   DWORD ignored;
//   std::vector<std::uint32_t> block(GetFileVersionInfoSizeW(path, &ignored) / 4 + 1);
//   void *value = nullptr;
//   unsigned length = 0;
//   if (GetFileVersionInfoW(path, 0, static_cast<DWORD>(block.size() * 4), block.data()) &&
//       VerQueryValueW(block.data(), TEXT("\\"), &value, &length)) {
//       report(static_cast<const VS_FIXEDFILEINFO *>(value)->dwFileVersionMS >> 16);
//   }
//
// A file is read in pieces, and nothing in it is loaded or run. These files have a version block:
//
// - A PE file, of 32 or 64 bits and for any processor: the block is the resource of type 16
//   (RT_VERSION) with the name 1. Of several languages of the resource the calls take one: the
//   neutral language (0), then 0x007F, then US English (0x0409), any English, and else the first in
//   the file, for every user alike. Numbers and texts come from the same block.
// - An ELF program or shared library of little-endian order: the block is the content of a note of
//   type 1 and name "Ostrel". The CMake function ostrel_version_resource (docs/porting.md) writes
//   such a note.
//
// A block is a tree of nodes with names, in the layout that Microsoft publishes as VS_VERSIONINFO.
// It has up to 65535 bytes.
//
// Implemented with openat and pread, of one page at a time.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// The numbers of a version block, the value of its root.
struct VS_FIXEDFILEINFO {
    DWORD dwSignature;         // 0xFEEF04BD
    DWORD dwStrucVersion;      // 0x00010000
    DWORD dwFileVersionMS;     // the first number in the high 16 bits, the second in the low ones
    DWORD dwFileVersionLS;     // the third and the fourth likewise
    DWORD dwProductVersionMS;  // as those of the file
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;  // the valid bits of dwFileFlags
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;  // 1 is a program, 2 a shared library
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};

// Returns the size of a file's version block in bytes, as GetFileVersionInfoW stores it; this may
// be more than the file holds. Stores 0 in `*ignored` unless `ignored` is null. `path` names a file
// as LOAD_LIBRARY_AS_DATAFILE takes it (module.h), so filter.dll may lead to filter.so; when that
// finds no file, `path` is a path as in file.h. The share modes of open handles have no effect.
//
// On failure returns 0 and sets the last error:
//   ERROR_INVALID_PARAMETER        `path` is null or empty
//   ERROR_ACCESS_DENIED            no regular file (the call never waits for one), or no permission
//   ERROR_BAD_EXE_FORMAT           neither a PE file nor an ELF file, such as an empty file
//   ERROR_RESOURCE_DATA_NOT_FOUND  a PE file without resources, an ELF file without a version block
//   ERROR_RESOURCE_TYPE_NOT_FOUND  the resources have no version block
//   ERROR_RESOURCE_NAME_NOT_FOUND  they have version blocks, but under other names
//   ERROR_RESOURCE_LANG_NOT_FOUND  the version block has no language
//   ERROR_BAD_FORMAT               the file is cut, or what leads to the block or the block itself
//                                  is damaged: a place outside the file or its section, a table in
//                                  the place of data, a block that is longer than its resource
//   ERROR_NOT_ENOUGH_MEMORY        memory is missing
// or a path error (file.h), or the code that error_codes.inc gives for the host's errno.
OSTREL_PLATFORM_API DWORD GetFileVersionInfoSizeW(const WCHAR *path, DWORD *ignored) noexcept;

// Stores the version block of a file in `block`, for VerQueryValueW. `capacity` is the size of
// `block` in bytes; `reserved` is ignored. The stored block is that of the file with two
// exceptions: its length never exceeds what is stored, and a text that lacks its NUL gets one,
// unless the block would exceed 65535 bytes.
//
// Returns TRUE, also when the block is longer than `capacity`: then the call stores the first
// `capacity` bytes, and VerQueryValueW finds the values in them. On failure returns FALSE, leaves
// `block` as it is and sets the last error as GetFileVersionInfoSizeW does, or to
// ERROR_INVALID_PARAMETER (`block` is null) or ERROR_INSUFFICIENT_BUFFER (`capacity` is below 40,
// the size of a block without any value).
OSTREL_PLATFORM_API BOOL GetFileVersionInfoW(const WCHAR *path, DWORD reserved, DWORD capacity,
                                             void *block) noexcept;

// Finds a value in a block that GetFileVersionInfoW has stored. Stores the address of the value,
// which lies in the block, in `*value` and its length in `*length`. `path` names the value:
//
//   \                               the numbers, a VS_FIXEDFILEINFO; the length is in bytes
//   \VarFileInfo\Translation        pairs of 16-bit numbers, a language and a code page; in bytes.
//                                   A file may have less than a pair.
//   \StringFileInfo\041104B0\Name   a text; in characters, with its NUL, which is always there
//
// The eight digits are a language and a code page in hexadecimal. Names match without regard to the
// case of A to Z; the '\' at the beginning may be missing. A node without a value, such as
// \StringFileInfo, has the length 0 and the address of a NUL. The order of the nodes is of no
// importance. Of nodes with the same name the first counts.
//
// Trusts nothing in the block but the length in its first two bytes, which GetFileVersionInfoW has
// made true.
//
// Returns TRUE. On failure returns FALSE, stores nothing and sets the last error to
// ERROR_INVALID_PARAMETER (a pointer is null), ERROR_RESOURCE_TYPE_NOT_FOUND (no node has the name)
// or ERROR_BAD_FORMAT (the block has no root, the numbers are no VS_FIXEDFILEINFO, or the text has
// no NUL, as where a short buffer has cut it).
OSTREL_PLATFORM_API BOOL VerQueryValueW(const void *block, const WCHAR *path, void **value,
                                        unsigned *length) noexcept;

#endif

#endif  // OSTREL_PLATFORM_VERSION_H
