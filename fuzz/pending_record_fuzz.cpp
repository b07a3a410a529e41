// Any bytes as a line of the record of moves: what is taken must be written as the same request
// again, and never with a path that the record's rules do not allow.

#include <cstdint>
#include <string_view>

#include "fuzz/check.h"
#include "ostrel/platform/pending/pending_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view line(reinterpret_cast<const char *>(data), size);
    const auto request = ostrel_platform::request_of_line(line);
    if (!request) {
        return 0;
    }
    check(request->source.starts_with('/'));
    check((request->verb == ostrel_platform::PendingVerb::kDelete) == request->target.empty());
    const std::string written = ostrel_platform::line_of_request(*request);
    check(written.ends_with('\n'));
    const auto again =
        ostrel_platform::request_of_line(std::string_view(written).substr(0, written.size() - 1));
    check(again && again->verb == request->verb && again->boot == request->boot &&
          again->source == request->source && again->target == request->target &&
          again->begun == request->begun && again->has_ended == request->has_ended);
    return 0;
}
