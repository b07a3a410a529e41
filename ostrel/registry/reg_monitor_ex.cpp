#include "ostrel/registry/reg_monitor_ex.h"

#include <atomic>
#include <exception>
#include <new>
#include <utility>

#include "ostrel/core/module.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace OS {

namespace {

constexpr DWORD kDispatcherPatience = 500;  // milliseconds
constexpr DWORD kLockPatience = 500;
constexpr DWORD kWatcherPatience = 5000;

thread_local bool t_isDispatcher = false;

// What other threads may ask when the object is gone.
std::atomic<int> s_watchers{0};     // threads
bool s_hasEnded = false;            // no thread can use the object any more; guarded by m_csRegInfo
std::atomic<bool> s_isOver{false};  // the end has come, whoever uses the object still
std::atomic<HANDLE> s_dispatcher{nullptr};  // signalled in the child of a fork too

std::size_t s_uncounted = 0;  // items above the semaphore's maximum; guarded by m_csNotifyQueue

// Whether calls have no effect any more. They must not wait for m_csRegInfo then: a callback that
// never returns has the lock, or a thread that the child of a fork lacks.
bool is_over() noexcept {
    return s_isOver || WaitForSingleObject(s_dispatcher, 0) == WAIT_OBJECT_0;
}

// Repeats what memory is missing for.
template <class Action>
void insist(Action action) {
    for (;;) {
        try {
            action();
            return;
        } catch (const std::bad_alloc &) {
            Sleep(1);
        }
    }
}

}  // namespace

CCriticalSection_local CRegMonitorEx::m_csNotifyQueue;
CCriticalSection_local CRegMonitorEx::m_csRegInfo;

// The key and the events of a unit. The watcher has a share, so the handles that it uses stay open
// until it has ended, and no other object gets their values. Whoever is last closes them.
struct CRegMonitorEx::UnitHandles {
    HKEY key = nullptr;
    HANDLE events[2] = {};
    // Set with the stop event, which alone a watcher would never see while changes come without a
    // pause: a wait reports the lowest event that is signalled.
    std::atomic<bool> is_stopped{false};

    UnitHandles() = default;
    ~UnitHandles() {
        for (const HANDLE event : events) {
            if (event != nullptr) {
                CloseHandle(event);
            }
        }
        if (key != nullptr) {
            RegCloseKey(key);
        }
    }
    UnitHandles(const UnitHandles &) = delete;
    UnitHandles &operator=(const UnitHandles &) = delete;
};

// What a watcher gets from the thread that registers the unit.
struct CRegMonitorEx::WatcherBlock {
    CRegMonitorEx *pMonitor;
    HKEY hKey;
    bool bSubTree;
    HANDLE hEvent;
    HANDLE hExit;
    HANDLE hStop;
    std::shared_ptr<UnitHandles> handles;
};

CRegMonitorEx *CRegMonitorEx::Instance() {
    // Destroys the object only when no thread can use it any more.
    union Owner {
        CRegMonitorEx monitor;

        Owner() : monitor() {}
        ~Owner() {
            monitor.ExitMonitor();
            s_isOver = true;
            if (s_hasEnded) {
                monitor.~CRegMonitorEx();
            }
        }
    };
    static Owner owner;
    return &owner.monitor;
}

CRegMonitorEx::CRegMonitorEx() {
    keep_module_loaded();
    m_hQueueSemaphore = CreateSemaphoreW(nullptr, 0, 65535, nullptr);
    m_hExitEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_hNotifyThread =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, NotifyThread, this, 0, nullptr));
    s_dispatcher = m_hNotifyThread;
}

CRegMonitorEx::~CRegMonitorEx() {
    ExitMonitor();
    for (HANDLE *const handle : {&m_hQueueSemaphore, &m_hExitEvent, &m_hNotifyThread}) {
        if (*handle != nullptr) {
            CloseHandle(std::exchange(*handle, nullptr));
        }
    }
}

x_wstring CRegMonitorEx::ComposeKeyName(const x_wstring &keyName, bool subTree) {
    x_wstring name(keyName.c_str());
    if (name.IsEmpty() || name.back() != TEXT('\\')) {
        name += TEXT('\\');
    }
    if (subTree) {
        name += TEXT("!!!");
        name += TEXT("SUBTREE");
    }
    return name;
}

