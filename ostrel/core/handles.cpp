#include "ostrel/core/handles.h"

#include <utility>

#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"

namespace {

bool is_handle(void *value) {
    return value != nullptr && value != INVALID_HANDLE_VALUE;
}

}  // namespace

CHandle::~CHandle() {
    if (is_handle(m_handle)) {
        CloseHandle(m_handle);
    }
}

CFindHandle::~CFindHandle() {
    if (is_handle(m_search)) {
        FindClose(m_search);
    }
}

CSCHandle::~CSCHandle() {
    if (m_handle != nullptr) {
        CloseServiceHandle(m_handle);
    }
}

CAutoCloseLibrary::~CAutoCloseLibrary() {
    if (m_module != nullptr) {
        FreeLibrary(m_module);
    }
}

HINSTANCE CAutoCloseLibrary::Release() noexcept {
    return std::exchange(m_module, nullptr);
}

CAutoFindClose::~CAutoFindClose() {
    if (m_search != 0) {
        _findclose(static_cast<std::intptr_t>(m_search));
    }
}

CAutoDeleteFile::~CAutoDeleteFile() {
    _wremove(m_strPath.c_str());
}
