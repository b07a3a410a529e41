#include "ostrel/platform/registry/writer_lock.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ostrel/platform/registry/shared_futex.h"
#include "ostrel/platform/registry/shared_page.h"

namespace ostrel_platform {
namespace {

// Those who may write the database, and nobody else, may open the file.
mode_t mode_of_writers(mode_t database) {
    mode_t mode = 0600;
    if ((database & S_IWGRP) != 0) {
        mode |= 0060;
    }
    if ((database & S_IWOTH) != 0) {
        mode |= 0006;
    }
    return mode;
}

int set_lock(int file, short type) noexcept {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return error_of(fcntl(file, F_OFD_SETLK, &lock));
}

}  // namespace

int WriterLock::Open(const std::string &path, mode_t database_mode) {
    m_file = open_host(path.c_str(), O_RDWR | O_NOFOLLOW);
    if (!m_file && errno == ENOENT) {
        const mode_t mode = mode_of_writers(database_mode);
        m_file = open_host(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, mode);
        if (m_file) {
            fchmod(m_file.Get(), mode);  // whatever the umask is; fails for a file of another user
        }
    }
    return m_file ? 0 : errno;
}

int WriterLock::Lock(SharedPage *page) noexcept {
    constexpr std::int64_t kPause = 2;  // milliseconds, for a release that tells nobody
    const std::int64_t begin = coarse_milliseconds();
    for (bool is_first = true;; is_first = false) {
        const std::uint32_t released =
            page != nullptr ? page->ReleaseWord().load(std::memory_order_acquire) : 0;
        if (page != nullptr && !is_first) {
            page->Wanted().store(1, std::memory_order_seq_cst);
        }
        const int error = set_lock(m_file.Get(), F_WRLCK);
        if (error != EAGAIN && error != EACCES && error != EINTR) {
            return error;
        }
        if (coarse_milliseconds() - begin > kMaxLockWait) {
            return EBUSY;
        }
        if (is_first) {
            continue;
        }
        if (page != nullptr) {
            wait_on_shared(page->ReleaseWord(), released, kPause);
        } else {
            const timespec pause{0, kPause * 1'000'000};
            nanosleep(&pause, nullptr);
        }
    }
}

void WriterLock::Unlock(SharedPage *page) noexcept {
    set_lock(m_file.Get(), F_UNLCK);
    if (page != nullptr && page->Wanted().exchange(0, std::memory_order_seq_cst) != 0) {
        page->ReleaseWord().fetch_add(1, std::memory_order_acq_rel);
        wake_shared(page->ReleaseWord());
    }
}

std::string WriterLock::Text() const {
    char text[64];
    const ssize_t count = pread(m_file.Get(), text, sizeof text, 0);
    return {text, count > 0 ? static_cast<std::size_t>(count) : 0};
}

bool WriterLock::SetText(const std::string &text) const noexcept {
    return ftruncate(m_file.Get(), 0) == 0 &&
           pwrite(m_file.Get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace ostrel_platform
