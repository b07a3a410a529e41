#include "ostrel/platform/base/fork_generation.h"

#include <pthread.h>
#include <sys/mman.h>

#include <new>

namespace ostrel_platform {
namespace {

constinit ForkMark uncleared{0};
constinit std::atomic<std::uint64_t> last{0};

// The page stays when the layer is unloaded: a static destructor may still ask for the number.
ForkMark *map_mark() noexcept {
    void *const page =
        mmap(nullptr, sizeof(ForkMark), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return &uncleared;
    }
    if (madvise(page, sizeof(ForkMark), MADV_WIPEONFORK) != 0) {
        munmap(page, sizeof(ForkMark));
        return &uncleared;
    }
    return new (page) ForkMark(0);
}

// What asks before this runs begins another number afterwards.
[[maybe_unused]] const bool registered = [] {
    fork_mark.store(map_mark(), std::memory_order_release);
    return pthread_atfork(nullptr, nullptr, [] { fork_mark.load()->store(0); }) == 0;
}();

}  // namespace

constinit std::atomic<ForkMark *> fork_mark{&uncleared};

std::uint64_t begin_fork_generation() noexcept {
    const std::uint64_t number = last.fetch_add(1) + 1;
    std::uint64_t expected = 0;
    return fork_mark.load()->compare_exchange_strong(expected, number) ? number : expected;
}

}  // namespace ostrel_platform
