#ifndef OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_TEXT_H
#define OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_TEXT_H

// Internal. Names and values as ostrel-reg reads them from a shell and prints them, in UTF-8.

#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Decodes an argument. A lone surrogate may stand as the three bytes that its number would have, so
// that every name can be given. Throws a RegFailure when the argument is no UTF-8.
std::u16string from_shell(std::string_view argument);

// Returns a name to print. A name that begins with '"', begins or ends with a blank, or holds four
// blanks in a row, a control character or a lone surrogate, is quoted as in JSON.
std::string printed(std::u16string_view text);

// Returns a text as a JSON string, with its quotes.
std::string json_string(std::u16string_view text);

// Returns the name of a type, or its number as 0x... when it has none.
std::string name_of_type(DWORD type);

// Returns the type of a name such as REG_SZ, or of a number, decimal or 0x.... Ignores case. Throws
// a RegFailure when there is no such type.
DWORD type_of_name(std::string_view name);

// Returns the bytes of a value whose data stands in an argument:
//   REG_SZ, REG_EXPAND_SZ                text; a NUL is added
//   REG_MULTI_SZ                         texts between `separator`, none of them empty
//   REG_DWORD, _BIG_ENDIAN, REG_QWORD    a number, decimal or 0x...
//   others                               bytes, each two hexadecimal digits
// An empty argument is an empty text, the number 0, or no bytes. Throws a RegFailure.
std::string bytes_of_data(DWORD type, std::string_view data, std::string_view separator);

// Returns the data of a value to print. Where the bytes do not suit the type, and for other types,
// prints the bytes. `separator` stands between the texts of a REG_MULTI_SZ. Texts that hold a
// control character or a lone surrogate are quoted as in JSON.
std::string printed_data(DWORD type, std::string_view bytes, std::string_view separator);

// Returns a value as the members of a JSON object: "type" and "data", which is a string, a number,
// or an array of strings. "hex", with the bytes, takes the place of "data" for other types, and
// where the bytes do not suit the type.
std::string json_data(DWORD type, std::string_view bytes);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_TEXT_H
