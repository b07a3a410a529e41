#ifndef OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H
#define OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H

// Internal. The walk behind CBrowseDirectory.

#include "ostrel/file/browse_directory.h"

namespace OS {

class CBrowseDirectoryImp {
public:
    explicit CBrowseDirectoryImp(CBrowseDirectory::BROWSE_DIRECTORY_MODE mode) : m_mode(mode) {}
    CBrowseDirectoryImp(const CBrowseDirectoryImp &) = default;
    CBrowseDirectoryImp &operator=(const CBrowseDirectoryImp &) = default;
    virtual ~CBrowseDirectoryImp();

    // Hands over to BrowseSubDirectory, which a derived class can replace.
    virtual void BrowseDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                 const WCHAR *pszFileSpec,
                                 CBrowseDirectory::CFileSearchCallback &callback);

protected:
    // Walks one directory, and calls itself for each subdirectory.
    virtual void BrowseSubDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                    const WCHAR *pszFileSpec,
                                    CBrowseDirectory::CFileSearchCallback &callback);

    CBrowseDirectory::BROWSE_DIRECTORY_MODE m_mode;
};

}  // namespace OS

#endif  // OSTREL_FILE_WIN32_BROWSE_DIRECTORY_IMP_H
