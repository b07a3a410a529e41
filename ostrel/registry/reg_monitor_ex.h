#ifndef OSTREL_REGISTRY_REG_MONITOR_EX_H
#define OSTREL_REGISTRY_REG_MONITOR_EX_H

// CRegMonitorEx calls functions when keys below HKEY_LOCAL_MACHINE change, whichever process has
// changed them. The process has one object of the class.
//
//   int Reload(const OS::x_wstring &keyName);  // the result is ignored
//
//   OS::CRegMonitorEx *const monitor = OS::CRegMonitorEx::Instance();
//   monitor->RegisterRegNotify(TEXT("SOFTWARE\\Larkspur"), true, Reload, true);
//   ...
//   monitor->Unregister(TEXT("SOFTWARE\\Larkspur"), true, Reload);
//
// Units. Key name and subtree flag make a unit, which has any number of callbacks, each once. Names
// that differ in the case of A-Z, or by one '\' at the end, are one unit. A unit takes one thread
// (its watcher), two events and one open key. There is no limit on units but the host's.
//
// Changes. Values that are set or deleted and subkeys that are created or deleted count; with the
// subtree flag those of all keys below count too. Each signal of the platform
// (RegNotifyChangeKeyValue) calls all callbacks of the unit once, in the order of their addresses.
// Changes in quick succession may share one signal. No change is left out: a callback that begins
// after a change reads what the change wrote. Watching begins on the unit's own thread, shortly
// after RegisterRegNotify returns; a change in between can pass without a call. A key that is
// deleted calls the callbacks once; its unit is silent from then on, until it is unregistered. A
// unit whose thread the host refuses is silent too, and all units are when it refuses the
// dispatcher.
//
// Callbacks run on one thread, the dispatcher, one after the other in the order of the signals. A
// callback that takes long delays all others, and RegisterRegNotify and Unregister on other threads
// too; the changes are counted meanwhile.
//   - A callback may register and unregister callbacks, its own too. A callback that is registered
//     or unregistered during the calls of its unit is called, or is not called, from then on. The
//     name stays valid until the callback returns.
//   - A callback must not wait for a thread that is about to call RegisterRegNotify or Unregister.
//   - A callback must not end its thread, as pthread_exit does.
//   - An exception that leaves a callback on the dispatcher is dropped; the other callbacks are
//     called. An exception of the immediate call of RegisterRegNotify reaches the caller.
//   - Unregister before you unload the library that holds a callback. Outside of callbacks, the
//     callback is not running any more when Unregister returns. A callback that unloads its own
//     library crashes.
//
// The end. The first call of Instance keeps this library loaded until the process ends, as its
// threads run in it: dlclose has no effect from then on. At the exit of the process, signals that
// wait are dispatched for up to 500 ms; the rest is dropped. A callback that still runs then goes
// on beside the exit, and the dispatcher stops once it has called the other callbacks of the unit.
// The exit waits up to 1 s more for callbacks on any thread, and up to 5 s for watchers that are
// inside a call of the platform, which takes microseconds unless the store hangs. So the end takes
// about 7 s at most. What is still in use then is left to the system. A callback may call exit.
// Calls after the end, from destructors of static objects, have no effect: RegisterRegNotify
// returns false. A static object that is made after the first call of Instance is destroyed before
// the end, so its call waits for a callback that runs.
//
// Forks. The child of a fork has no dispatcher and no watchers: nothing is called there, calls have
// no effect, as after the end, and the exit of the child waits for nobody. A callback that forks
// has to end the child itself: its only thread is a dispatcher, which returns to its wait.
//
// Threads: any thread may call anything.
// Errors: RegisterRegNotify returns false. Instance, RegisterRegNotify and Unregister throw
// std::bad_alloc when memory is short; nothing has changed then. The threads of the object wait for
// memory instead.

#include <deque>
#include <map>
#include <memory>
#include <set>

#include "ostrel/core/api.h"
#include "ostrel/core/critical_section.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/registry.h"

namespace OS {

class OSTREL_API CRegMonitorEx {
public:
    CRegMonitorEx(const CRegMonitorEx &) = delete;
    CRegMonitorEx &operator=(const CRegMonitorEx &) = delete;

    // Returns the object, never null. The first call starts the dispatcher.
    static CRegMonitorEx *Instance();

    // Adds `callback` to the unit of `keyName`, a path below HKEY_LOCAL_MACHINE, and `subTree`. A
    // callback that the unit has already changes nothing. With `notifyNow` a callback that is new
    // to the unit is also called once, on this thread and before its first call by a change, with
    // `keyName` as given here. Later calls receive the name as the first callback of the unit was
    // registered. The name ends at its first NUL.
    //
    // Returns true. Returns false, and calls and adds nothing, when the name is empty, `callback`
    // is null, or the unit is new and its key cannot be opened with KEY_READ. An existing unit
    // takes callbacks also after its key has been deleted.
    bool RegisterRegNotify(const x_wstring &keyName, bool subTree,
                           int (*callback)(const x_wstring &), bool notifyNow);

    // Removes `callback` from the unit of `keyName` and `subTree`; the last callback takes the unit
    // with it, and signals of the unit that wait call nothing. Has no effect when there is no such
    // unit or callback.
    void Unregister(const x_wstring &keyName, bool subTree, int (*callback)(const x_wstring &));

private:
    struct UnitHandles;
    struct WatcherBlock;

    // A unit.
    struct _RegMonInfo {
        HKEY hKey;             // open for reading
        x_wstring strKeyName;  // as the first callback was registered
        bool bSubTree;
        HANDLE hEvents[2];  // notification (auto-reset), stop (manual-reset)
        std::set<int (*)(const x_wstring &)> setCallbacks;
        std::shared_ptr<UnitHandles> handles;  // owns key and events, together with the watcher
    };
    // A signal that waits for the dispatcher. The dispatcher looks the unit up by the event.
    struct _NotifyItem {
        HANDLE hEvent;
    };

    CRegMonitorEx();
    ~CRegMonitorEx();

    x_wstring ComposeKeyName(const x_wstring &keyName, bool subTree);
    static DWORD ThreadProc(void *block);
    static unsigned int NotifyThread(void *self);
    void Notify(void *event);
    void Enqueue(const _NotifyItem &item);
    int QueueUserWorkItem_(DWORD (*routine)(void *), void *context, DWORD flags);
    void RemoveCallback(const x_wstring &composed, int (*callback)(const x_wstring &)) noexcept;
    static void UnregisterOne(std::pair<const x_wstring, _RegMonInfo> &entry);
    void UnregisterAll();
    void ExitMonitor();

    HANDLE m_hNotifyThread = nullptr;
    HANDLE m_hExitEvent = nullptr;       // manual-reset
    HANDLE m_hQueueSemaphore = nullptr;  // counts m_queueNotify
    std::map<x_wstring, _RegMonInfo, XWSTRICMP> m_mapRegInfo;
    std::map<HANDLE, _RegMonInfo *> m_mapEventToInfo;  // by notification event
    std::deque<_NotifyItem> m_queueNotify;
    // Guard the queue; the maps and the units. Nobody holds both.
    static CCriticalSection_local m_csNotifyQueue;
    static CCriticalSection_local m_csRegInfo;
};

}  // namespace OS

#endif  // OSTREL_REGISTRY_REG_MONITOR_EX_H
