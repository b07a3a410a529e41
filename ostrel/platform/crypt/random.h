#ifndef OSTREL_PLATFORM_CRYPT_RANDOM_H
#define OSTREL_PLATFORM_CRYPT_RANDOM_H

// Internal. Random bytes of the kernel's.

#include <cstddef>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Fills `bytes`, however many there are. Returns 0 or the code of getrandom's errno.
DWORD fill_random(void *bytes, std::size_t count) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_CRYPT_RANDOM_H
