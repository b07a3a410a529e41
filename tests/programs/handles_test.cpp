// The scoped handles, against calls of the platform that only take notes.

#include "ostrel/core/handles.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"

namespace {

std::vector<std::string> g_calls;

void note(const char *call, const void *value) {
    g_calls.push_back(std::string(call) + " " +
                      std::to_string(reinterpret_cast<std::intptr_t>(value)));
}

}  // namespace

BOOL CloseHandle(HANDLE handle) noexcept {
    note("CloseHandle", handle);
    return FALSE;
}
BOOL FindClose(HANDLE search) noexcept {
    note("FindClose", search);
    return FALSE;
}
BOOL CloseServiceHandle(SC_HANDLE handle) noexcept {
    note("CloseServiceHandle", handle);
    return FALSE;
}
BOOL FreeLibrary(HMODULE module) noexcept {
    note("FreeLibrary", module);
    return FALSE;
}
int _findclose(std::intptr_t search) noexcept {
    note("_findclose", reinterpret_cast<void *>(search));
    return -1;
}
int _wremove(const WCHAR *path) noexcept {
    g_calls.push_back("_wremove " + std::string(path, path + std::u16string_view(path).size()));
    return -1;
}

namespace {

template <class Handle>
Handle value(std::intptr_t number) {
    return reinterpret_cast<Handle>(number);
}

template <class Class>
constexpr bool kCopies =
    std::is_copy_constructible_v<Class> || std::is_assignable_v<Class &, const Class &>;
static_assert(!kCopies<CHandle> && !kCopies<CFindHandle> && !kCopies<CSCHandle> &&
              !kCopies<CAutoCloseLibrary> && !kCopies<CAutoFindClose> && !kCopies<CAutoDeleteFile>);

TEST(ScopedHandles, ReleaseWhatTheyHoldAtTheEndOfTheScope) {
    using Calls = std::vector<std::string>;
    const auto calls_of = [](auto scope) {
        g_calls.clear();
        scope();
        return g_calls;
    };
    EXPECT_EQ(calls_of([] { CHandle a, b(nullptr), c(value<void *>(-1)); }), Calls{});
    EXPECT_EQ(calls_of([] { CHandle a(value<void *>(8)); }), Calls{"CloseHandle 8"});
    EXPECT_EQ(calls_of([] { CFindHandle a, b(nullptr); }), Calls{});
    EXPECT_EQ(calls_of([] { CFindHandle a(value<void *>(8)); }), Calls{"FindClose 8"});
    EXPECT_EQ(calls_of([] { CSCHandle a; }), Calls{});
    EXPECT_EQ(calls_of([] { CSCHandle a(value<SC_HANDLE>(-1)); }), Calls{"CloseServiceHandle -1"});
    EXPECT_EQ(calls_of([] { CAutoCloseLibrary a; }), Calls{});
    EXPECT_EQ(calls_of([] { CAutoCloseLibrary a(value<HINSTANCE>(8)); }), Calls{"FreeLibrary 8"});
    EXPECT_EQ(calls_of([] {
                  CAutoCloseLibrary a(value<HINSTANCE>(8));
                  EXPECT_EQ(a.Release(), value<HINSTANCE>(8));
                  EXPECT_EQ(static_cast<HINSTANCE>(a), nullptr);
              }),
              Calls{});
    EXPECT_EQ(calls_of([] { CAutoFindClose a; }), Calls{});
    EXPECT_EQ(calls_of([] { CAutoFindClose a(-1); }), Calls{"_findclose -1"});
    EXPECT_EQ(calls_of([] { CAutoDeleteFile a(nullptr); }), Calls{"_wremove "});
    EXPECT_EQ(calls_of([] {
                  CAutoDeleteFile a(TEXT("first"));
                  a = TEXT("second");
                  EXPECT_EQ(std::u16string(a), TEXT("second"));
                  a = nullptr;
                  a = std::u16string(5000, u'x').c_str();
              }),
              Calls{"_wremove " + std::string(5000, 'x')});
}

TEST(ScopedHandles, StoreWithoutReleasing) {
    g_calls.clear();
    {
        CHandle handle(value<void *>(8));
        static_cast<void *&>(handle) = value<void *>(12);
        EXPECT_EQ(static_cast<void *>(handle), value<void *>(12));
        EXPECT_EQ(&(handle = value<void *>(16)), &handle);
        CFindHandle search;
        EXPECT_EQ(static_cast<void *>(search = value<void *>(20)), value<void *>(-1));
        void *&field = search;
        EXPECT_EQ(field, value<void *>(20));
    }
    EXPECT_EQ(g_calls, (std::vector<std::string>{"FindClose 20", "CloseHandle 16"}));
}

}  // namespace
