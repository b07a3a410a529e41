#include "ostrel/platform/base/errno_code.h"

#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

struct Row {
    DWORD code;
    int errors[3];  // errno values that become the code; 0 fills the rest
};

constexpr Row kRows[] = {
#define OSTREL_ERROR(name, number, text, ...) {name, {__VA_ARGS__}},
#include "ostrel/platform/error_codes.inc"
#undef OSTREL_ERROR
};

// Whether stat succeeds for the folder of the last name in `path`. A separator at the end of the
// path belongs to the name.
bool has_parent(std::string_view path) noexcept {
    const std::size_t name_end = path.find_last_not_of('/');
    const std::size_t folder_end = path.find_last_of('/', name_end);
    if (name_end == path.npos || folder_end == path.npos) {
        return true;  // the root or the current directory
    }
    char folder[PATH_MAX];
    if (folder_end + 2 > sizeof folder) {
        return false;
    }
    std::memcpy(folder, path.data(), folder_end + 1);
    folder[folder_end + 1] = '\0';
    struct stat facts;
    return stat(folder, &facts) == 0;
}

}  // namespace

DWORD code_of_errno(int error) noexcept {
    for (const Row &row : kRows) {
        if (error != 0 && std::find(std::begin(row.errors), std::end(row.errors), error) !=
                              std::end(row.errors)) {
            return row.code;
        }
    }
    return ERROR_GEN_FAILURE;
}

DWORD code_of_path(int error, const char *host_path) noexcept {
    return error == ENOENT && !has_parent(host_path) ? ERROR_PATH_NOT_FOUND : code_of_errno(error);
}

}  // namespace ostrel_platform
