#ifndef OSTREL_FILE_BROWSE_DIRECTORY_H
#define OSTREL_FILE_BROWSE_DIRECTORY_H

// CBrowseDirectory walks a directory tree and passes each file to a callback.
//
//   class Sum : public OS::CBrowseDirectory::CFileSearchCallback {
//   public:
//       void operator()(const WCHAR *, const WCHAR *, const WCHAR *fullPath) override {
//           DWORD size = 0;
//           NS_FileUtils::getFileSize(fullPath, size);
//           bytes += size;
//       }
//       std::uint64_t bytes = 0;
//   };
//
//   Sum sum;
//   OS::CBrowseDirectory().BrowseDirectory(TEXT("c:\\data"), true, TEXT("*.*"), sum);
//
// Ownership: the walker refers to the callback during a walk only.
// Threads: a walker keeps nothing but its mode, so one walker may run walks on several threads at
// once. The callback runs on the thread that calls BrowseDirectory.
// Errors: see BrowseDirectory. Construction, copying and a walk throw std::bad_alloc when memory is
// short.

#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class CBrowseDirectoryImp;

class OSTREL_API CBrowseDirectory {
public:
    // The mode of a walker. Every value has the same effect.
    enum BROWSE_DIRECTORY_MODE : int { BROWSE_DIRECTORY_DEFAULT = 1 };

    // The receiver of the files.
    class OSTREL_API CFileSearchCallback {
    public:
        CFileSearchCallback() = default;
        CFileSearchCallback(const CFileSearchCallback &) = default;
        CFileSearchCallback &operator=(const CFileSearchCallback &) = default;
        virtual ~CFileSearchCallback();

        // Receives one file: the path of its directory, its name without the directory, and its
        // full path. The full path joins the two as NS_StringUtils::concatPath does and has any
        // length. The path of the directory is the argument of BrowseDirectory, or for a
        // subdirectory the same kind of join; a name that begins like a drive (c:x) in the current
        // directory, for an empty argument, has the path .\c:x. The texts are valid during the call
        // only. An exception ends the walk and passes through BrowseDirectory.
        virtual void operator()(const WCHAR *directory, const WCHAR *name,
                                const WCHAR *fullPath) = 0;
    };

    CBrowseDirectory(BROWSE_DIRECTORY_MODE mode = BROWSE_DIRECTORY_DEFAULT);
    // A copy shares nothing with its source.
    CBrowseDirectory(const CBrowseDirectory &other);
    CBrowseDirectory &operator=(const CBrowseDirectory &other);
    virtual ~CBrowseDirectory();

    // Calls `callback` for each file in `pszTargetDirectory` that matches the pattern `pszFileSpec`
    // (ostrel/platform/find.h), in the order of the host. With `fIncludeSubDirectory` enters each
    // subdirectory as soon as the walk meets it, if the subdirectory matches the pattern too. Never
    // enters a subdirectory named "." or with a name of two characters of which one is a '.', nor a
    // link to a directory on the way down to the link. Of several links to one directory enters the
    // first that it meets. Null texts count as empty; an empty `pszTargetDirectory` is the current
    // directory.
    //
    // A directory that is missing or is a file, and one in which nothing matches, counts as empty.
    // Throws CSystemException with the errno of _wfindfirst64i32 when a directory or subdirectory
    // cannot be listed for another reason, such as EACCES, or ENAMETOOLONG when the directory
    // joined with the pattern has more than 259 characters. A listing that fails after its first
    // entry counts as complete.
    virtual void BrowseDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                 const WCHAR *pszFileSpec, CFileSearchCallback &callback);

private:
    std::unique_ptr<CBrowseDirectoryImp> m_pImp;
};

}  // namespace OS

#endif  // OSTREL_FILE_BROWSE_DIRECTORY_H
