#ifndef OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H
#define OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H

// Internal. Implements the walk of CBrowseDirectory.

#include "ostrel/file/browse_directory.h"

namespace OS {

class CBrowseDirectoryImp {
public:
    explicit CBrowseDirectoryImp(CBrowseDirectory::BROWSE_DIRECTORY_MODE mode) : m_mode(mode) {}
    CBrowseDirectoryImp(const CBrowseDirectoryImp &) = default;
    CBrowseDirectoryImp &operator=(const CBrowseDirectoryImp &) = default;
    virtual ~CBrowseDirectoryImp();

    // Replaces null texts by empty ones and calls BrowseSubDirectory, which a derived class can
    // override.
    virtual void BrowseDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                 const WCHAR *pszFileSpec,
                                 CBrowseDirectory::CFileSearchCallback &callback);

protected:
    // Walks one directory and calls itself for each subdirectory.
    virtual void BrowseSubDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                    const WCHAR *pszFileSpec,
                                    CBrowseDirectory::CFileSearchCallback &callback);

    CBrowseDirectory::BROWSE_DIRECTORY_MODE m_mode;
};

}  // namespace OS

#endif  // OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H
