#ifndef OSTREL_PLATFORM_MODULE_LOADER_CACHE_H
#define OSTREL_PLATFORM_MODULE_LOADER_CACHE_H

// Internal. The cache in which the host's loader looks names of libraries up, /etc/ld.so.cache. The
// host has no call that looks a name up without loading the library.

#include <string>
#include <string_view>

namespace ostrel_platform {

inline constexpr char kLoaderCache[] = "/etc/ld.so.cache";

// Returns the path that the cache in a file gives for the name of a library of the process's kind.
// Returns an empty text when there is none, or when the file is missing, damaged or of another
// format.
std::string find_in_loader_cache(const char *cache, std::string_view library);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_LOADER_CACHE_H
