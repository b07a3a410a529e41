// The first stream of a process when memory is short.

#include <dlfcn.h>
#include <unicode/uclean.h>

#include <cerrno>

#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/stream.h"
#include "support/child.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"
#include "support/test.h"

// The host's own allocation for a stream.
extern "C" std::FILE *fopencookie(void *cookie, const char *mode,
                                  cookie_io_functions_t functions) noexcept {
    static const auto next = reinterpret_cast<decltype(&fopencookie)>(dlsym(RTLD_NEXT, __func__));
    void *const block = failing_memory::allocate(1);
    std::free(block);
    errno = block == nullptr ? ENOMEM : errno;
    return block != nullptr ? next(cookie, mode, functions) : nullptr;
}

namespace {

enum Outcome { kWrong = 1, kFailed, kComplete };

void *U_CALLCONV allocate(const void *, std::size_t size) {
    return failing_memory::allocate(size);
}
void *U_CALLCONV reallocate(const void *, void *block, std::size_t size) {
    return std::realloc(block, size);
}
void U_CALLCONV release(const void *, void *block) {
    std::free(block);
}

// Reads a line, or writes one. Returns 0 or errno; -1 for another line.
int use_stream(const WCHAR *mode) {
    WCHAR line[10];
    errno = 0;
    std::FILE *const file = _wfopen(TEXT("file"), mode);
    if (file == nullptr) {
        return errno;
    }
    const bool reads = *mode == u'r';
    const bool done =
        reads ? fgetws(line, 10, file) != nullptr : std::fputs("\xE3\x83\x86\n", file) >= 0;
    const int error = !done ? errno : reads && line != std::u16string_view(u"\u30C6\n") ? -1 : 0;
    return std::fclose(file) == 0 ? error : errno;
}

// Runs in a process of its own. The allocation behind `left` others fails, which ICU may bear.
Outcome first_stream(const WCHAR *mode, int left, failing_memory::Rest rest) {
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(nullptr, allocate, reallocate, release, &status);
    failing_memory::fail_after(left, rest);
    const int error = use_stream(mode);
    const bool failed = failing_memory::has_failed();
    failing_memory::fail_after(-1);
    const bool right =
        (error == 0 || (failed && error == ENOMEM)) && _flushall() == 3 && use_stream(mode) == 0;
    return !right ? kWrong : failed ? kFailed : kComplete;
}

// The calls find no object of theirs, so they need no memory.
Outcome first_calls_without_memory() {
    WCHAR unit;
    WIN32_FIND_DATAW data;
    failing_memory::fail_after(0);
    const bool right = fgetws(&unit, 1, stdin) == nullptr && errno == EINVAL && _flushall() == 3 &&
                       !CloseHandle(nullptr) && !FindNextFileW(nullptr, &data) &&
                       !failing_memory::has_failed();
    return right ? kComplete : kWrong;
}

TEST(StreamMemory, TheFirstStreamFailsWithENOMEM) {
    const std::tuple<std::string, const WCHAR *, std::string_view> rows[] = {
        {"C.UTF-8", TEXT("r"), "\xE3\x83\x86\n"},
        {"C.UTF-8", TEXT("w"), ""},
        {"ja_JP.SJIS", TEXT("r"), "\x83\x65\n"}};
    const TempDir dir;
    for (const auto &[locale, mode, content] : rows) {
        SCOPED_TRACE(PrintToString(std::tuple(locale, mode)));
        setenv("LC_ALL", locale.c_str(), 1);
        dir.Write("file", content);
        int left = 0;
        int outcome = kFailed;
        for (; outcome == kFailed; ++left) {
            for (const auto rest : {failing_memory::Rest::kNone, failing_memory::Rest::kAll}) {
                const WCHAR *const each = mode;
                outcome = exit_of_child([&] { return first_stream(each, left, rest); });
                EXPECT_TRUE(outcome == kFailed || outcome == kComplete) << left << ": " << outcome;
            }
        }
        EXPECT_GT(left, 4);
    }
}

TEST(StreamMemory, CallsThatFindNothingNeedNone) {
    EXPECT_EQ(exit_of_child(first_calls_without_memory), kComplete);
}

TEST(StreamMemory, AFailedOpenDoesNotTruncateTheFile) {
    const TempDir dir;
    dir.Write("file", "x\n");
    for (int left = 0, error = ENOMEM; error != 0; ++left) {
        EXPECT_EQ(fs::file_size("file"), 2u) << left;
        failing_memory::fail_after(left);
        std::FILE *const file = _wfopen(TEXT("file"), TEXT("w"));
        failing_memory::fail_after(-1);
        error = file == nullptr ? errno : std::fclose(file);
        EXPECT_TRUE(error == 0 || error == ENOMEM) << left;
    }
    EXPECT_EQ(fs::file_size("file"), 0u);
}

}  // namespace
