#include "wexlog/sink_list.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace DBG::detail {
namespace {

thread_local bool t_inSink = false;

// Sets t_inSink and restores the previous value: a function that is destroyed after the scope may
// trace.
class InSinkScope {
public:
    InSinkScope() noexcept : m_before(std::exchange(t_inSink, true)) {}
    ~InSinkScope() { t_inSink = m_before; }
    InSinkScope(const InSinkScope &) = delete;
    InSinkScope &operator=(const InSinkScope &) = delete;

private:
    const bool m_before;
};

}  // namespace

bool SinkList::InSink() noexcept {
    return t_inSink;
}

SinkList::SinkList(std::atomic<Kinds> &wanted)
    : m_wanted(wanted), m_sinks(std::make_shared<const List>()) {}

SinkId SinkList::Add(SinkFunction function, Kinds kinds) {
    const auto sink = std::make_shared<Sink>(Sink{0, kinds & kAllKinds, std::move(function)});
    std::shared_ptr<const List> before;  // released after the lock, with functions that it owns
    const std::lock_guard lock(m_mutex);
    std::shared_ptr<List> sinks = CopyOfLiving();
    sinks->push_back(sink);
    if (++m_lastId == 0) {
        ++m_lastId;
    }
    sink->id = m_lastId;
    before = std::exchange(m_sinks, std::move(sinks));
    PublishWanted();
    return sink->id;
}

void SinkList::Remove(SinkId id) noexcept {
    std::shared_ptr<const List> before;  // as in Add
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_sinks->begin(), m_sinks->end(),
                                    [id](const auto &sink) { return sink->id == id; });
    if (found == m_sinks->end()) {
        return;
    }
    (*found)->kinds = 0;  // seen by a Dispatch that walks an older list, too
    PublishWanted();
    try {
        before = std::exchange(m_sinks, CopyOfLiving());
    } catch (...) {
        // No memory for a shorter list: the sink stays in the list, without a kind, until the next
        // change.
    }
}

void SinkList::PublishWanted() noexcept {
    const std::lock_guard lock(m_mutex);
    Kinds wanted = 0;
    for (const auto &sink : *m_sinks) {
        wanted |= sink->kinds;
    }
    m_wanted.store(wanted, std::memory_order_relaxed);
}

std::shared_ptr<SinkList::List> SinkList::CopyOfLiving() const {
    auto living = std::make_shared<List>();
    living->reserve(m_sinks->size() + 1);
    std::copy_if(m_sinks->begin(), m_sinks->end(), std::back_inserter(*living),
                 [](const auto &sink) { return sink->kinds != 0; });
    return living;
}

void SinkList::Dispatch(const Line &line) noexcept {
    const Kinds kind = KindOf(line.level);
    const std::lock_guard lock(m_mutex);
    // Released before the lock, so that no function outlives a Remove on another thread.
    const std::shared_ptr<const List> sinks = m_sinks;
    const InSinkScope scope;
    for (const auto &sink : *sinks) {
        if ((sink->kinds & kind) == 0) {
            continue;
        }
        try {
            sink->function(line);
        } catch (...) {
            // This sink loses the line; the others still receive it.
        }
    }
}

}  // namespace DBG::detail
