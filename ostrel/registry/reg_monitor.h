#ifndef OSTREL_REGISTRY_REG_MONITOR_H
#define OSTREL_REGISTRY_REG_MONITOR_H

// CRegMonitor watches the values of one key. The caller waits for an event.
//
//   OS::CRegMonitor monitor;
//   monitor.RegisterMonitorKey(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Larkspur"), KEY_READ);
//   while (WaitForSingleObject(monitor.GetNotifyEvent(), INFINITE) == WAIT_OBJECT_0) {
//       monitor.ContinueToMonitor();  // before reading, so that no change is missed
//       ReadSettings();
//   }
//
// Each registration and each ContinueToMonitor arms one signal. A value that is set or deleted, by
// any process, signals. So does the end of the watch: the key is deleted or closed, or the thread
// that armed last ends (ostrel/platform/registry.h). Subkeys and their values do not signal. A
// change between a signal and ContinueToMonitor signals at once. After the key has been deleted,
// ContinueToMonitor arms nothing, and the event stays silent.
//
// For callbacks and many keys see reg_monitor_ex.h.
//
// Ownership: the destructor closes event and key, which ends the watch. Copies have the same two
// handles: only one of them may be destroyed while the handles are in use.
// Threads: one thread at a time may use an object. Any thread may wait for the event. A thread that
// waits when the destructor runs is woken if a signal is armed, as by a change, and else never.
// Errors: nothing is thrown or reported. GetNotifyEvent returns null after a first registration
// that failed. Without KEY_NOTIFY, or memory for it, there is an event that never signals.

#include "ostrel/core/api.h"
#include "ostrel/registry/reg_key.h"

namespace OS {

class OSTREL_API CRegMonitor {
public:
    CRegMonitor() noexcept = default;  // watches nothing
    CRegMonitor(const CRegMonitor &other) noexcept;
    virtual ~CRegMonitor();

    // Copies the handles. What this object holds is not closed.
    CRegMonitor &operator=(const CRegMonitor &other) noexcept;

    // Opens the key `keyName` below `parent` with the rights `access`, which need KEY_NOTIFY,
    // creates the event and arms the first signal. A key that cannot be opened leaves an earlier
    // watch of the object as it is; otherwise the call ends the earlier watch and closes its event.
    void RegisterMonitorKey(HKEY parent, const WCHAR *keyName, DWORD access) noexcept;

    // Arms the next signal.
    void ContinueToMonitor() noexcept;

    // Returns the event, or null before a registration. The object owns the event. A wait for it
    // takes the signal (auto-reset).
    void *GetNotifyEvent() noexcept { return m_hNotifyEvent; }

private:
    CRegKey m_key;
    HANDLE m_hNotifyEvent = nullptr;
};

}  // namespace OS

#endif  // OSTREL_REGISTRY_REG_MONITOR_H
