// Opens and creates files: the rules of CreateFileW.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/file/open_file.h"
#include "ostrel/platform/file/share_mode.h"

namespace ostrel_platform {
namespace {

constexpr DWORD kKeptAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// The arguments of an open.
struct Request {
    DWORD access, share, creation, flags;
    bool refuses_links = false;  // to write through a link at the name is an error

    bool MayCreate() const {
        return creation == CREATE_NEW || creation == CREATE_ALWAYS || creation == OPEN_ALWAYS;
    }
    bool Empties() const { return creation == CREATE_ALWAYS || creation == TRUNCATE_EXISTING; }
    bool Writes() const { return (access & GENERIC_WRITE) != 0 || Empties(); }
    DWORD NewAttributes() const { return FILE_ATTRIBUTE_ARCHIVE | (flags & kKeptAttributes); }

    bool Deletes() const { return (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0; }
    bool OpensLinks() const { return (flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0; }
    bool OpensDirectories() const {
        return creation == OPEN_EXISTING && (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0 &&
               !Writes() && !Deletes();
    }

    bool IsValid() const {
        constexpr DWORD kShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        constexpr DWORD kHints = FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_SEQUENTIAL_SCAN |
                                 FILE_FLAG_RANDOM_ACCESS | FILE_FLAG_NO_BUFFERING;
        constexpr DWORD kFlags = kHints | kKeptAttributes | FILE_ATTRIBUTE_ARCHIVE |
                                 FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS |
                                 FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE |
                                 FILE_FLAG_WRITE_THROUGH;
        return (access & ~(GENERIC_READ | GENERIC_WRITE)) == 0 && (share & ~kShares) == 0 &&
               (flags & ~kFlags) == 0 && creation >= CREATE_NEW && creation <= TRUNCATE_EXISTING &&
               (creation != TRUNCATE_EXISTING || (access & GENERIC_WRITE) != 0) &&
               (creation != CREATE_ALWAYS || !OpensLinks());
    }

    unsigned ShareAccess() const {
        return ((access & GENERIC_READ) != 0 ? kShareRead : 0) |
               ((access & GENERIC_WRITE) != 0 ? kShareWrite : 0) | (Deletes() ? kShareDelete : 0);
    }

    // What every open by the host gets beside its access.
    int HostFlags() const {
        return O_NONBLOCK | ((flags & FILE_FLAG_WRITE_THROUGH) != 0 ? O_DSYNC : 0) |
               (OpensLinks() || (refuses_links && (Writes() || MayCreate())) ? O_NOFOLLOW : 0);
    }
};

// Opens for access 0, or for GENERIC_READ that truncates. Checks the kind of the file first, since
// an open of a FIFO or device may have an effect: access 0 opens such a file by O_PATH only, and
// GENERIC_READ opens it for reading only.
HostDescriptor open_by_kind(const FileRef &name, const Request &request) {
    struct stat facts;
    if (fstatat(name.directory, name.name, &facts, 0) != 0) {
        return HostDescriptor();
    }
    if (!S_ISREG(facts.st_mode) && !S_ISDIR(facts.st_mode)) {
        return open_host(name, request.access == 0 ? O_PATH : O_RDONLY | request.HostFlags());
    }
    if (request.Empties()) {
        return request.access == 0 ? open_host_to_write(name, request.HostFlags())
                                   : open_host(name, O_RDWR | request.HostFlags());
    }
    HostDescriptor file = open_host(name, O_RDONLY | request.HostFlags());
    return !file && errno == EACCES ? open_host(name, O_PATH) : std::move(file);
}

// Never truncates: the share modes of other handles may forbid the open. Never waits for the other
// end of a FIFO.
HostDescriptor open_existing(const FileRef &name, const Request &request) {
    switch (request.access) {
        case GENERIC_READ | GENERIC_WRITE:
            return open_host(name, O_RDWR | request.HostFlags());
        case GENERIC_WRITE:
            return open_host_to_write(name, request.HostFlags());
        case GENERIC_READ:
            if (!request.Empties()) {
                return open_host(name, O_RDONLY | request.HostFlags());
            }
            break;
        default:
            break;
    }
    return open_by_kind(name, request);
}

HostDescriptor create(const FileRef &name, const Request &request, int exclusive) {
    return open_host(
        name, O_CREAT | request.HostFlags() | (request.Writes() ? O_RDWR : O_RDONLY) | exclusive,
        mode_of_new_file());
}

// Opens a link itself, for its facts only. Returns no descriptor when the name is no link.
HostDescriptor open_link(const FileRef &name) {
    HostDescriptor link = open_host(name, O_PATH | O_NOFOLLOW);
    struct stat facts;
    const bool is_link = link && fstat(link.Get(), &facts) == 0 && S_ISLNK(facts.st_mode);
    return is_link ? std::move(link) : HostDescriptor();
}

// Whether a file is a program that runs, which is noticed only if this user may write to the file.
bool is_running_program(const FileRef &name, mode_t mode) {
    return (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0 && !open_host(name, O_RDWR | O_NONBLOCK) &&
           errno == ETXTBSY;
}

// Opens or creates a file by `creation`. On failure sets errno.
HostDescriptor open_or_create(const FileRef &name, const Request &request, bool *created) {
    *created = true;
    if (request.creation == CREATE_NEW) {
        return create(name, request, O_EXCL);
    }
    if (request.OpensLinks()) {
        HostDescriptor link = open_link(name);
        if (link) {
            *created = false;
            return link;
        }
    }
    // Others may create and delete the file meanwhile. When every open gives ENOENT and every
    // exclusive create gives EEXIST, the name is a link without a target: the last call creates the
    // target.
    constexpr int kMaxRaces = 3;
    for (int attempt = 0; attempt < kMaxRaces; ++attempt) {
        HostDescriptor file = open_existing(name, request);
        *created = !file;
        if (file || errno != ENOENT || !request.MayCreate()) {
            return file;
        }
        file = create(name, request, O_EXCL);
        if (file || errno != EEXIST) {
            return file;
        }
    }
    return create(name, request, 0);
}

// Truncates an existing file, and for CREATE_ALWAYS gives it new attributes.
DWORD empty_file(int file, const Request &request) {
    if ((request.access & GENERIC_WRITE) == 0 && !is_shared_for(file, kShareWrite)) {
        return ERROR_SHARING_VIOLATION;
    }
    constexpr DWORD kProtecting = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    FileFacts facts;
    if (request.creation == CREATE_ALWAYS && read_facts(file, &facts) == 0 &&
        (facts.attributes & kProtecting & ~request.flags) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (ftruncate(file, 0) != 0) {
        return code_of_errno(errno);
    }
    if (request.creation == CREATE_ALWAYS) {
        write_attributes(file, request.NewAttributes());
    }
    return ERROR_SUCCESS;
}

// A file that the host has opened and that has no handle yet.
struct Opened {
    SharingFile file;
    bool created = false;
    struct stat facts = {};
};

// Acquires the share lock. Returns an error code. Returns nothing when the name no longer names the
// open file: others have deleted or replaced the file before it was locked.
std::optional<DWORD> share(const FileRef &name, const Request &request, Opened *opened) {
    const int refusal = opened->file.Take(request.ShareAccess(), request.share);
    if (request.ShareAccess() != 0 && !still_names(name, opened->facts)) {
        return std::nullopt;
    }
    return refusal != 0 ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

// Applies the rules that the host does not have. Returns an error code, or nothing as above.
std::optional<DWORD> complete_open(const FileRef &name, const Request &request, Opened *opened) {
    const int file = opened->file.Get();
    const mode_t mode = opened->facts.st_mode;
    if (S_ISDIR(mode) && !request.OpensDirectories()) {
        return ERROR_ACCESS_DENIED;
    }
    if (S_ISLNK(mode)) {
        return request.Writes() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    }
    if (!S_ISREG(mode) && !S_ISDIR(mode)) {
        if (request.Deletes()) {
            return ERROR_ACCESS_DENIED;
        }
        if (request.access != 0) {
            fcntl(file, F_SETFL, fcntl(file, F_GETFL) & ~O_NONBLOCK);  // only the open needs it
        }
        return ERROR_SUCCESS;
    }
    if (!opened->created && (request.Writes() || request.Deletes()) &&
        is_read_only(opened->facts)) {
        return ERROR_ACCESS_DENIED;
    }
    if (request.Deletes() && is_running_program(name, mode)) {
        return ERROR_SHARING_VIOLATION;
    }
    const std::optional<DWORD> code = share(name, request, opened);
    if (code != ERROR_SUCCESS) {
        return code;
    }
    if (opened->created) {
        write_new_attributes(file, request.NewAttributes());
        return ERROR_SUCCESS;
    }
    return request.Empties() ? empty_file(file, request) : ERROR_SUCCESS;
}

std::optional<DWORD> try_open(const HostName &host, const Request &request, Opened *opened) {
    const FileRef name = host.Ref();
    opened->file = SharingFile();  // a lock of the previous attempt would conflict
    opened->file = SharingFile(open_or_create(name, request, &opened->created));
    if (!opened->file) {
        return errno == EEXIST ? ERROR_FILE_EXISTS : host.CodeOf(errno);
    }
    if (fstat(opened->file.Get(), &opened->facts) != 0) {
        return code_of_errno(errno);
    }
    return complete_open(name, request, opened);
}

DWORD open_file(const WCHAR *path, Request request, HANDLE *handle) {
    const std::optional<HostName> host = resolve_file(path);
    if (!host) {
        return GetLastError();
    }
    request.refuses_links = host->RefusesLinks();
    Opened opened;
    std::optional<DWORD> code;
    for (int attempt = 0; !code && attempt < kMaxAttempts; ++attempt) {
        code = try_open(*host, request, &opened);
    }
    if (code != ERROR_SUCCESS) {
        return code.value_or(ERROR_SHARING_VIOLATION);
    }
    const mode_t mode = opened.facts.st_mode;
    const auto object = std::make_shared<OpenFile>(std::move(opened.file),
                                                   S_ISLNK(mode) ? 0 : request.access, mode);
    *handle = reinterpret_cast<HANDLE>(HandleTable::Instance().Open(HandleKind::kObject, object));
    if (request.Deletes()) {
        object->DeleteAtClose();  // not earlier: a failed open deletes nothing
    }
    if (request.creation == CREATE_ALWAYS || request.creation == OPEN_ALWAYS) {
        SetLastError(opened.created ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    }
    return ERROR_SUCCESS;
}

}  // namespace
}  // namespace ostrel_platform

HANDLE CreateFileW(const WCHAR *path, DWORD access, DWORD share, SECURITY_ATTRIBUTES *security,
                   DWORD creation, DWORD flags, HANDLE pattern) noexcept {
    HANDLE handle = INVALID_HANDLE_VALUE;
    ostrel_platform::call_result([&]() -> DWORD {
        const ostrel_platform::Request request = {access, share, creation, flags};
        const bool valid = security == nullptr && pattern == nullptr && request.IsValid();
        return valid ? ostrel_platform::open_file(path, request, &handle) : ERROR_INVALID_PARAMETER;
    });
    return handle;
}
