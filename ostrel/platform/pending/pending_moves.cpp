#include "ostrel/platform/pending/pending_moves.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>
#include <vector>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/pending/pending_record.h"

namespace ostrel_platform {
namespace {

// Stores the host's boot id. Returns 0 or an errno: EOPNOTSUPP on a host that has none.
int read_boot_id(std::string *id) {
    const HostDescriptor file = open_host("/proc/sys/kernel/random/boot_id", O_RDONLY);
    if (!file) {
        return errno == ENOENT ? EOPNOTSUPP : errno;
    }
    char text[64];
    ssize_t count;
    do {
        count = read(file.Get(), text, sizeof text);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return errno;
    }
    const std::string_view read_text(text, static_cast<std::size_t>(count));
    *id = read_text.substr(0, read_text.find_first_of(" \n"));
    return id->empty() ? EOPNOTSUPP : 0;
}

// Makes a path absolute. Removes separators at the end, which would make the host follow a link.
// Returns an error code.
DWORD make_absolute(std::string *path) {
    if (path->empty()) {
        return ERROR_PATH_NOT_FOUND;
    }
    while (path->size() > 1 && path->back() == '/') {
        path->pop_back();
    }
    if (path->front() != '/') {
        char current[PATH_MAX];
        // getcwd returns a path without a leading '/' for a directory outside the process's root.
        if (getcwd(current, sizeof current) == nullptr || *current != '/') {
            return ERROR_PATH_NOT_FOUND;
        }
        path->insert(0, std::string(current) + (current[1] != '\0' ? "/" : ""));
    }
    return path->size() < PATH_MAX ? ERROR_SUCCESS : ERROR_FILENAME_EXCED_RANGE;
}

// Compares the folders, since a file in a stacked file system may have another device number than
// its folder.
bool are_on_different_devices(const std::string &source, const std::string &target) {
    struct stat from, to;
    return stat(folder_of(source).c_str(), &from) == 0 &&
           stat(folder_of(target).c_str(), &to) == 0 && from.st_dev != to.st_dev;
}

DWORD code_of_record(int error) {
    return error == 0         ? ERROR_SUCCESS
           : error == EBADMSG ? ERROR_INVALID_DATA
           : error == ENOENT  ? ERROR_PATH_NOT_FOUND  // the parent of the record's directory
           : error == ENOSYS  ? ERROR_NOT_SUPPORTED   // callers move at once for 120
                              : code_of_errno(error);
}

DWORD record_request(PendingRequest request) {
    if (const DWORD code = make_absolute(&request.source)) {
        return code;
    }
    if (request.verb != PendingVerb::kDelete) {
        if (const DWORD code = make_absolute(&request.target)) {
            return code;
        }
        if (are_on_different_devices(request.source, request.target)) {
            return ERROR_NOT_SAME_DEVICE;
        }
    }
    if (const int error = read_boot_id(&request.boot)) {
        return code_of_record(error);
    }
    PendingRecord record;
    int error = record.Open(true);
    if (error == 0) {
        error = record.Append(request);
    }
    return code_of_record(error);
}

struct Source {
    SourceIdentity identity;
    bool is_directory;
};

int identify(const std::string &path, Source *source) {
    struct statx facts;
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS | STATX_BTIME, &facts) != 0) {
        return errno;
    }
    const statx_timestamp &time =
        (facts.stx_mask & STATX_BTIME) != 0 ? facts.stx_btime : facts.stx_ctime;
    // Unsigned, since the product may overflow: a file can have any time.
    const std::uint64_t since_1970 =
        static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
    source->identity = {facts.stx_ino, static_cast<std::int64_t>(since_1970)};
    source->is_directory = S_ISDIR(facts.stx_mode);
    return 0;
}

int act(const PendingRequest &request, bool is_directory) {
    const char *const source = request.source.c_str();
    if (request.verb == PendingVerb::kDelete) {
        return (is_directory ? rmdir(source) : unlink(source)) == 0 ? 0 : errno;
    }
    // A directory must not replace anything. The host refuses to replace a directory by a file.
    if (request.verb == PendingVerb::kMove || is_directory) {
        return rename_host(source, request.target.c_str(), false);
    }
    return rename_over(request.source, request.target);
}

int sync_folders(const PendingRequest &request) {
    const bool is_in_one_folder = folder_of(request.source) == folder_of(request.target);
    for (const std::string *path : {&request.source, &request.target}) {
        const bool is_synced = path->empty() || (path == &request.target && is_in_one_folder);
        const int error = is_synced ? 0 : sync_folder_of(*path);
        if (error != 0 && error != ENOENT) {  // ENOENT: a later request has taken the folder
            return error;
        }
    }
    return 0;
}

