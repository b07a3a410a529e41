#ifndef WEXLOG_SINKS_H
#define WEXLOG_SINKS_H

// Internal. Sinks that write: to standard error, to a file, to the system log. Each throws when it
// cannot write its line; the calls here throw when the sink cannot be made.

#include <cstddef>
#include <string>

#include "wexlog/sink_list.h"

namespace DBG::detail {

SinkFunction MakeErrorStreamSink();
SinkFunction MakeFileSink(std::string path, std::size_t maxBytes, std::size_t olderFiles);
SinkFunction MakeSystemLogSink(std::string program);

}  // namespace DBG::detail

#endif  // WEXLOG_SINKS_H