bool CRegMonitorEx::RegisterRegNotify(const x_wstring &keyName, bool subTree,
                                      int (*callback)(const x_wstring &), bool notifyNow) {
    const x_wstring name(keyName.c_str());  // a callback may end the life of `keyName`
    if (name.IsEmpty() || callback == nullptr || is_over()) {
        return false;
    }
    const x_wstring composed = ComposeKeyName(name, subTree);
    const CCriticalSection_local::CHolder held(m_csRegInfo);
    if (s_hasEnded) {
        return false;
    }
    auto unit = m_mapRegInfo.find(composed);
    if (unit != m_mapRegInfo.end()) {
        if (unit->second.setCallbacks.count(callback) != 0) {
            return true;
        }
        if (std::exchange(notifyNow, false)) {
            callback(name);
            unit = m_mapRegInfo.find(composed);  // the callback may have removed the unit
        }
        if (unit != m_mapRegInfo.end()) {
            unit->second.setCallbacks.insert(callback);
            return true;
        }
    }

    const auto handles = std::make_shared<UnitHandles>();
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_READ, &handles->key) !=
        ERROR_SUCCESS) {
        return false;
    }
    handles->events[0] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    handles->events[1] = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // Allocates everything before the maps change.
    decltype(m_mapRegInfo) units;
    decltype(m_mapEventToInfo) events;
    _RegMonInfo &record = units[composed];
    record = {handles->key, name,   subTree, {handles->events[0], handles->events[1]},
              {callback},   handles};
    events[record.hEvents[0]] = &record;
    std::unique_ptr<WatcherBlock> block(new WatcherBlock{
        this, handles->key, subTree, record.hEvents[0], m_hExitEvent, record.hEvents[1], handles});
    m_mapRegInfo.merge(units);
    m_mapEventToInfo.merge(events);

    std::exception_ptr failure;
    if (notifyNow) {
        try {
            callback(name);
        } catch (...) {
            failure = std::current_exception();
            RemoveCallback(composed, callback);
        }
    }
    // The watcher of a unit that the callback has removed ends before it arms.
    constexpr DWORD kTakesLong = 0x80;
    ++s_watchers;
    if (QueueUserWorkItem_(ThreadProc, block.get(), kTakesLong) != 0) {
        static_cast<void>(block.release());
    } else {
        --s_watchers;
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
    return true;
}

void CRegMonitorEx::Unregister(const x_wstring &keyName, bool subTree,
                               int (*callback)(const x_wstring &)) {
    const x_wstring composed = ComposeKeyName(keyName, subTree);
    if (is_over()) {
        return;
    }
    const CCriticalSection_local::CHolder held(m_csRegInfo);
    if (!s_hasEnded) {
        RemoveCallback(composed, callback);
    }
}

void CRegMonitorEx::RemoveCallback(const x_wstring &composed,
                                   int (*callback)(const x_wstring &)) noexcept {
    const auto unit = m_mapRegInfo.find(composed);
    if (unit == m_mapRegInfo.end()) {
        return;
    }
    unit->second.setCallbacks.erase(callback);
    if (unit->second.setCallbacks.empty()) {
        UnregisterOne(*unit);
        m_mapEventToInfo.erase(unit->second.hEvents[0]);
        m_mapRegInfo.erase(unit);
    }
}

// Starts a thread of its own for each item.
int CRegMonitorEx::QueueUserWorkItem_(DWORD (*routine)(void *), void *context, DWORD /*flags*/) {
    const HANDLE thread = CreateThread(nullptr, 0, routine, context, 0, nullptr);
    if (thread == nullptr) {
        return 0;
    }
    CloseHandle(thread);
    return 1;
}

DWORD CRegMonitorEx::ThreadProc(void *block) {
    std::unique_ptr<WatcherBlock> unit(static_cast<WatcherBlock *>(block));
    const HANDLE objects[] = {unit->hEvent, unit->hExit, unit->hStop};
    while (!unit->handles->is_stopped) {
        RegNotifyChangeKeyValue(unit->hKey, unit->bSubTree ? TRUE : FALSE,
                                REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET, unit->hEvent,
                                TRUE);
        if (WaitForMultipleObjects(3, objects, FALSE, INFINITE) != WAIT_OBJECT_0) {
            break;
        }
        insist([&unit] { unit->pMonitor->Enqueue({unit->hEvent}); });
    }
    unit.reset();
    --s_watchers;  // last: the object may be destroyed then
    return 1;
}

