#include "ostrel/platform/crypt/random.h"

#include <sys/random.h>

#include <cerrno>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {

// The host fills up to 32 MiB at a time, and less when a signal comes.
DWORD fill_random(void *bytes, std::size_t count) noexcept {
    const NoCancellation uncancelled;
    auto *const target = static_cast<unsigned char *>(bytes);
    for (std::size_t done = 0; done < count;) {
        const ssize_t filled = getrandom(target + done, count - done, 0);
        if (filled >= 0) {
            done += static_cast<std::size_t>(filled);
        } else if (errno != EINTR) {
            return code_of_errno(errno);
        }
    }
    return ERROR_SUCCESS;
}

}  // namespace ostrel_platform
