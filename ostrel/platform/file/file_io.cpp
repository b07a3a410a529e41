// The calls that take a handle of CreateFileW.

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/open_file.h"

namespace {

using ostrel_platform::code_of_errno;
using ostrel_platform::FileFacts;
using ostrel_platform::HandleKind;
using ostrel_platform::HandleTable;
using ostrel_platform::OpenFile;

// Runs `body`, which returns an error code, with the open file of a handle.
template <class Body>
BOOL with_file(HANDLE handle, Body body) noexcept {
    return ostrel_platform::call_result([&]() -> DWORD {
        const auto object = HandleTable::Instance().Find(HandleKind::kObject,
                                                         reinterpret_cast<std::uintptr_t>(handle));
        auto *const file = dynamic_cast<OpenFile *>(object.get());
        return file != nullptr ? body(*file) : ERROR_INVALID_HANDLE;
    });
}

// Checks the arguments of a read or write. Returns an error code.
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

constinit thread_local mode_t t_creationMask = 0777;

constexpr DWORD high_half(std::uint64_t value) {
    return static_cast<DWORD>(value >> 32);
}

constexpr DWORD low_half(std::uint64_t value) {
    return static_cast<DWORD>(value);
}

}  // namespace

mode_t ostrel_platform::mode_of_new_file() noexcept {
    return 0666 & t_creationMask;
}

mode_t ostrel_platform::mode_of_new_directory() noexcept {
    return t_creationMask;
}

platform_creation_limit::platform_creation_limit(HANDLE source) noexcept
    : m_before(t_creationMask) {
    struct stat facts = {};
    with_file(source, [&facts](const OpenFile &open) {
        return fstat(open.Get(), &facts) == 0 ? ERROR_SUCCESS : code_of_errno(errno);
    });
    t_creationMask &= S_IRWXU | facts.st_mode;
}

platform_creation_limit::~platform_creation_limit() {
    t_creationMask = m_before;
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

DWORD GetFileType(HANDLE file) noexcept {
    DWORD type = FILE_TYPE_UNKNOWN;
    with_file(file, [&type](const OpenFile &open) -> DWORD {
        const mode_t mode = open.Mode();
        type = S_ISFIFO(mode) || S_ISSOCK(mode) ? FILE_TYPE_PIPE
               : S_ISCHR(mode)                  ? FILE_TYPE_CHAR
                                                : FILE_TYPE_DISK;
        return ERROR_SUCCESS;
    });
    return type;
}

BOOL GetFileTime(HANDLE file, FILETIME *creation, FILETIME *access, FILETIME *write) noexcept {
    return with_file(file, [=](OpenFile &open) {
        FileFacts facts;
        if (const int error = ostrel_platform::read_facts(open.Get(), &facts)) {
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
        const int error = ostrel_platform::write_times(open.Get(), creation, access, write);
        return error != 0 ? code_of_errno(error) : ERROR_SUCCESS;
    });
}

BOOL GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION *information) noexcept {
    return with_file(file, [=](OpenFile &open) {
        FileFacts facts;
        if (information == nullptr) {
            return ERROR_NOACCESS;
        }
        if (const int error = ostrel_platform::read_facts(open.Get(), &facts)) {
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
