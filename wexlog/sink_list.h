#ifndef WEXLOG_SINK_LIST_H
#define WEXLOG_SINK_LIST_H

// Internal. Keeps the sinks of the process and passes each line to them.

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "wexlog/wexlog.h"

namespace DBG::detail {

using SinkFunction = std::function<void(const Line &)>;

constexpr Kinds KindOf(int level) {
    switch (level) {
        case kLevelValue:
            return kValue;
        case kLevelEntry:
            return kEntry;
        case kLevelExit:
            return kExit;
        case kLevelFailure:
            return kFailure;
        case kLevelUnmet:
            return kUnmet;
        default:
            return kOther;
    }
}

// The list of sinks.
//
// Ownership: the list owns the functions. Remove destroys the function, or Dispatch does when a
// sink is removed during the call of Dispatch. When memory is short, the next change of the list
// does. Threads: every member may be called from any thread. Dispatch holds a recursive lock while
// it calls sinks, so Remove waits for a call in progress, and a sink may call Add and Remove.
class SinkList {
public:
    // Add, Remove and PublishWanted store in `wanted` the kinds that any sink wants; the
    // constructor stores nothing. `wanted` must outlive the list.
    explicit SinkList(std::atomic<Kinds> &wanted);

    // Adds a sink and returns its id, never 0. Throws std::bad_alloc when memory is short.
    SinkId Add(SinkFunction function, Kinds kinds);
    // Removes a sink. Ignores an unknown id.
    void Remove(SinkId id) noexcept;
    void PublishWanted() noexcept;

    // Calls the sinks that want the line. Ignores exceptions of a sink.
    void Dispatch(const Line &line) noexcept;

    // Returns true while the calling thread runs a sink.
    static bool InSink() noexcept;

    // Guards the list and the calls of the functions.
    std::recursive_mutex &Mutex() { return m_mutex; }

private:
    struct Sink {
        SinkId id;
        Kinds kinds;  // 0 once the sink has been removed
        SinkFunction function;
    };
    // A published list never changes, so Dispatch can walk it while a sink publishes another one.
    using List = std::vector<std::shared_ptr<Sink>>;

    std::shared_ptr<List> CopyOfLiving() const;

    std::atomic<Kinds> &m_wanted;
    std::recursive_mutex m_mutex;
    std::shared_ptr<const List> m_sinks;
    SinkId m_lastId = 0;
};

}  // namespace DBG::detail

#endif  // WEXLOG_SINK_LIST_H
