#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRATION_TEXT_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRATION_TEXT_H

// Internal. Reads and writes registration text: the published form in which registry editors export
// and import keys.
//
//   Windows Registry Editor Version 5.00
//
//   [HKEY_CURRENT_USER\Software\Sample]     opens or creates a key
//   @="the unnamed value"                   REG_SZ
//   "quoted \"name\""="C:\\srv"             \\ and \" are the only escapes
//   "count"=dword:0000002a                  REG_DWORD, one to eight hexadecimal digits
//   "data"=hex:01,02,\                      REG_BINARY; a backslash continues the line
//     03
//   "list"=hex(7):61,00,00,00,00,00         any type: the number is hexadecimal
//   "gone"=-                                deletes a value
//   [-HKEY_CURRENT_USER\Software\Old]       deletes a key and all below it
//
// The reader accepts three encodings: UTF-16LE with a byte order mark, UTF-8 with or without one,
// and, for the older first line REGEDIT4 without a mark, the system code page. Under REGEDIT4 the
// bytes of the string types 1, 2 and 7 are in the system code page too, and come back as UTF-16.
//
// What the published descriptions leave open:
//   - Roots are named in full. Case does not matter in roots, `dword` and `hex`.
//   - A line ends in CR LF or LF. A quoted name or string may contain either, which it keeps.
//   - The last `]` of a line ends the name of a key, so that a name may contain `]`.
//   - A comment begins with `;`, on a line of its own or behind any complete part of a line.
//   - One backslash at the end of a key's name is ignored.
//   - A line that is neither empty nor any of the above is a fault, and so is a value under a
//     deleted key.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct RegistrationOperation {
    enum class Kind : std::uint8_t {
        kKey,          // open or create the key; the values that follow belong to the key
        kDeleteKey,    // delete the key with all below it; a missing key is no failure
        kValue,        // set the value
        kDeleteValue,  // delete the value; a missing value is no failure
    };

    Kind kind = Kind::kKey;
    DWORD root = 0;       // of a key: the number of its root (registry_roots.h)
    std::u16string name;  // the key's path below the root, or the value's name, empty for unnamed
    DWORD type = 0;       // of a value to set
    std::string bytes;    // of a value to set; text is UTF-16LE

    bool operator==(const RegistrationOperation &) const = default;
};

// Why a text is refused.
struct RegistrationFault {
    std::size_t line;    // counted from 1
    const char *reason;  // English, without a full stop
};

// Reads a whole text, and passes its operations to `take` in order once all of the text is known to
// be sound. Stops when `take` returns false. Keys have no empty parts and no part above kMaxKeyName
// units, values no name above kMaxValueName units, and neither contains a NUL.
//
// Returns nothing. When the text is faulty, returns the first fault and has passed nothing. Takes
// time and memory in proportion to `bytes`. Passes on what `take` throws; throws std::bad_alloc.
std::optional<RegistrationFault> read_registration_text(
    std::string_view bytes, const std::function<bool(const RegistrationOperation &)> &take);

// Append a text, in UTF-16LE with a mark and lines that end in CR LF: first the beginning, then the
// operations in order, then the end. Lines of bytes are folded at 80 columns.
//
// A REG_SZ is written as text when it ends in its only NUL, has an even length, and contains no CR
// or LF, on which other readers may break. A REG_DWORD of 4 bytes is a dword. All other values are
// written as bytes.
//
// append_registration returns true. When the form has no way to write the operation, returns false
// and appends nothing: a key's name contains LF, a name contains a NUL, or the root has no name.
void append_registration_begin(std::string *text);
bool append_registration(const RegistrationOperation &operation, std::string *text);
void append_registration_end(std::string *text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRATION_TEXT_H
