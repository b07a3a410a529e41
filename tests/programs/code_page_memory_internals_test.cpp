// Code pages when memory is short.

#include <dlfcn.h>
#include <pthread.h>
#include <unicode/uclean.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "ostrel/platform/codepage.h"
#include "support/test.h"

namespace {

int g_left = -1;  // ICU's allocations that still succeed; negative: all
bool g_refused = false;
std::atomic<int> g_registered = 0;
thread_local bool t_hostKeepsNothing = false;

void *U_CALLCONV allocate(const void *, std::size_t size) {
    g_refused = g_refused || g_left == 0;
    return g_left == 0 ? nullptr : (g_left -= g_left > 0 ? 1 : 0, std::malloc(size));
}
void *U_CALLCONV reallocate(const void *, void *block, std::size_t size) {
    return std::realloc(block, size);
}
void U_CALLCONV release(const void *, void *block) {
    std::free(block);
}

std::string narrow(unsigned code_page, const std::u16string &text) {
    char buffer[64];
    const int stored = WideCharToMultiByte(code_page, 0, text.data(), static_cast<int>(text.size()),
                                           buffer, 64, nullptr, nullptr);
    return {buffer, static_cast<std::size_t>(stored)};
}

}  // namespace

// The host keeps a value for a thread only while memory lasts.
extern "C" int pthread_setspecific(pthread_key_t key, const void *value) noexcept {
    if (t_hostKeepsNothing) {
        return ENOMEM;
    }
    static const auto next =
        reinterpret_cast<decltype(&pthread_setspecific)>(dlsym(RTLD_NEXT, "pthread_setspecific"));
    return next(key, value);
}

// Registers the destructor of a thread_local object; the host's ends the program without memory.
extern "C" int __cxa_thread_atexit_impl(void (*)(void *), void *, void *);
extern "C" int __cxa_thread_atexit(void (*destroy)(void *), void *object, void *module) {
    ++g_registered;
    return __cxa_thread_atexit_impl(destroy, object, module);
}

namespace {

// ICU and the system code page start once in a process, so each number of allocations has one.
TEST(CodePageMemory, TheSystemCodePageIsFoundAfterAFailure) {
    const auto run = [](int left) {
        setenv("LC_ALL", "ja_JP.SJIS", 1);
        UErrorCode status = U_ZERO_ERROR;
        u_setMemoryFunctions(nullptr, allocate, reallocate, release, &status);
        g_left = left;
        const unsigned first = GetACP();
        g_left = -1;
        const bool found = GetACP() == 932 && narrow(CP_ACP, u"\u30BD") == "\x83\x5C";
        _exit(!found || first != (g_refused ? 65001 : 932) ? 1 : g_refused ? 2 : 3);
    };
    for (int left = 0; left < 3; ++left) {
        EXPECT_EXIT(run(left), testing::ExitedWithCode(2), "") << left;
    }
    EXPECT_EXIT(run(-1), testing::ExitedWithCode(3), "");
}

TEST(CodePageMemory, AThreadConvertsWithoutMemoryOfItsOwn) {
    for (const bool keeps : {true, false}) {
        std::thread([keeps] {
            t_hostKeepsNothing = !keeps;
            const int registered = g_registered;
            for (const unsigned code_page : {932u, 932u, 1252u}) {
                EXPECT_EQ(narrow(code_page, u"\u00E9\u00D7"),
                          code_page == 932 ? "e\x81\x7E" : "\xE9\xD7");
            }
            EXPECT_EQ(g_registered, registered);
            t_hostKeepsNothing = false;
        }).join();
    }
}

}  // namespace
