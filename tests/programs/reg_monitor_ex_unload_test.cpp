// A library that is unloaded while its change notifier works. The program loads the library itself.

#include <dlfcn.h>

#include <atomic>
#include <string>
#include <thread>

#include "ostrel/platform/registry.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

std::atomic<HANDLE> g_event;  // of the one unit

}  // namespace

LSTATUS RegOpenKeyExW(HKEY, const WCHAR *, DWORD, REGSAM, HKEY *) noexcept {
    return 0;
}
LSTATUS RegNotifyChangeKeyValue(HKEY, BOOL, DWORD, HANDLE event, BOOL) noexcept {
    g_event = event;
    return 0;
}

namespace {

// As in the library, whose strings add no field to the standard's.
using Callback = int (*)(const std::u16string &);
using Instance = void *(*)();
using Register = bool (*)(void *, const std::u16string &, bool, Callback, bool);

std::atomic<int> g_calls{0};
std::atomic<bool> g_goesOn{false};

int wait_in_callback(const std::u16string &) {
    ++g_calls;
    while (!g_goesOn) {
        std::this_thread::yield();
    }
    return 0;
}

TEST(RegMonitorExUnload, LeavesTheLibraryLoaded) {
    void *const library = dlopen(OSTREL_LIBRARY, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    void *const monitor =
        reinterpret_cast<Instance>(dlsym(library, "_ZN2OS13CRegMonitorEx8InstanceEv"))();
    const auto add = reinterpret_cast<Register>(
        dlsym(library, "_ZN2OS13CRegMonitorEx17RegisterRegNotifyERKNS_9x_wstringEbPFiS3_Eb"));
    ASSERT_TRUE(add(monitor, u"SOFTWARE", false, wait_in_callback, false));
    for (int calls = 1; calls <= 2; ++calls) {
        while (g_event == nullptr) {
            std::this_thread::yield();
        }
        SetEvent(g_event);
        while (g_calls != calls) {
            std::this_thread::yield();
        }
        if (calls == 1) {
            EXPECT_EQ(dlclose(library), 0);  // the callback returns to the library
        }
        g_goesOn = true;
    }
}

}  // namespace
