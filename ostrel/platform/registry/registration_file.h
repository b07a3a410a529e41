#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRATION_FILE_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRATION_FILE_H

// Internal. Whole files of registration text.

#include <string>
#include <string_view>

namespace ostrel_platform {

// Writes a file with the mode 0600, because a registry may hold secrets. The file has its name only
// when it is complete and on the disk, so that a crash never leaves a part that could be taken for
// the whole. Returns 0. On failure returns errno: EEXIST when the name is taken and `replaces` is
// false.
int write_registration_file(const std::string &path, std::string_view text, bool replaces);

// Reads an open file from its position to its end. Returns 0. On failure returns errno: EFBIG for
// more than 4 GiB.
int read_registration_file(int file, std::string *text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRATION_FILE_H
