#include "ostrel/file/browse_directory.h"

#include "ostrel/file/win32_browse_directory_imp.h"

namespace OS {

CBrowseDirectory::CFileSearchCallback::~CFileSearchCallback() = default;

CBrowseDirectory::CBrowseDirectory(BROWSE_DIRECTORY_MODE mode)
    : m_pImp(std::make_unique<CBrowseDirectoryImp>(mode)) {}

CBrowseDirectory::CBrowseDirectory(const CBrowseDirectory &other)
    : m_pImp(std::make_unique<CBrowseDirectoryImp>(*other.m_pImp)) {}

CBrowseDirectory &CBrowseDirectory::operator=(const CBrowseDirectory &other) {
    *m_pImp = *other.m_pImp;
    return *this;
}

CBrowseDirectory::~CBrowseDirectory() = default;

void CBrowseDirectory::BrowseDirectory(const WCHAR *pszTargetDirectory, bool fIncludeSubDirectory,
                                       const WCHAR *pszFileSpec, CFileSearchCallback &callback) {
    m_pImp->BrowseDirectory(pszTargetDirectory, fIncludeSubDirectory, pszFileSpec, callback);
}

}  // namespace OS
