#include "ostrel/platform/file/open_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/write_signal.h"

namespace ostrel_platform {

OpenFile::OpenFile(SharingFile file, DWORD access, mode_t mode)
    : m_file(std::move(file)),
      m_access(access),
      m_mode(mode),
      m_signal((access & GENERIC_WRITE) != 0 ? signal_of_writes(S_ISREG(mode)) : 0) {}

DWORD OpenFile::Read(char *bytes, DWORD count, DWORD *done) {
    return Transfer(count, done, !S_ISREG(m_mode), [this, bytes](DWORD from, DWORD left) {
        return read(Get(), bytes + from, left);
    });
}

DWORD OpenFile::Write(const char *bytes, DWORD count, DWORD *done) {
    std::optional<BlockedSignal> blocked;
    if (m_signal != 0) {
        blocked.emplace(m_signal);
    }
    const DWORD code = Transfer(count, done, false, [this, bytes](DWORD from, DWORD left) {
        return write(Get(), bytes + from, left);
    });
    return code == ERROR_SUCCESS && *done < count ? code_of_errno(EIO) : code;
}

// Repeats a host call that may be interrupted or transfer less than asked for. A call that
// transfers nothing is the end of the file.
template <class Step>
DWORD OpenFile::Transfer(DWORD count, DWORD *done, bool one_step, Step step) {
    std::unique_lock lock(m_position, std::defer_lock);
    if (S_ISREG(m_mode)) {
        lock.lock();  // a FIFO's reader must not wait for its writer
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

}  // namespace ostrel_platform