void CRegMonitorEx::Enqueue(const _NotifyItem &item) {
    const CCriticalSection_local::CHolder held(m_csNotifyQueue);
    m_queueNotify.push_back(item);
    if (ReleaseSemaphore(m_hQueueSemaphore, 1, nullptr) == FALSE) {
        ++s_uncounted;
    }
}

unsigned int CRegMonitorEx::NotifyThread(void *self) {
    auto *const monitor = static_cast<CRegMonitorEx *>(self);
    t_isDispatcher = true;
    const HANDLE objects[] = {monitor->m_hQueueSemaphore, monitor->m_hExitEvent};
    while (WaitForMultipleObjects(2, objects, FALSE, INFINITE) == WAIT_OBJECT_0) {
        _NotifyItem item{};
        {
            const CCriticalSection_local::CHolder held(m_csNotifyQueue);
            item = monitor->m_queueNotify.front();
            monitor->m_queueNotify.pop_front();
            if (s_uncounted != 0 &&
                ReleaseSemaphore(monitor->m_hQueueSemaphore, 1, nullptr) != FALSE) {
                --s_uncounted;
            }
        }
        monitor->Notify(item.hEvent);
    }
    return 0;
}

void CRegMonitorEx::Notify(void *event) {
    const CCriticalSection_local::CHolder held(m_csRegInfo);
    if (s_hasEnded) {
        return;
    }
    auto unit = m_mapEventToInfo.find(event);
    if (unit == m_mapEventToInfo.end()) {
        return;
    }
    x_wstring name;  // a callback may remove the unit
    insist([&] { name = unit->second->strKeyName; });
    auto next = unit->second->setCallbacks.begin();
    while (unit != m_mapEventToInfo.end() && next != unit->second->setCallbacks.end()) {
        int (*const callback)(const x_wstring &) = *next;
        try {
            callback(name);
        } catch (...) {
        }
        unit = m_mapEventToInfo.find(event);
        if (unit != m_mapEventToInfo.end()) {
            next = unit->second->setCallbacks.upper_bound(callback);
        }
    }
}

// The handles are closed when the watcher has seen the stop: at once, or by the watcher.
void CRegMonitorEx::UnregisterOne(std::pair<const x_wstring, _RegMonInfo> &entry) {
    entry.second.handles->is_stopped = true;
    SetEvent(entry.second.hEvents[1]);
    entry.second.handles.reset();
}

void CRegMonitorEx::UnregisterAll() {
    const CCriticalSection_local::CHolder held(m_csRegInfo);
    for (auto &entry : m_mapRegInfo) {
        UnregisterOne(entry);
    }
    m_mapEventToInfo.clear();
    m_mapRegInfo.clear();
}

void CRegMonitorEx::ExitMonitor() {
    if (m_hNotifyThread != nullptr && !t_isDispatcher &&
        WaitForSingleObject(m_hNotifyThread, 0) == WAIT_OBJECT_0) {
        return;  // in the child of a fork, which has none of the threads that would be waited for
    }
    SetEvent(m_hExitEvent);
    if (t_isDispatcher) {
        return;  // a callback calls exit; the callers of the callback still use the object
    }
    if (m_hNotifyThread != nullptr &&
        WaitForSingleObject(m_hNotifyThread, kDispatcherPatience) == WAIT_TIMEOUT) {
        TerminateThread(m_hNotifyThread, 0);
    }
    // A dispatcher that has been stopped leaves the locks that it holds, the second one when its
    // callback returns, and enters none any more.
    if (!m_csNotifyQueue.TryEnter(kLockPatience)) {
        return;
    }
    m_csNotifyQueue.Leave();
    if (!m_csRegInfo.TryEnter(kLockPatience)) {
        return;
    }
    UnregisterAll();
    for (DWORD waited = 0; s_watchers != 0 && waited < kWatcherPatience; ++waited) {
        Sleep(1);
    }
    s_hasEnded = s_watchers == 0;
    m_csRegInfo.Leave();
}

}  // namespace OS
