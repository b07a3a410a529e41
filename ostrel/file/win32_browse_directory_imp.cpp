#include "ostrel/file/win32_browse_directory_imp.h"

#include <cerrno>
#include <utility>

#include "ostrel/core/handles.h"
#include "ostrel/core/trace.h"
#include "ostrel/file/joined_path.h"
#include "ostrel/file/walk.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/pinned_directory.h"

namespace OS {
namespace {

using NS_FileUtils::detail::JoinedPath;
using NS_FileUtils::detail::or_empty;
using NS_FileUtils::detail::Walk;
using ostrel_platform::PinnedDirectory;

// The walk that the thread is in: BrowseSubDirectory has no argument for it.
constinit thread_local Walk *current_walk = nullptr;

// Makes a walk the current one until the end of its scope.
class CurrentWalk {
public:
    explicit CurrentWalk(Walk *walk) noexcept : m_outer(std::exchange(current_walk, walk)) {}
    ~CurrentWalk() { current_walk = m_outer; }
    CurrentWalk(const CurrentWalk &) = delete;
    CurrentWalk &operator=(const CurrentWalk &) = delete;

private:
    Walk *m_outer;
};

// Returns true when the walk may enter a subdirectory of this name.
bool has_name_to_enter(const WCHAR *name) {
    if (name[0] == 0 || name[1] == 0) {
        return name[0] != 0 && name[0] != TEXT('.');
    }
    return name[2] != 0 || (name[0] != TEXT('.') && name[1] != TEXT('.'));
}

}  // namespace

CBrowseDirectoryImp::~CBrowseDirectoryImp() = default;

void CBrowseDirectoryImp::BrowseDirectory(const WCHAR *pszTargetDirectory,
                                          bool fIncludeSubDirectory, const WCHAR *pszFileSpec,
                                          CBrowseDirectory::CFileSearchCallback &callback) {
    Walk walk;
    const CurrentWalk current(&walk);
    BrowseSubDirectory(or_empty(pszTargetDirectory), fIncludeSubDirectory, or_empty(pszFileSpec),
                       callback);
}

#define TRACE_CALL(level)                                                                       \
    OSTREL_TRACE(level,                                                                         \
                 TEXT("BrowseSubDirectory(pszTargetDirectory = %s, fIncludeSubDirectory = %d, " \
                      "pszFileSpec = %s)"),                                                     \
                 pszTargetDirectory, int{fIncludeSubDirectory}, pszFileSpec)

void CBrowseDirectoryImp::BrowseSubDirectory(const WCHAR *pszTargetDirectory,
                                             bool fIncludeSubDirectory, const WCHAR *pszFileSpec,
                                             CBrowseDirectory::CFileSearchCallback &callback) {
    TRACE_CALL(DBG::kLevelEntry);
    JoinedPath path(or_empty(pszTargetDirectory));
    const WCHAR *const strDirSpec = path.WithPattern(or_empty(pszFileSpec));
    OSTREL_TRACE(DBG::kLevelValue, TEXT("strDirSpec = %s"), strDirSpec);
    Walk walk;  // for a derived class that calls this function alone
    const CurrentWalk current(current_walk != nullptr ? current_walk : &walk);
    PinnedDirectory pin(path.Directory(), PinnedDirectory::kNone, PinnedDirectory::Facts::kKinds);
    const Walk::Level level(current_walk, path.Directory());
    _wfinddata64i32_t fd;
    const std::intptr_t search = _wfindfirst64i32(strDirSpec, &fd);
    const int error = errno;
    pin.Want(PinnedDirectory::Facts::kAll);
    if (search == -1) {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("errno = %d"), error);
        if (error != ENOENT) {
            OSTREL_RAISE_SYSTEM(error);
        }
        TRACE_CALL(DBG::kLevelExit);
        return;
    }
    const CAutoFindClose close(search);
    do {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("BrowseSubDirectory: fd.name = %s"), fd.name);
        if (!NS_FileUtils::detail::is_directory(fd.attrib)) {
            callback(pszTargetDirectory, fd.name, path.With(fd.name));
        } else if (fIncludeSubDirectory && has_name_to_enter(fd.name) &&
                   current_walk->Enters(fd.attrib, path.With(fd.name))) {
            BrowseSubDirectory(path.With(fd.name), fIncludeSubDirectory, pszFileSpec, callback);
        }
    } while (_wfindnext64i32(search, &fd) == 0);
    TRACE_CALL(DBG::kLevelExit);
}

#undef TRACE_CALL

}  // namespace OS