// Whether a request that failed with this errno can succeed later, unchanged.
bool is_passing(int error) {
    constexpr int kPassing[] = {EMFILE, ENFILE, ENOMEM, EIO, EINTR, ENOSPC, EDQUOT, EAGAIN};
    return std::find(std::begin(kPassing), std::end(kPassing), error) != std::end(kPassing);
}

class PendingWork {
public:
    PendingWork(std::FILE *log, PendingOutcome *outcome) : m_log(log), m_outcome(outcome) {}

    // Returns 0, or the errno of the record.
    int Run(PendingScope scope) {
        std::string boot;
        int error = scope == PendingScope::kEarlierStarts ? read_boot_id(&boot) : 0;
        if (error != 0) {
            return error;
        }
        PendingContent content;
        error = m_record.Open(false);
        if (error == 0) {
            error = m_record.Read(&content);
        }
        if (error != 0) {
            return error == ENOENT ? 0 : error;
        }
        for (const std::size_t line : content.damaged) {
            std::fprintf(m_log, "line %zu of the record is damaged; skipped\n", line);
        }
        m_outcome->failed = content.damaged.size();
        std::vector<PendingRequest> left;
        for (PendingRequest &request : content.requests) {
            const bool waits = scope == PendingScope::kEarlierStarts && request.boot == boot;
            if (!waits && !m_outcome->stopped) {
                if ((error = CarryOut(&request)) != 0) {
                    return error;
                }
            }
            if (waits || m_outcome->stopped) {
                left.push_back(std::move(request));
            }
        }
        const bool changed = left.size() < content.requests.size() || content.ended != 0 ||
                             !content.damaged.empty() || left.empty();
        return changed ? m_record.Replace(left) : 0;
    }

private:
    // Marks the request as begun, and writes the mark and those of the earlier requests to the disk
    // before any change. After a crash the source shows whether a begun request was carried out: if
    // so, the path no longer names the same file.
    int CarryOut(PendingRequest *request) {
        Source source = {};
        int error = identify(request->source, &source);
        // A move by link and unlink that stopped halfway: link has changed the time of a file that
        // has no time of birth.
        const bool is_half_done = request->begun && error == 0 &&
                                  source.identity.inode == request->begun->inode &&
                                  are_two_links_to_one_file(request->source, request->target);
        const bool was_done =
            request->begun && !is_half_done &&
            (error == ENOENT || (error == 0 && source.identity != *request->begun));
        if (was_done) {
            error = 0;
        } else if (error == 0) {
            if (const int failure = Begin(request, source.identity)) {
                return failure;
            }
            error = is_half_done ? error_of(unlink(request->source.c_str()))
                                 : act(*request, source.is_directory);
        }
        if (error == 0) {
            error = sync_folders(*request);
        }
        m_outcome->stopped = is_passing(error);
        Report(*request, error);
        return m_outcome->stopped ? 0 : m_record.MarkEnded(*request);
    }

    int Begin(PendingRequest *request, const SourceIdentity &source) {
        int error = 0;
        if (!request->begun) {
            request->begun = source;
            error = m_record.MarkBegun(*request);
        }
        return error != 0 ? error : m_record.Sync();
    }

    void Report(const PendingRequest &request, int error) {
        if (error == 0) {
            ++m_outcome->done;
            return;
        }
        m_outcome->failed += m_outcome->stopped ? 0 : 1;
        char text[100];
        std::fprintf(m_log, "%s %s%s%s: %s%s\n",
                     request.verb == PendingVerb::kDelete ? "delete" : "move",
                     printable_path(request.source).c_str(), request.target.empty() ? "" : " to ",
                     printable_path(request.target).c_str(), strerror_r(error, text, sizeof text),
                     m_outcome->stopped ? "; it and all behind it stay in the record" : "");
    }

    std::FILE *const m_log;
    PendingOutcome *const m_outcome;
    PendingRecord m_record;
};

}  // namespace

DWORD record_pending_move(const std::string &source, const std::string *target,
                          bool replace) noexcept {
    try {
        PendingRequest request{PendingVerb::kDelete, {}, {}, source, {}};
        if (target != nullptr) {
            request.verb = replace ? PendingVerb::kReplace : PendingVerb::kMove;
            request.target = *target;
        }
        return record_request(std::move(request));
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

PendingOutcome carry_out_pending_moves(PendingScope scope, std::FILE *log) noexcept {
    PendingOutcome outcome;
    try {
        outcome.error = PendingWork(log, &outcome).Run(scope);
    } catch (const std::bad_alloc &) {
        outcome.error = ENOMEM;
    }
    return outcome;
}

}  // namespace ostrel_platform
