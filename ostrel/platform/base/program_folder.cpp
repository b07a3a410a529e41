#include "ostrel/platform/base/program_folder.h"

#include <dlfcn.h>
#include <linux/limits.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

#include "ostrel/platform/base/environment.h"

namespace ostrel_platform {
namespace {

constinit char g_here = 0;  // in the module of the layer

}  // namespace

std::string program_folder() {
    if (is_callers_environment()) {
        return {};
    }
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    const std::string_view path(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
    return std::string(path.substr(0, path.rfind('/') + 1));
}

std::string tools_folder() {
    Dl_info info;
    if (dladdr(&g_here, &info) == 0) {
        return {};
    }
    // The loader knows a program, and a library of a relative LD_LIBRARY_PATH, by a relative name.
    const std::string_view path = info.dli_fname;
    const std::string folder =
        path.starts_with('/') ? std::string(path.substr(0, path.rfind('/') + 1)) : program_folder();
    return folder.empty() ? folder : folder + "ostrel/";
}

}  // namespace ostrel_platform
