#ifndef WEXLOG_SINKS_H
#define WEXLOG_SINKS_H

// Internal. Makes the sinks that write to standard error, to a file and to the system log. The
// functions throw when they cannot make the sink. A sink throws when it cannot write its line.

#include <cstddef>
#include <string>

#include "wexlog/sink_list.h"

namespace DBG::detail {

SinkFunction MakeErrorStreamSink();
SinkFunction MakeFileSink(std::string path, std::size_t maxBytes, std::size_t olderFiles);
SinkFunction MakeSystemLogSink(std::string program);

}  // namespace DBG::detail

#endif  // WEXLOG_SINKS_H
