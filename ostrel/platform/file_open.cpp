// Open files: CreateFileW and the calls on its handles.

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "ostrel/platform/call_result.h"
#include "ostrel/platform/errno_code.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file_facts.h"
#include "ostrel/platform/handle_table.h"
#include "ostrel/platform/host_descriptor.h"
#include "ostrel/platform/host_path.h"
#include "ostrel/platform/share_mode.h"

namespace {

using platform::code_of_errno;
using platform::FileFacts;
using platform::HandleKind;
using platform::HandleTable;
using platform::HostDescriptor;
using platform::SharingFile;

constexpr DWORD kKeptAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// The signal that a failing write may raise beside its error, which is all that is wanted here:
// SIGPIPE when the reader of a FIFO or socket has gone, SIGXFSZ beyond the greatest size that the
// process is allowed for a file. 0 when there is none.
int signal_of_writes(bool regular) {
    struct rlimit limit;
    if (!regular) {
        return SIGPIPE;
    }
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY ? 0 : SIGXFSZ;
}

// Holds a signal back in this thread for the scope, and takes off one that the scope has raised.
class SignalHeld {
public:
    explicit SignalHeld(int signal) noexcept {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, signal);
        sigset_t pending;
        sigpending(&pending);
        m_was_pending = sigismember(&pending, signal) == 1;
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    ~SignalHeld() {
        const std::timespec at_once = {};
        if (!m_was_pending) {
            sigtimedwait(&m_signal, nullptr, &at_once);
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    SignalHeld &operator=(SignalHeld &&) = delete;  // nor copied

private:
    sigset_t m_signal, m_before;
    bool m_was_pending;
};

class OpenFile : public platform::HandleObject {
public:
    OpenFile(SharingFile file, DWORD access, bool regular)
        : m_file(std::move(file)),
          m_access(access),
          m_regular(regular),
          m_signal((access & GENERIC_WRITE) != 0 ? signal_of_writes(regular) : 0) {}

    int Get() const { return m_file.Get(); }
    bool Allows(DWORD access) const { return (m_access & access) != 0; }

    // What has no end, a FIFO or a terminal, is read as its data comes.
    DWORD Read(char *bytes, DWORD count, DWORD *done) {
        return Transfer(count, done, !m_regular, [this, bytes](DWORD from, DWORD left) {
            return read(Get(), bytes + from, left);
        });
    }

    DWORD Write(const char *bytes, DWORD count, DWORD *done) {
        std::optional<SignalHeld> held;
        if (m_signal != 0) {
            held.emplace(m_signal);
        }
        const DWORD code = Transfer(count, done, false, [this, bytes](DWORD from, DWORD left) {
            return write(Get(), bytes + from, left);
        });
        return code == ERROR_SUCCESS && *done < count ? code_of_errno(EIO) : code;
    }

private:
    // Moves `count` bytes by steps of the host, which may be interrupted or short. One that moves
    // nothing is the end.
    template <class Step>
    DWORD Transfer(DWORD count, DWORD *done, bool one_step, Step step) {
        std::unique_lock lock(m_position, std::defer_lock);
        if (m_regular) {
            lock.lock();  // the two directions of a FIFO must not wait for each other
        }
        while (*done < count) {
            const ssize_t moved = step(*done, count - *done);
            if (moved < 0 && errno != EINTR) {
                return code_of_errno(errno);
            }
            *done += moved > 0 ? static_cast<DWORD>(moved) : 0;
            if (moved == 0 || (moved > 0 && one_step)) {
                break;
            }
        }
        return ERROR_SUCCESS;
    }

    SharingFile m_file;
    DWORD m_access;
    bool m_regular;
    int m_signal;           // held back while writing
    std::mutex m_position;  // keeps the steps of one call together
};

// The arguments of an open.
struct Request {
    DWORD access, share, creation, flags;

    bool MayCreate() const {
        return creation == CREATE_NEW || creation == CREATE_ALWAYS || creation == OPEN_ALWAYS;
    }
    bool Empties() const { return creation == CREATE_ALWAYS || creation == TRUNCATE_EXISTING; }
    bool Writes() const { return (access & GENERIC_WRITE) != 0 || Empties(); }
    DWORD NewAttributes() const { return FILE_ATTRIBUTE_ARCHIVE | (flags & kKeptAttributes); }

    bool OpensDirectories() const {
        return creation == OPEN_EXISTING && (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0 && !Writes();
    }

    bool IsValid() const {
        constexpr DWORD kShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        constexpr DWORD kFlags = kKeptAttributes | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL |
                                 FILE_FLAG_BACKUP_SEMANTICS;
        return (access & ~(GENERIC_READ | GENERIC_WRITE)) == 0 && (share & ~kShares) == 0 &&
               (flags & ~kFlags) == 0 && creation >= CREATE_NEW && creation <= TRUNCATE_EXISTING &&
               (creation != TRUNCATE_EXISTING || (access & GENERIC_WRITE) != 0);
    }

    unsigned ShareAccess() const {
        return ((access & GENERIC_READ) != 0 ? platform::kShareRead : 0) |
               ((access & GENERIC_WRITE) != 0 ? platform::kShareWrite : 0);
    }
};

// Opens for the facts alone, or for reading what is emptied first. That takes a look before: to
// open a FIFO or a device for what was not asked for, or at all for its facts, may already do
// something.
HostDescriptor open_by_kind(const char *path, const Request &request) {
    struct stat facts;
    if (stat(path, &facts) != 0) {
        return HostDescriptor();
    }
    if (!S_ISREG(facts.st_mode) && !S_ISDIR(facts.st_mode)) {
        return platform::open_host(path, request.access == 0 ? O_PATH : O_RDONLY | O_NONBLOCK);
    }
    if (request.Empties()) {
        return request.access == 0 ? platform::open_host_to_write(path, O_NONBLOCK)
                                   : platform::open_host(path, O_RDWR | O_NONBLOCK);
    }
    HostDescriptor file = platform::open_host(path, O_RDONLY | O_NONBLOCK);
    return !file && errno == EACCES ? platform::open_host(path, O_PATH) : std::move(file);
}

// Never empties the file: that waits until sharing allows the open. Never waits for a peer.
HostDescriptor open_existing(const char *path, const Request &request) {
    switch (request.access) {
        case GENERIC_READ | GENERIC_WRITE:
            return platform::open_host(path, O_RDWR | O_NONBLOCK);
        case GENERIC_WRITE:
            return platform::open_host_to_write(path, O_NONBLOCK);
        case GENERIC_READ:
            if (!request.Empties()) {
                return platform::open_host(path, O_RDONLY | O_NONBLOCK);
            }
            break;
        default:
            break;
    }
    return open_by_kind(path, request);
}

HostDescriptor create(const char *path, const Request &request, int exclusive) {
    return platform::open_host(
        path, O_CREAT | O_NONBLOCK | (request.Writes() ? O_RDWR : O_RDONLY) | exclusive);
}

// Opens or creates as `creation` says; none with errno.
HostDescriptor open_or_create(const char *path, const Request &request, bool *created) {
    *created = true;
    if (request.creation == CREATE_NEW) {
        return create(path, request, O_EXCL);
    }
    // Others may create and delete the file meanwhile. What is there and cannot be opened at every
    // turn is a link that leads nowhere: its target is created.
    constexpr int kTurns = 3;
    for (int turn = 0; turn < kTurns; ++turn) {
        HostDescriptor file = open_existing(path, request);
        *created = !file;
        if (file || errno != ENOENT || !request.MayCreate()) {
            return file;
        }
        file = create(path, request, O_EXCL);
        if (file || errno != EEXIST) {
            return file;
        }
    }
    return create(path, request, 0);
}

// Makes an existing file a new one.
DWORD empty_file(int file, const Request &request) {
    if ((request.access & GENERIC_WRITE) == 0 &&
        !platform::is_shared_for(file, platform::kShareWrite)) {
        return ERROR_SHARING_VIOLATION;
    }
    constexpr DWORD kProtecting = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    FileFacts facts;
    if (request.creation == CREATE_ALWAYS && platform::read_facts(file, &facts) == 0 &&
        (facts.attributes & kProtecting & ~request.flags) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (ftruncate(file, 0) != 0) {
        return code_of_errno(errno);
    }
    if (request.creation == CREATE_ALWAYS) {
        platform::write_attributes(file, request.NewAttributes());
    }
    return ERROR_SUCCESS;
}

// An open file of the host on its way to become a handle.
struct Opened {
    SharingFile file;
    bool created = false;
    struct stat facts = {};
};

// Nothing when the path leads to another file than the one that is open, or to none: others have
// deleted or replaced it before it was shared, so that nobody would find it by its name.
std::optional<DWORD> share(const char *path, const Request &request, Opened *opened) {
    const int refusal = opened->file.Take(request.ShareAccess(), request.share);
    if (request.ShareAccess() != 0 && !platform::leads_to(path, opened->facts)) {
        return std::nullopt;
    }
    return refusal != 0 ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

// What follows when the host has opened the file: the rules that the host does not know. Nothing
// as above.
std::optional<DWORD> complete_open(const char *path, const Request &request, Opened *opened) {
    const int file = opened->file.Get();
    const mode_t mode = opened->facts.st_mode;
    if (S_ISDIR(mode) && !request.OpensDirectories()) {
        return ERROR_ACCESS_DENIED;
    }
    if (!S_ISREG(mode) && !S_ISDIR(mode)) {
        if (request.access != 0) {
            fcntl(file, F_SETFL, fcntl(file, F_GETFL) & ~O_NONBLOCK);  // the open did not wait
        }
        return ERROR_SUCCESS;
    }
    if (!opened->created && request.Writes() && platform::is_read_only(opened->facts)) {
        return ERROR_ACCESS_DENIED;
    }
    const std::optional<DWORD> code = share(path, request, opened);
    if (code != ERROR_SUCCESS) {
        return code;
    }
    if (opened->created) {
        platform::write_attributes(file, request.NewAttributes());
        return ERROR_SUCCESS;
    }
    return request.Empties() ? empty_file(file, request) : ERROR_SUCCESS;
}

std::optional<DWORD> try_open(const char *path, const Request &request, Opened *opened) {
    opened->file = SharingFile();  // that of the turn before must not be in the way
    opened->file = SharingFile(open_or_create(path, request, &opened->created));
    if (!opened->file) {
        return errno == EEXIST ? ERROR_FILE_EXISTS : platform::code_of_path(errno, path);
    }
    if (fstat(opened->file.Get(), &opened->facts) != 0) {
        return code_of_errno(errno);
    }
    return complete_open(path, request, opened);
}

DWORD open_file(const WCHAR *path, const Request &request, HANDLE *handle) {
    const std::optional<std::string> host = platform::file_path(path);
    if (!host) {
        return GetLastError();
    }
    Opened opened;
    std::optional<DWORD> code;
    for (int turn = 0; !code && turn < platform::kMostTurns; ++turn) {
        code = try_open(host->c_str(), request, &opened);
    }
    if (code != ERROR_SUCCESS) {
        return code.value_or(ERROR_SHARING_VIOLATION);
    }
    auto object = std::make_shared<OpenFile>(std::move(opened.file), request.access,
                                             S_ISREG(opened.facts.st_mode));
    *handle = reinterpret_cast<HANDLE>(
        HandleTable::Instance().Open(HandleKind::kObject, std::move(object)));
    if (request.creation == CREATE_ALWAYS || request.creation == OPEN_ALWAYS) {
        SetLastError(opened.created ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    }
    return ERROR_SUCCESS;
}

// Runs `body` with the open file behind a handle; its result is the call's.
template <class Body>
BOOL with_file(HANDLE handle, Body body) noexcept {
    return platform::call_result([&]() -> DWORD {
        const auto object = HandleTable::Instance().Find(HandleKind::kObject,
                                                         reinterpret_cast<std::uintptr_t>(handle));
        auto *const file = dynamic_cast<OpenFile *>(object.get());
        return file != nullptr ? body(*file) : ERROR_INVALID_HANDLE;
    });
}

// What stands against a read or write before it begins.
DWORD check_transfer(const OpenFile &file, DWORD access, const void *buffer, DWORD count,
                     DWORD *done, const void *overlapped) {
    if (done == nullptr || overlapped != nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *done = 0;
    if (!file.Allows(access)) {
        return ERROR_ACCESS_DENIED;
    }
    return buffer == nullptr && count > 0 ? ERROR_NOACCESS : ERROR_SUCCESS;
}

void store_time(const FILETIME &time, FILETIME *out) {
    if (out != nullptr) {
        *out = time;
    }
}

constexpr DWORD high_half(std::uint64_t value) {
    return static_cast<DWORD>(value >> 32);
}

constexpr DWORD low_half(std::uint64_t value) {
    return static_cast<DWORD>(value);
}

}  // namespace

HANDLE CreateFileW(const WCHAR *path, DWORD access, DWORD share, SECURITY_ATTRIBUTES *security,
                   DWORD creation, DWORD flags, HANDLE pattern) noexcept {
    HANDLE handle = INVALID_HANDLE_VALUE;
    platform::call_result([&]() -> DWORD {
        const Request request = {access, share, creation, flags};
        const bool valid = security == nullptr && pattern == nullptr && request.IsValid();
        return valid ? open_file(path, request, &handle) : ERROR_INVALID_PARAMETER;
    });
    return handle;
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD count, DWORD *done, LPVOID overlapped) noexcept {
    return with_file(file, [=](OpenFile &open) {
        const DWORD code = check_transfer(open, GENERIC_READ, buffer, count, done, overlapped);
        return code == ERROR_SUCCESS ? open.Read(static_cast<char *>(buffer), count, done) : code;
    });
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD count, DWORD *done, LPVOID overlapped) noexcept {
    return with_file(file, [=](OpenFile &open) {
        const DWORD code = check_transfer(open, GENERIC_WRITE, buffer, count, done, overlapped);
        return code == ERROR_SUCCESS ? open.Write(static_cast<const char *>(buffer), count, done)
                                     : code;
    });
}

BOOL GetFileTime(HANDLE file, FILETIME *creation, FILETIME *access, FILETIME *write) noexcept {
    return with_file(file, [=](OpenFile &open) {
        FileFacts facts;
        if (const int error = platform::read_facts(open.Get(), &facts)) {
            return code_of_errno(error);
        }
        store_time(facts.creation, creation);
        store_time(facts.access, access);
        store_time(facts.write, write);
        return ERROR_SUCCESS;
    });
}

BOOL SetFileTime(HANDLE file, const FILETIME *creation, const FILETIME *access,
                 const FILETIME *write) noexcept {
    return with_file(file, [=](OpenFile &open) {
        if (!open.Allows(GENERIC_WRITE)) {
            return ERROR_ACCESS_DENIED;
        }
        const int error = platform::write_times(open.Get(), creation, access, write);
        return error != 0 ? code_of_errno(error) : ERROR_SUCCESS;
    });
}

BOOL GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION *information) noexcept {
    return with_file(file, [=](OpenFile &open) {
        FileFacts facts;
        if (information == nullptr) {
            return ERROR_NOACCESS;
        }
        if (const int error = platform::read_facts(open.Get(), &facts)) {
            return code_of_errno(error);
        }
        *information = {facts.attributes,       facts.creation,
                        facts.access,           facts.write,
                        low_half(facts.volume),  // a device number of the host has 32 bits
                        high_half(facts.size),  low_half(facts.size),
                        low_half(facts.links),  high_half(facts.index),
                        low_half(facts.index)};
        return ERROR_SUCCESS;
    });
}
