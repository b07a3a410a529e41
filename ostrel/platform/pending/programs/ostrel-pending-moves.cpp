// Carries out the moves and deletions that programs requested for the next start of the system. The
// text of --help describes the options and exit codes.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ostrel/platform/pending/pending_moves.h"
#include "ostrel/platform/pending/pending_record.h"

namespace {

enum ExitCode { kDone = 0, kSomeFailed = 1, kStopped = 2, kWrongUse = 64 };

constexpr char kHelp[] =
    "Usage: ostrel-pending-moves [--now]\n"
    "\n"
    "Carries out the moves and deletions of files that programs requested for the next start\n"
    "of the system. Run the program as root, once while the system starts and before the\n"
    "services start.\n"
    "\n"
    "  --now   also carry out the requests made since the system started; first stop the\n"
    "          programs that use the files\n"
    "  --help  print this text\n"
    "\n"
    "Reads the requests from the file pending_moves. The environment variable\n"
    "OSTREL_STATE_DIR names its directory; the default is /var/lib/ostrel.\n"
    "\n"
    "Exit codes:\n"
    "   0  all requests were carried out, or there were none\n"
    "   1  some requests failed or some lines were damaged; standard error names them, and the\n"
    "      program has removed them from the file\n"
    "   2  the file could not be read or written, or is not trusted, or a request failed for a\n"
    "      passing reason (no memory, too many open files, an I/O error, a full disk); the\n"
    "      requests that were not carried out stay in the file\n"
    "  64  wrong options\n";

}  // namespace

int main(int count, char **arguments) {
    const std::string_view option = count > 1 ? arguments[1] : "";
    if (count == 2 && option == "--help") {
        return std::fputs(kHelp, stdout) < 0 || std::fflush(stdout) != 0 ? kStopped : kDone;
    }
    if (count > 2 || (count == 2 && option != "--now")) {
        std::fputs(kHelp, stderr);
        return kWrongUse;
    }
    const ostrel_platform::PendingOutcome outcome = ostrel_platform::carry_out_pending_moves(
        count == 2 ? ostrel_platform::PendingScope::kAll
                   : ostrel_platform::PendingScope::kEarlierStarts,
        stderr);
    if (outcome.error != 0) {
        std::fprintf(
            stderr, "%s/pending_moves: %s\n",
            ostrel_platform::printable_path(ostrel_platform::PendingRecord::Directory()).c_str(),
            std::strerror(outcome.error));
    }
    return outcome.error != 0 || outcome.stopped ? kStopped
           : outcome.failed != 0                 ? kSomeFailed
                                                 : kDone;
}
