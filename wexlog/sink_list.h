#ifndef WEXLOG_SINK_LIST_H
#define WEXLOG_SINK_LIST_H

// Internal. The sinks of the process, and the handing of a line to them.

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

// Ownership: the list owns the functions. A function is destroyed by the call of Remove, or by that
// of Dispatch when it was removed within it.
// Threads: one recursive lock, held while sinks are called. That makes Remove wait for a call under
// way, and lets a sink call Add and Remove.
class SinkList {
public:
    // `wanted` receives the kinds that any sink wants with Add, Remove and PublishWanted, not
    // before.
    explicit SinkList(std::atomic<Kinds> &wanted);

    // Throws std::bad_alloc.
    SinkId Add(SinkFunction function, Kinds kinds);
    void Remove(SinkId id) noexcept;
    void PublishWanted() noexcept;

    // Calls the sinks that want the line. What they throw is dropped.
    void Dispatch(const Line &line) noexcept;

    // Whether the calling thread is within a sink.
    static bool InSink() noexcept;

private:
    struct Sink {
        SinkId id;
        Kinds kinds;  // 0 once the sink has been removed
        SinkFunction function;
    };
    // A published list is not changed any more, so that Dispatch can walk it while a sink changes
    // what is in force.
    using List = std::vector<std::shared_ptr<Sink>>;

    std::shared_ptr<List> CopyOfLiving() const;

    std::atomic<Kinds> &m_wanted;
    std::recursive_mutex m_mutex;
    std::shared_ptr<const List> m_sinks;
    SinkId m_lastId = 0;
};

}  // namespace DBG::detail

#endif  // WEXLOG_SINK_LIST_H
