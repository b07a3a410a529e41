#ifndef OSTREL_PLATFORM_REGISTRY_WATCH_H
#define OSTREL_PLATFORM_REGISTRY_WATCH_H

// Internal. The watch of a handle: which changes concern it, and the events that wait for the next
// one. A thread of the layer, which starts with the first watch of the process, follows the pages
// of both stores and shows their changes to all watches.
//
// A writer that dies between its commit and the notice leaves its mark in the page. A mark that
// stays for half a second counts as a change of everything, and so do a page that is replaced and
// changes that the page has no room for any more.

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ostrel/platform/registry/keys.h"
#include "ostrel/platform/sync/waitable.h"

namespace ostrel_platform {

// Threads: any.
class Watch {
public:
    // Notes the changes from now on.
    Watch(KeyPointer key, bool has_subtree, DWORD filter);

    // Lets the next change signal the event: at once for one since the last report. With
    // `ends_with_thread` the end of this thread signals the event too. Returns ERROR_SUCCESS,
    // ERROR_INVALID_HANDLE when the handle has been closed, or ERROR_INVALID_PARAMETER when
    // kMaxEvents wait. Throws std::bad_alloc.
    static DWORD Arm(const std::shared_ptr<Watch> &watch, std::shared_ptr<Waitable> event,
                     bool ends_with_thread);

    // Signals all events: the handle has been closed.
    void End() noexcept;

    // Makes what the calls below use. Throws std::bad_alloc.
    static void MakeThread();
    // For a fork.
    static std::mutex &Mutex() noexcept;
    static void ForgetThread() noexcept;

private:
    static constexpr std::size_t kMaxEvents = 64;
    friend class WatchThread;
    friend class ThreadWatches;

    struct Armed {
        std::shared_ptr<Waitable> event;
        std::thread::id thread;  // that signals by its end; none without
    };

    bool Concerns(const Change &change) const;
    // Looks at the changes since the last time. Needs the mutex, as all below.
    void Examine(const SharedPage *page, bool is_anything_changed) noexcept;
    void Report() noexcept;
    void EndThread(std::thread::id thread) noexcept;

    const KeyPointer m_key;
    const bool m_hasSubtree;
    const DWORD m_filter;
    std::uint64_t m_page;      // the number of the page that was examined, 0 without one
    std::uint64_t m_position;  // the next change to examine
    bool m_hasUnreported = false;
    bool m_isEnded = false;
    std::vector<Armed> m_armed;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_WATCH_H
