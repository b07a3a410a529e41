// Moves and renames files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/atomic_copy.h"
#include "ostrel/platform/file/delete_file.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/file/share_mode.h"
#include "ostrel/platform/pending/pending_moves.h"

namespace ostrel_platform {
namespace {

// On ENOENT the source is missing, or, if it exists, the target's folder.
DWORD code_of_move(int error, const std::string &source) {
    struct stat facts;
    if (error == ENOENT && lstat(source.c_str(), &facts) == 0) {
        return ERROR_PATH_NOT_FOUND;
    }
    return code_of_path(error, source.c_str());
}

bool is_unchanged(const struct stat &before, const struct stat &now) {
    return is_same_file(before, now) && before.st_size == now.st_size &&
           before.st_mtim.tv_sec == now.st_mtim.tv_sec &&
           before.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
}

// Moves to another file system. Deletes the source when the copy is on the disk, unless another
// process has replaced or written to the source meanwhile.
int move_by_copy(const std::string &source, const std::string &target, bool replace) {
    struct stat facts, there;
    if (lstat(source.c_str(), &facts) != 0) {
        return errno;
    }
    if (!S_ISREG(facts.st_mode) && !S_ISLNK(facts.st_mode)) {
        return EXDEV;
    }
    if (is_same_entry(source, target)) {
        return 0;  // the same file through two mounts
    }
    if (!replace && lstat(target.c_str(), &there) == 0) {
        return EEXIST;  // checks before a long copy
    }
    SharingFile file;
    int error = 0;
    if (S_ISLNK(facts.st_mode)) {
        error = copy_link(source, facts, target, replace);
    } else {
        file = SharingFile(open_host(source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
        if (!file || fstat(file.Get(), &facts) != 0) {
            return errno;
        }
        error = file.Take(kShareRead, kShareRead | kShareWrite | kShareDelete);
        if (error == 0) {
            error = copy_file(file.Get(), facts, target, {replace, true});
        }
    }
    if (error == 0) {
        error = sync_folder_of(target);
    }
    if (error == 0 && lstat(source.c_str(), &there) == 0 && is_unchanged(facts, there)) {
        unlink(source.c_str());  // ignores a failure
    }
    return error;
}

int move_new(const std::string &source, const std::string &target) {
    const int error = rename_host(source.c_str(), target.c_str(), false);
    return error == EEXIST && is_same_entry(source, target)
               ? rename_host(source.c_str(), target.c_str(), true)
               : error;
}

bool is_file_of(const std::string &path, const struct stat &file) {
    struct stat facts;
    return lstat(path.c_str(), &facts) == 0 && is_same_file(facts, file);
}

int exchange(const std::string &a, const std::string &b) {
    return error_of(renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE));
}

// The same as move_directory_over on a file system that cannot exchange two names: gives the
// replaced file a temporary name meanwhile.
int move_directory_in_steps(const std::string &source, const std::string &target,
                            const struct stat &there) {
    const std::string aside = temporary_path(target);
    int error = rename_host(target.c_str(), aside.c_str(), false);
    if (error != 0) {
        return error;
    }
    error = is_file_of(aside, there) ? rename_host(source.c_str(), target.c_str(), false) : EACCES;
    if (error != 0) {
        rename_host(aside.c_str(), target.c_str(), false);
        return error;
    }
    unlink(aside.c_str());  // ignores a failure, since the directory has moved
    return 0;
}

// Moves a directory to the name of a file or link, whose lstat result is `there`. The host's rename
// does not, so the call exchanges the two names and deletes the file under the directory's old one.
int move_directory_over(const std::string &source, const std::string &target,
                        const struct stat &there) {
    int error = exchange(source, target);
    if (error != 0) {
        return error == EINVAL || error == ENOSYS ? move_directory_in_steps(source, target, there)
                                                  : error;
    }
    error = is_file_of(source, there) ? error_of(unlink(source.c_str())) : EACCES;
    if (error != 0) {
        exchange(source, target);
    }
    return error;
}

// Moves to `target` and replaces a file there, if there is one. While `lock` lives, others cannot
// open that file without sharing deletion.
int move_over(const std::string &source, const std::string &target, SharingFile *lock) {
    struct stat facts, there, locked;
    if (lstat(source.c_str(), &facts) != 0) {
        return errno;
    }
    const bool exists = lstat(target.c_str(), &there) == 0 && !is_same_entry(source, target);
    if (exists && (S_ISDIR(there.st_mode) || is_read_only(there) ||
                   (S_ISREG(there.st_mode) &&
                    lock_for_delete({AT_FDCWD, target.c_str()}, &there, lock, &locked) != 0))) {
        return EACCES;
    }
    if (!S_ISDIR(facts.st_mode)) {
        return rename_over(source, target);
    }
    const int error =
        exists ? move_directory_over(source, target, there) : move_new(source, target);
    return error == EEXIST ? EACCES : error;  // others have put something there
}

// The folders of a move. Open runs before the move, so that a folder that cannot be opened prevents
// the move.
class SyncedFolders {
public:
    int Open(const std::string &source, const std::string &target) {
        m_folders[0] = open_host(folder_of(source).c_str(), O_RDONLY | O_DIRECTORY);
        if (!m_folders[0]) {
            return errno;
        }
        m_folders[1] = open_host(folder_of(target).c_str(), O_RDONLY | O_DIRECTORY);
        return m_folders[1] ? 0 : errno;
    }

    int Sync() const {
        const int error = sync_directory(m_folders[0].Get());
        return error != 0 ? error : sync_directory(m_folders[1].Get());
    }

private:
    std::array<HostDescriptor, 2> m_folders;
};

DWORD move_path(const std::string &source, const std::string &target, DWORD flags) {
    const bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    const bool syncs = (flags & MOVEFILE_WRITE_THROUGH) != 0;
    SyncedFolders folders;
    SharingFile lock;
    int error = syncs ? folders.Open(source, target) : 0;
    if (error == 0) {
        error = replace ? move_over(source, target, &lock) : move_new(source, target);
    }
    if (error == EXDEV && (flags & MOVEFILE_COPY_ALLOWED) != 0) {
        error = move_by_copy(source, target, replace);
    }
    if (error == 0 && syncs) {
        error = folders.Sync();
    }
    return error == 0 ? ERROR_SUCCESS : code_of_move(error, source);
}

// Converts a path of a move. A request for the next start names no directory of this process. Only
// /proc gives a path to a pinned directory.
std::optional<std::string> path_of_move(const WCHAR *path, bool delayed) {
    const std::optional<HostName> host = delayed ? std::nullopt : resolve_file(path);
    if (delayed || (host && host->pin && access("/proc/self/fd", X_OK) != 0)) {
        return file_path(path);
    }
    return host ? std::optional(host->Path()) : std::nullopt;
}

DWORD move_file(const WCHAR *source, const WCHAR *target, DWORD flags) {
    constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED |
                             MOVEFILE_DELAY_UNTIL_REBOOT | MOVEFILE_WRITE_THROUGH;
    const bool delayed = (flags & MOVEFILE_DELAY_UNTIL_REBOOT) != 0;
    if ((flags & ~kFlags) != 0 || (target == nullptr && !delayed) ||
        (delayed && (flags & MOVEFILE_COPY_ALLOWED) != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::optional<std::string> from = path_of_move(source, delayed);
    std::optional<std::string> to;
    if (from && target != nullptr) {
        to = path_of_move(target, delayed);
    }
    if (!from || (target != nullptr && !to)) {
        return GetLastError();
    }
    if (is_root(source) || (to && is_root(target))) {
        return ERROR_ACCESS_DENIED;
    }
    if (delayed) {
        return record_pending_move(*from, to ? &*to : nullptr,
                                   (flags & MOVEFILE_REPLACE_EXISTING) != 0);
    }
    return move_path(*from, *to, flags);
}

}  // namespace
}  // namespace ostrel_platform

BOOL MoveFileExW(const WCHAR *source, const WCHAR *target, DWORD flags) noexcept {
    return ostrel_platform::call_result(
        [=] { return ostrel_platform::move_file(source, target, flags); });
}

BOOL MoveFileW(const WCHAR *source, const WCHAR *target) noexcept {
    return MoveFileExW(source, target, MOVEFILE_COPY_ALLOWED);
}
