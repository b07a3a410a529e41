#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <string>

#include "ostrel/core/convert.h"
#include "ostrel/core/handles.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/sync.h"
#include "ostrel/registry/reg_key.h"
#include "ostrel/registry/reg_monitor_ex.h"
#include "tour.h"

namespace {

namespace fs = std::filesystem;

const OS::x_wstring kSettings = TEXT("SOFTWARE\\Larkspur\\Tour");

OS::x_astring utf8(const OS::x_wstring &text) {
    return OS::WCharToUTF8Char(text, nullptr);
}

// A registry of the tour's own beside the program, so that the tour needs no rights.
fs::path choose_folder() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path() / "tour-registry";
    fs::create_directories(folder);
    setenv("OSTREL_REGISTRY", folder.c_str(), 1);
    return folder;
}

void show_settings() {
    OS::CRegKey key;
    OS::x_wstring folder;
    DWORD retries = 0;
    if (key.Open(HKEY_LOCAL_MACHINE, kSettings, KEY_READ) != ERROR_SUCCESS ||
        key.QueryValue(TEXT("Folder"), folder) != ERROR_SUCCESS ||
        key.QueryValue(retries, TEXT("Retries")) != ERROR_SUCCESS) {
        std::cout << "    the settings cannot be read\n";
        return;
    }
    std::cout << "    Folder = " << utf8(folder) << ", Retries = " << retries << '\n';
}

LONG write_settings() {
    const std::set<OS::x_wstring, OS::XWSTRICMP> recipients = {TEXT("ada@example.org"),
                                                               TEXT("Grace@example.org")};
    OS::CRegKey key;
    const LONG statuses[] = {
        key.Create(HKEY_LOCAL_MACHINE, kSettings, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
        key.SetValue(TEXT("C:\\srv\\larkspur"), TEXT("Folder")),
        key.SetValue(3u, TEXT("Retries")),
        key.SetValue(recipients, TEXT("Recipients")),
    };
    return *std::max_element(std::begin(statuses), std::end(statuses));
}

HANDLE told_event() {
    static const CHandle told(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    return told;
}

int tell(const OS::x_wstring &keyName) {
    std::cout << "  callback: " << utf8(keyName) << " has\n";
    show_settings();
    SetEvent(told_event());
    return 0;
}

// Runs this program as the second process, which calls change_settings.
void run_second_process() {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    char name[] = "tour";
    char option[] = "--change-settings";
    char *const arguments[] = {name, option, nullptr};
    pid_t process = 0;
    if (posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ) == 0) {
        waitpid(process, nullptr, 0);
    }
}

void show_store(const fs::path &folder) {
    std::cout << "\n  The store in " << folder.string() << ":\n";
    for (const char *const name : {"machine.db", "machine.db-wal", "machine.db-shm"}) {
        if (fs::exists(folder / name)) {
            std::cout << "    " << name << ", " << fs::file_size(folder / name) << " bytes\n";
        }
    }
    std::string head(15, ' ');
    std::ifstream(folder / "machine.db", std::ios::binary).read(head.data(), 15);
    std::cout << "    machine.db begins with \"" << head << "\"\n";
}

}  // namespace

int change_settings() {
    OS::CRegKey key;
    const LONG status = key.Open(HKEY_LOCAL_MACHINE, kSettings, KEY_ALL_ACCESS);
    return status == ERROR_SUCCESS ? key.SetValue(5u, TEXT("Retries")) : status;
}

void registry_station() {
    const fs::path folder = choose_folder();
    const LONG status = write_settings();
    if (status != ERROR_SUCCESS) {
        std::cout << "  the settings cannot be written: code " << status << '\n';
        return;
    }
    std::cout << "  This process writes the settings and registers a callback; the first call is "
                 "immediate.\n";
    OS::CRegMonitorEx *const monitor = OS::CRegMonitorEx::Instance();
    monitor->RegisterRegNotify(kSettings, false, tell, true);
    WaitForSingleObject(told_event(), INFINITE);
    std::cout << "  A second process sets Retries.\n";
    // Watching begins shortly after the registration; a change that came before is repeated.
    DWORD told = WAIT_TIMEOUT;
    for (int attempt = 0; attempt < 10 && told == WAIT_TIMEOUT; ++attempt) {
        run_second_process();
        told = WaitForSingleObject(told_event(), 1000);
    }
    if (told == WAIT_TIMEOUT) {
        std::cout << "  no callback has come\n";
    }
    monitor->Unregister(kSettings, false, tell);
    show_store(folder);
}
