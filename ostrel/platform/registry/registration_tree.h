#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRATION_TREE_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRATION_TREE_H

// Internal. Keys of the registry as registration text (registration_text.h), and back.
//
// The text has no place for the class of a key, nor for what makes a key volatile: both are lost.

#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/registration_text.h"

namespace ostrel_platform {

// Stores `key` and all below it as registration text, in one snapshot. The text names the key by
// `root` (registry_roots.h) and `path`. With `with_volatile` false, volatile keys are left out.
//
// Returns ERROR_SUCCESS. On failure returns the code of read_tree, or ERROR_BADKEY when a key's
// name has no form in the text.
DWORD text_of_tree(HKEY key, DWORD root, std::u16string_view path, bool with_volatile,
                   std::string *text);

// Replaces all that is below `key` by what a text holds, in one commit. The first key of the text
// stands for `key`, whatever its name is; the other keys are below it.
//
// Returns ERROR_SUCCESS. On failure changes nothing and returns the code of change_tree, or
// ERROR_NOT_REGISTRY_FILE when the text is faulty, deletes something, or has no such first key.
DWORD replace_tree(HKEY key, std::string_view text);

struct ImportResult {
    DWORD code = 0;
    std::optional<RegistrationFault> fault;  // of the text; then `code` is ERROR_NOT_REGISTRY_FILE
};

// Carries out the operations of a text, in their order. Those on the machine's keys are one commit,
// and then those on the user's are one. A faulty text changes nothing.
ImportResult import_text(std::string_view text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRATION_TREE_H
