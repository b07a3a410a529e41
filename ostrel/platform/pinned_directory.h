#ifndef OSTREL_PLATFORM_PINNED_DIRECTORY_H
#define OSTREL_PLATFORM_PINNED_DIRECTORY_H

// Keeps a path leading to the same directory while a walk is under way. The platform does so by
// itself: nobody can rename a directory in which a search is open, nor a directory above it. The
// host has no such rule, so another user who may rename a directory of the tree could put a link to
// a directory elsewhere in its place. This class is an addition to the platform's calls.
//
//   const PinnedDirectory pin(directory, PinnedDirectory::kNotALink);
//   for (...) DeleteFileW(joined(directory, name));  // works in the directory that was opened
//
// Implemented with openat, fstatat and unlinkat.

#include "ostrel/platform/types.h"

#ifndef _WIN32

#include <memory>
#include <string_view>

#endif

namespace ostrel_platform {

#ifdef _WIN32

class PinnedDirectory {
public:
    enum Flags : unsigned { kNone = 0, kNotALink = 1, kNoLinksInIt = 2, kDeletes = 4 };
    enum class Facts { kAll, kSizes, kKinds };

    PinnedDirectory(const WCHAR *, unsigned, Facts = Facts::kAll) noexcept {}
    void Want(Facts) noexcept {}
    bool IsPinned() const noexcept { return true; }
};

#else

struct PinnedDirectoryState;

// Opens a directory and keeps it open. While the object lives, calls of the same thread whose path
// is `directory`, a separator and one name work in the directory that was opened, whatever
// `directory` leads to meanwhile: GetFileAttributesW, SetFileAttributesW, CreateFileW, DeleteFileW,
// CreateDirectoryW, RemoveDirectoryW, MoveFileW, MoveFileExW, searches, and the opening of another
// pinned directory. Pinned directories therefore nest, and a tree is walked as it was found. The
// text must be the same unit by unit, but for separators at its end. A pinned directory that could
// not be opened makes those calls fail with the error of its opening. One that this user may not
// list serves all calls but searches. On a host without /proc the two moves work by the path.
//
// Threads: create and destroy the object on one thread, in the order of scopes.
// Errors: none; without memory the directory counts as not opened.
class OSTREL_PLATFORM_API PinnedDirectory {
public:
    enum Flags : unsigned {
        kNone = 0,
        kNotALink = 1,     // a link at `directory` counts as a directory that cannot be opened
        kNoLinksInIt = 2,  // CreateFileW in the directory refuses to write through a link
        // The thread deletes what its search finds: SetFileAttributesW with FILE_ATTRIBUTE_NORMAL
        // of the file that the search returned last takes effect in the DeleteFileW that follows,
        // and reports no failure. It saves three host calls a file that is not read-only.
        kDeletes = 4,
    };

    // What the next search in the directory stores of an entry. Later searches store all. Before it
    // calls code of others, a walk wants all again: its own search may have been elsewhere.
    enum class Facts {
        kAll,    // as find.h says
        kSizes,  // no stored attributes: HIDDEN, SYSTEM and ARCHIVE may be missing, and the
                 // creation time is the host's
        kKinds,  // the name, DIRECTORY and REPARSE_POINT; times and sizes are 0
    };

    // Stores the pointer: `directory` must outlive the object. An empty text is the current
    // directory.
    PinnedDirectory(const WCHAR *directory, unsigned flags, Facts facts = Facts::kAll) noexcept;
    ~PinnedDirectory();
    PinnedDirectory(const PinnedDirectory &) = delete;
    PinnedDirectory &operator=(const PinnedDirectory &) = delete;

    // Chooses what the next search that begins in the directory stores.
    void Want(Facts facts) noexcept;

    // Whether the directory was opened.
    bool IsPinned() const noexcept;

    // Internal.
    struct Access;

private:
    std::u16string_view m_text;  // of the directory, without separators at its end
    std::shared_ptr<PinnedDirectoryState> m_state;  // null when the directory was not opened
    int m_error = 0;                                // the errno of the opening
    const PinnedDirectory *m_outer;                 // the pinned directory created before
};

#endif

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PINNED_DIRECTORY_H
