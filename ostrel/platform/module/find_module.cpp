#include "ostrel/platform/module/find_module.h"

#include <dlfcn.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/program_folder.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/module/host_object.h"

namespace ostrel_platform {
namespace {

constexpr std::string_view kSuffix = ".dll";

bool is_path(const WCHAR *name) {
    return has_drive(name) || std::u16string_view(name).find_first_of(u"\\/") != std::string::npos;
}

bool has_module_suffix(std::string_view name) {
    return name.size() > kSuffix.size() &&
           std::equal(kSuffix.rbegin(), kSuffix.rend(), name.rbegin(),
                      [](char suffix, char own) { return to_upper(suffix) == to_upper(own); });
}

// The files that the last name of a path, or a name without a folder, stands for.
std::vector<std::string> files_of(const std::string &name, bool in_path) {
    const std::size_t dot = name.find('.');
    if (name.empty() || name == "." || name == "..") {
        return {};
    }
    if (has_module_suffix(name)) {
        const std::string stem = name.substr(0, name.size() - kSuffix.size());
        return {name, stem + ".so", "lib" + stem + ".so"};
    }
    if (name.back() == '.') {
        return {name.substr(0, name.size() - 1)};
    }
    if (dot != name.npos) {
        return {name};
    }
    std::vector<std::string> files = {name + ".dll", name + ".so", "lib" + name + ".so"};
    if (in_path) {
        files.insert(files.begin(), name);
    }
    return files;
}

// Returns the path of the current directory with a '/' at its end.
std::string current_folder() {
    char buffer[PATH_MAX];
    const char *const folder = getcwd(buffer, sizeof buffer);
    const std::string text = folder != nullptr && *folder == '/' ? folder : ".";
    return text.back() == '/' ? text : text + '/';
}

DWORD parse_path(const WCHAR *name, ModuleName *parsed) {
    std::optional<std::string> path = file_path(name);
    if (!path) {
        const DWORD code = GetLastError();
        return code == ERROR_PATH_NOT_FOUND || code == ERROR_FILE_NOT_FOUND ? ERROR_MOD_NOT_FOUND
                                                                            : code;
    }
    const std::string whole = path->front() == '/' ? *path : current_folder() + *path;
    const std::size_t begin = whole.rfind('/') + 1;
    parsed->is_path = true;
    parsed->folder = whole.substr(0, begin);
    parsed->files = files_of(whole.substr(begin), true);
    return parsed->files.empty() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;  // a directory
}

// The folders in which the host's rules look for a library that the program needs.
std::vector<std::string> host_folders() {
    std::vector<std::string> folders;
    const HostObject program = find_host_object(nullptr);
    Dl_serinfo size;
    if (!program || dlinfo(program.get(), RTLD_DI_SERINFOSIZE, &size) != 0) {
        return folders;
    }
    const auto memory =
        std::make_unique<std::max_align_t[]>(size.dls_size / sizeof(std::max_align_t) + 1);
    auto *const list = reinterpret_cast<Dl_serinfo *>(memory.get());
    *list = size;
    if (dlinfo(program.get(), RTLD_DI_SERINFO, list) == 0) {
        for (unsigned i = 0; i < size.dls_cnt; ++i) {
            const std::string folder = list->dls_serpath[i].dls_name;
            if (folder.starts_with('/')) {
                folders.push_back(folder + '/');
            }
        }
    }
    return folders;
}

}  // namespace

DWORD code_of_module_path(int error) noexcept {
    return error == ENOENT || error == ENOTDIR ? ERROR_MOD_NOT_FOUND : code_of_errno(error);
}

DWORD parse_module_name(const WCHAR *name, ModuleName *parsed) {
    if (is_path(name)) {
        return parse_path(name, parsed);
    }
    if (wcsnlen(name, MAX_PATH) == MAX_PATH) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    const std::optional<std::string> file = host_name(name);
    parsed->files = file ? files_of(*file, false) : std::vector<std::string>();
    return parsed->files.empty() ? ERROR_MOD_NOT_FOUND : ERROR_SUCCESS;
}

DWORD find_in_folder(const std::string &folder, const std::vector<std::string> &files,
                     std::string *path) {
    DWORD code = ERROR_MOD_NOT_FOUND;
    for (const std::string &file : files) {
        std::string whole = folder + file;
        struct stat facts;
        const int error = stat(whole.c_str(), &facts) != 0 ? errno
                          : S_ISDIR(facts.st_mode)         ? EISDIR
                                                           : 0;
        if (error == 0) {
            *path = std::move(whole);
            return ERROR_SUCCESS;
        }
        code = code == ERROR_MOD_NOT_FOUND ? code_of_module_path(error) : code;
    }
    return code;
}

DWORD find_module(const WCHAR *name, std::string *path) {
    ModuleName parsed;
    if (const DWORD code = parse_module_name(name, &parsed)) {
        return code;
    }
    if (parsed.is_path) {
        return find_in_folder(parsed.folder, parsed.files, path);
    }
    const std::string own = program_folder();
    if (!own.empty() && find_in_folder(own, parsed.files, path) == ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    for (const std::string &folder : host_folders()) {
        if (find_in_folder(folder, parsed.files, path) == ERROR_SUCCESS) {
            return ERROR_SUCCESS;
        }
    }
    return is_callers_environment() ? ERROR_MOD_NOT_FOUND
                                    : find_in_folder(current_folder(), parsed.files, path);
}

}  // namespace ostrel_platform
