// The scoped handles, against calls of the platform that only take notes.

#include "ostrel/core/handles.h"

#include <bit>

#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"
#include "support/test.h"

namespace {

std::string g_calls;

template <class Handle>
Handle handle(std::intptr_t number) {
    return reinterpret_cast<Handle>(number);
}

}  // namespace

#define NOTE_CALLS(Call, Value)                                                           \
    int Call(Value value) noexcept {                                                      \
        g_calls += #Call " " + std::to_string(std::bit_cast<std::intptr_t>(value)) + ' '; \
        return 0;                                                                         \
    }
NOTE_CALLS(CloseHandle, HANDLE)
NOTE_CALLS(FindClose, HANDLE)
NOTE_CALLS(CloseServiceHandle, SC_HANDLE)
NOTE_CALLS(FreeLibrary, HMODULE)
NOTE_CALLS(_findclose, std::intptr_t)

int _wremove(const WCHAR *path) noexcept {
    g_calls += "_wremove " + std::string(path, path + std::u16string_view(path).size());
    return -1;
}

namespace {

// The calls that the end of an object's scope makes.
template <class Class, class... Value>
std::string calls_at_end(Value... value) {
    g_calls.clear();
    { const Class scoped(value...); }
    return g_calls;
}

TEST(Handles, ReleaseWhatTheyHoldAtTheEndOfTheScope) {
    EXPECT_EQ(calls_at_end<CHandle>() + calls_at_end<CHandle>(handle<HANDLE>(-1)), "");
    EXPECT_EQ(calls_at_end<CHandle>(handle<HANDLE>(8)), "CloseHandle 8 ");
    EXPECT_EQ(calls_at_end<CFindHandle>() + calls_at_end<CFindHandle>(nullptr), "");
    EXPECT_EQ(calls_at_end<CFindHandle>(handle<HANDLE>(8)), "FindClose 8 ");
    EXPECT_EQ(calls_at_end<CSCHandle>() + calls_at_end<CAutoCloseLibrary>(), "");
    EXPECT_EQ(calls_at_end<CSCHandle>(handle<SC_HANDLE>(-1)), "CloseServiceHandle -1 ");
    EXPECT_EQ(calls_at_end<CAutoCloseLibrary>(handle<HINSTANCE>(8)), "FreeLibrary 8 ");
    EXPECT_EQ(calls_at_end<CAutoFindClose>() + calls_at_end<CAutoFindClose>(-1), "_findclose -1 ");
    EXPECT_EQ(calls_at_end<CAutoDeleteFile>(nullptr), "_wremove ");
}

TEST(Handles, StoreAndHandOverWithoutReleasing) {
    g_calls.clear();
    {
        CAutoCloseLibrary library(handle<HINSTANCE>(8));
        EXPECT_EQ(library.Release(), handle<HINSTANCE>(8));
        CAutoDeleteFile file(TEXT("first"));
        file = std::u16string(5000, u'x').c_str();
        CHandle event(handle<HANDLE>(8));
        static_cast<void *&>(event) = handle<HANDLE>(12);
        EXPECT_EQ(&(event = handle<HANDLE>(16)), &event);
        CFindHandle search;
        EXPECT_EQ(static_cast<void *>(search = handle<HANDLE>(20)), handle<HANDLE>(-1));
    }
    EXPECT_EQ(g_calls, "FindClose 20 CloseHandle 16 _wremove " + std::string(5000, 'x'));
}

}  // namespace
