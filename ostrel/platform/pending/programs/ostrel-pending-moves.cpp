// Carries out the moves and deletions that were put off to the next start of the system.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ostrel/platform/pending/pending_moves.h"
#include "ostrel/platform/pending/pending_record.h"

namespace {

enum ExitCode { kDone = 0, kSomeFailed = 1, kNoRecord = 2, kWrongUse = 64 };

constexpr char kHelp[] =
    "Usage: ostrel-pending-moves [--now]\n"
    "\n"
    "Moves and deletes the files for which a program asked that for the next start of the\n"
    "system. Meant to run once while the system starts, as root, before its services.\n"
    "\n"
    "  --now   also what was asked for since the system started; stop the programs first\n"
    "  --help  this text\n"
    "\n"
    "The requests are read from the file pending_moves in the directory that the environment\n"
    "variable OSTREL_STATE_DIR names, else in /var/lib/ostrel.\n"
    "\n"
    "Exit codes:\n"
    "   0  all is done, or nothing was asked for\n"
    "   1  some requests failed; they are named on standard error and given up\n"
    "   2  the file could not be read or written, or is not to be trusted; what is left stays in "
    "it\n"
    "  64  wrong options\n";

}  // namespace

int main(int count, char **arguments) {
    const std::string_view option = count > 1 ? arguments[1] : "";
    if (count == 2 && option == "--help") {
        return std::fputs(kHelp, stdout) < 0 || std::fflush(stdout) != 0 ? kNoRecord : kDone;
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
        std::fprintf(stderr, "%s/pending_moves: %s\n",
                     ostrel_platform::PendingRecord::Directory().c_str(),
                     std::strerror(outcome.error));
        return kNoRecord;
    }
    return outcome.failed != 0 ? kSomeFailed : kDone;
}
