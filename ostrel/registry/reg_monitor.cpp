#include "ostrel/registry/reg_monitor.h"

#include <utility>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace OS {

CRegMonitor::CRegMonitor(const CRegMonitor &other) noexcept = default;

CRegMonitor &CRegMonitor::operator=(const CRegMonitor &other) noexcept = default;

CRegMonitor::~CRegMonitor() {
    if (m_hNotifyEvent != nullptr) {
        CloseHandle(std::exchange(m_hNotifyEvent, nullptr));
    }
    m_key.Close();
}

void CRegMonitor::RegisterMonitorKey(HKEY parent, const WCHAR *keyName, DWORD access) noexcept {
    if (m_key.Open(parent, keyName, access) != ERROR_SUCCESS) {
        return;
    }
    // Opening has closed the earlier key, and so woken those who wait for the earlier event.
    if (m_hNotifyEvent != nullptr) {
        CloseHandle(m_hNotifyEvent);
    }
    m_hNotifyEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_hNotifyEvent != nullptr) {
        ContinueToMonitor();
    }
}

void CRegMonitor::ContinueToMonitor() noexcept {
    RegNotifyChangeKeyValue(m_key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, m_hNotifyEvent, TRUE);
}

}  // namespace OS
