#ifndef OSTREL_FILE_BROWSE_DIRECTORY_H
#define OSTREL_FILE_BROWSE_DIRECTORY_H

// CBrowseDirectory: walks a directory tree and calls an object back for each file.
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
// Threads: a walker holds nothing but its mode: one may run several walks at the same time. The
// callback runs on the calling thread.

#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class CBrowseDirectoryImp;

class OSTREL_API CBrowseDirectory {
public:
    // Kept and copied; every value walks the same way.
    enum BROWSE_DIRECTORY_MODE : int { BROWSE_DIRECTORY_DEFAULT = 1 };

    class OSTREL_API CFileSearchCallback {
    public:
        CFileSearchCallback() = default;
        CFileSearchCallback(const CFileSearchCallback &) = default;
        CFileSearchCallback &operator=(const CFileSearchCallback &) = default;
        virtual ~CFileSearchCallback();

        // One file: the directory that is walked, as the walker holds it, the bare name, and the
        // two joined by NS_StringUtils::concatPath, in full, whatever its length. All are valid
        // during the call only. What it raises ends the walk and passes through it.
        virtual void operator()(const WCHAR *directory, const WCHAR *name,
                                const WCHAR *fullPath) = 0;
    };

    CBrowseDirectory(BROWSE_DIRECTORY_MODE mode = BROWSE_DIRECTORY_DEFAULT);
    // A copy has a walker of its own.
    CBrowseDirectory(const CBrowseDirectory &other);
    CBrowseDirectory &operator=(const CBrowseDirectory &other);
    virtual ~CBrowseDirectory();

    // Calls `callback` for each file that matches `pszFileSpec` (a pattern of the platform's
    // searches), in the order of the host. With `fIncludeSubDirectory` it enters each subdirectory
    // at the point where it is met, if it matches the pattern as well and its name is not "." or of
    // two characters with a '.' among them. A link that leads back to a directory on the way down
    // to it is not entered. Null texts count as empty.
    //
    // A directory in which nothing matches, or that is missing, is no error. Raises
    // CSystemException, with the errno as its code, when one cannot be listed for another reason:
    // EACCES, ENAMETOOLONG for a path of more than 259 characters.
    virtual void BrowseDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                 const WCHAR *pszFileSpec, CFileSearchCallback &callback);

private:
    std::unique_ptr<CBrowseDirectoryImp> m_pImp;
};

}  // namespace OS

#endif  // OSTREL_FILE_BROWSE_DIRECTORY_H
