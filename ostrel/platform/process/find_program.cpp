#include "ostrel/platform/process/find_program.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/program_folder.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/process/command_line.h"

namespace ostrel_platform {
namespace {

constexpr std::u16string_view kSuffix = u".exe";

// The layer's own programs, which get what follows their name as one argument, as it is.
constexpr const char *kTools[] = {"CMD.exe", "taskkill"};

bool has_suffix(std::u16string_view name) {
    return name.size() > kSuffix.size() &&
           is_same_name(name.substr(name.size() - kSuffix.size()), kSuffix);
}

std::u16string_view without_suffix(std::u16string_view name) {
    return name.substr(0, name.size() - (has_suffix(name) ? kSuffix.size() : 0));
}

// The files to look for, for the name of a program.
std::vector<std::u16string> files_of(std::u16string_view name) {
    const std::u16string text(name);
    const std::size_t dot = name.substr(name.find_last_of(u"\\/") + 1).find(u'.');
    if (has_suffix(name)) {
        return {text, std::u16string(without_suffix(name))};
    }
    if (dot == name.npos) {
        return {text + std::u16string(kSuffix), text};
    }
    return {name.ends_with(u'.') ? text.substr(0, text.size() - 1) : text};
}

// Whether a file can be executed. Returns 0 or an errno.
int check_file(const std::string &path) {
    struct stat facts;
    if (stat(path.c_str(), &facts) != 0) {
        return errno;
    }
    if (!S_ISREG(facts.st_mode)) {
        return EACCES;
    }
    return faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

std::string absolute_path(std::string path) {
    if (!path.starts_with('/')) {
        const std::unique_ptr<char, decltype(&std::free)> folder(getcwd(nullptr, 0), &std::free);
        path = (folder != nullptr ? folder.get() : "/") + ('/' + path);
    }
    return path;
}

DWORD find_by_path(const std::vector<std::u16string> &files, std::string *path) {
    DWORD code = ERROR_FILE_NOT_FOUND;
    for (const std::u16string &file : files) {
        const auto found = file_path(file.c_str());
        if (!found) {
            return GetLastError();
        }
        const int error = check_file(*found);
        if (error == 0) {
            *path = absolute_path(*found);
            return ERROR_SUCCESS;
        }
        if (error != ENOENT) {
            return code_of_path(error, found->c_str());
        }
        code = code_of_path(error, found->c_str());
    }
    return code;
}

// The folders of the search path, without those that are relative. Without PATH, and in a program
// that has rights which its caller lacks, these are the host's standard folders.
std::vector<std::string> search_folders() {
    const char *const variable = secure_getenv("PATH");
    std::string_view list = variable != nullptr
                                ? variable
                                : "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    std::vector<std::string> folders;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(':'), list.size());
        if (list.starts_with('/')) {
            folders.push_back(std::string(list.substr(0, end)) + '/');
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return folders;
}

// Finds one of the layer's own programs.
bool find_tool(std::u16string_view name, std::string *path) {
    for (const std::string_view tool : kTools) {
        const std::u16string wide(tool.begin(), tool.end());
        if (is_same_name(without_suffix(name), without_suffix(wide))) {
            *path = tools_folder();
            return !path->empty() && check_file(path->append(tool)) == 0;
        }
    }
    return false;
}

DWORD find_by_name(const std::vector<std::u16string> &files, std::string *path) {
    std::vector<std::string> folders = search_folders();
    folders.insert(folders.begin(), {program_folder(), tools_folder()});
    DWORD code = ERROR_FILE_NOT_FOUND;
    for (const std::string &folder : folders) {
        for (const std::u16string &file : files) {
            const auto name = host_name(file.c_str());
            if (folder.empty() || !name) {
                continue;
            }
            *path = folder + *name;
            struct stat facts;
            const int error = check_file(*path);
            if (error == 0) {
                return ERROR_SUCCESS;
            }
            if (error == EACCES && stat(path->c_str(), &facts) == 0 && S_ISREG(facts.st_mode)) {
                code = ERROR_ACCESS_DENIED;  // unless a later folder has the program
            }
        }
    }
    return code;
}

// Finds a program by the word that names it. `is_tool` receives whether it is the layer's own.
DWORD find_by_word(std::u16string_view word, std::string *path, bool *is_tool) {
    *is_tool = find_tool(word, path);
    if (*is_tool) {
        return ERROR_SUCCESS;
    }
    if (word.empty() || word.size() >= MAX_PATH || word.find(u'\0') != word.npos) {
        return word.empty() ? ERROR_FILE_NOT_FOUND : ERROR_FILENAME_EXCED_RANGE;
    }
    const std::vector<std::u16string> files = files_of(word);
    const bool is_path = word.find_first_of(u"\\/") != word.npos || has_drive(files[0].c_str());
    return is_path ? find_by_path(files, path) : find_by_name(files, path);
}

}  // namespace

DWORD find_program(const WCHAR *application, const WCHAR *line, Program *program) {
    const std::u16string_view text = line != nullptr ? line : application;
    ProgramWord word = line != nullptr ? program_word(text) : ProgramWord{text, {}, true};
    bool is_tool = false;
    DWORD code;
    if (application != nullptr) {
        std::vector<std::u16string> files = {application};
        if (has_suffix(files[0])) {
            files.emplace_back(without_suffix(files[0]));
        }
        code = find_by_path(files, &program->path);
    } else {
        code = find_by_word(word.text, &program->path, &is_tool);
    }
    // Without quotation marks the name may hold blanks: the shortest one that is there counts.
    for (ProgramWord longer = word; application == nullptr && !word.is_quoted &&
                                    code != ERROR_SUCCESS && !longer.rest.empty() &&
                                    longer.text.size() < MAX_PATH;) {
        const std::size_t next = text.find_first_of(u" \t", longer.text.size() + 1);
        const std::size_t end = std::min(next, text.size());
        longer = {text.substr(0, end), text.substr(end), false};
        if (find_by_word(longer.text, &program->path, &is_tool) == ERROR_SUCCESS) {
            word = longer;
            code = ERROR_SUCCESS;
        }
    }
    if (code != ERROR_SUCCESS) {
        return code;
    }
    program->arguments = {argument_to_host(word.text)};
    if (is_tool) {
        program->arguments.push_back(argument_to_host(word.rest));
        return ERROR_SUCCESS;
    }
    for (const std::u16string &argument : cut_arguments(word.rest)) {
        program->arguments.push_back(argument_to_host(argument));
    }
    return ERROR_SUCCESS;
}

}  // namespace ostrel_platform
