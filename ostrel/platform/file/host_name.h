#ifndef OSTREL_PLATFORM_FILE_HOST_NAME_H
#define OSTREL_PLATFORM_FILE_HOST_NAME_H

// Internal. Where on the host a call by path works: at a path, or at a name in a directory that the
// thread has pinned (pinned_directory.h).

#include <fcntl.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/pinned_directory.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct PinnedDirectoryState {
    HostDescriptor directory;
    unsigned flags = PinnedDirectory::kNone;
    PinnedDirectory::Facts facts = PinnedDirectory::Facts::kAll;  // what the next search stores
    bool may_be_root = true;  // whether `directory` may be the host's root, its own parent
    // Whether a search uses the position of `directory`, or nobody can: this user may not list it.
    std::atomic<bool> is_listed{false};

    // With kDeletes: the regular file that the search returned last, or empty, and whether the file
    // is to lose its attributes.
    std::string found_file;
    bool becomes_normal = false;

    PinnedDirectory::Facts TakeFacts() {
        return std::exchange(facts, PinnedDirectory::Facts::kAll);
    }
};

struct HostName {
    std::shared_ptr<PinnedDirectoryState> pin;  // null for a path
    std::string name;

    // Valid while the object lives.
    FileRef Ref() const { return {pin ? pin->directory.Get() : AT_FDCWD, name.c_str()}; }

    // The same as a path, which for a pinned directory leads through /proc. The path is valid while
    // the directory is pinned.
    std::string Path() const;

    bool RefusesLinks() const { return pin && (pin->flags & PinnedDirectory::kNoLinksInIt) != 0; }

    // Returns the code of an errno that a host call on this name gave (code_of_path).
    DWORD CodeOf(int error) const noexcept;
};

// Converts a path of up to 259 characters. On failure returns nothing and sets the last error, as
// file_path does, or to the code of a pinned directory that could not be opened; stores the errno
// in `*error` unless `error` is null: ENOTDIR when what should be a pinned directory is not one.
std::optional<HostName> resolve_file(const WCHAR *path, int *error = nullptr);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_HOST_NAME_H
