#include "ostrel/platform/registry/store_places.h"

#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/registry/database.h"

namespace ostrel_platform {
namespace {

// Returns an absolute path from a variable; "" when the variable has none or is not to be trusted.
std::string path_of(const char *variable) {
    if (is_callers_environment()) {
        return {};
    }
    WatchedVariable watched;
    const std::optional<std::string> value = watched.Read(variable);
    return value && value->starts_with('/') ? *value : std::string();
}

std::string home() {
    if (std::string path = path_of("HOME="); !path.empty()) {
        return path;
    }
    std::vector<char> buffer(1 << 14);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    return "/nonexistent";
}

std::string user_folder() {
    std::string state = path_of("XDG_STATE_HOME=");
    if (state.empty()) {
        state = home() + "/.local/state";
    }
    return state + "/ostrel/registry";
}

// Returns the path of the file that a link leads to, "" for a path that is no link to a file.
std::string target_of(const std::string &path) {
    struct stat facts;
    if (lstat(path.c_str(), &facts) != 0 || !S_ISLNK(facts.st_mode)) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> target(realpath(path.c_str(), nullptr),
                                                             std::free);
    return target != nullptr ? target.get() : std::string();
}

// Creates a folder with this mode, whatever the umask is. Returns 0 or errno.
int create_folder(const std::string &folder, mode_t mode) {
    struct stat facts;
    if (mkdir(folder.c_str(), mode) != 0 || stat(folder.c_str(), &facts) != 0) {
        return errno;
    }
    const bool is_complete = (facts.st_mode & mode) == mode;
    return is_complete ? 0 : error_of(chmod(folder.c_str(), (facts.st_mode & 07777) | mode));
}

}  // namespace

StorePlace place_of(StoreKind kind) {
    const bool is_machine = kind == StoreKind::kMachine;
    StorePlace place;
    place.folder = path_of("OSTREL_REGISTRY=");
    if (place.folder.empty()) {
        place.folder = is_machine ? "/var/lib/ostrel/registry" : user_folder();
    }
    std::string stem = place.folder + (is_machine ? "/machine" : "/user");
    place.database = stem + ".db";
    if (std::string target = target_of(place.database); !target.empty()) {
        // SQLite keeps its files beside the target, and who names the target has to use the same.
        place.database = target;
        stem = target.ends_with(".db") ? target.substr(0, target.size() - 3) : target;
    }
    place.log = place.database + "-wal";
    place.shm = place.database + "-shm";
    place.lock = stem + ".lock";
    place.page = stem + ".page";
    place.folder_mode = is_machine ? 0755 : 0700;
    place.file_mode = is_machine ? 0644 : 0600;
    return place;
}

int create_folders(const std::string &folder, mode_t mode) {
    const int error = create_folder(folder, mode);
    if (error == 0) {
        return 0;
    }
    struct stat facts;
    if (error == EEXIST) {
        return stat(folder.c_str(), &facts) != 0 ? errno : S_ISDIR(facts.st_mode) ? 0 : ENOTDIR;
    }
    const std::size_t end = folder.find_last_of('/');
    if (error != ENOENT || end == folder.npos || end == 0) {
        return error;
    }
    if (const int above = create_folders(folder.substr(0, end), mode)) {
        return above;
    }
    const int last = create_folder(folder, mode);
    return last == EEXIST ? 0 : last;
}

const std::string &host_boot() {
    // A failure is not kept: the id decides which rows and which page are of this boot.
    static const std::string *const boot = [] {
        constexpr std::size_t kLength = 36;
        auto text = std::make_unique<std::string>(kLength, '\0');
        const HostDescriptor file = open_host("/proc/sys/kernel/random/boot_id", O_RDONLY);
        if (!file && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
            throw StoreFailure{code_of_errno(errno)};
        }
        if (!file || read(file.Get(), text->data(), kLength) != static_cast<ssize_t>(kLength)) {
            *text = "no boot id";
        }
        return text.release();
    }();
    return *boot;
}

std::uint64_t random_number() noexcept {
    std::uint64_t number = 0;
    while (number == 0) {
        if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number) &&
            errno != EINTR) {
            std::abort();  // a host without random numbers
        }
    }
    return number;
}

}  // namespace ostrel_platform
