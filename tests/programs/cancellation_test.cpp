// Threads that are cancelled in a call of the layer.

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <clocale>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/codepage.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/profile.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/version.h"
#include "ostrel/platform/volume.h"
#include "support/file_calls.h"

namespace {

BOOL read_one(HANDLE file) {
    char byte;
    DWORD count = 0;
    return ReadFile(file, &byte, 1, &count, nullptr) && count == 1;
}

bool find_all() {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(TEXT("*"), &data);
    while (FindNextFileW(search, &data)) {
    }
    return GetLastError() == ERROR_NO_MORE_FILES && FindClose(search);
}

bool walk() {
    std::vector<OS::x_wstring> files;
    return NS_FileUtils::collectFiles(files, TEXT(""), TEXT("f*"), 0, nullptr, true, nullptr) ==
               1 &&
           NS_FileUtils::copyDirectory(TEXT("d"), TEXT("e"), 1, 0, 0) == 1;
}

bool read_and_write_streams() {
    WCHAR line[10];
    std::FILE *const reader = _wfopen(TEXT("file"), TEXT("r"));
    std::FILE *const writer = _wfopen(TEXT("written"), TEXT("w"));
    std::fputs(" ", stdout);  // which _flushall writes
    return fgetws(line, 10, reader) != nullptr && std::fputs("x", writer) >= 0 &&
           _flushall() == 5 && std::fclose(reader) == 0 && std::fclose(writer) == 0;
}

bool read_bytes_of_a_stream() {
    std::FILE *const reader = _wfopen(TEXT("file"), TEXT("rb"));
    return std::fgetc(reader) == 'x' && std::fclose(reader) == 0;
}

bool write_and_flush() {
    const Opened file(TEXT("written"), GENERIC_WRITE, kShareAll, CREATE_ALWAYS);
    DWORD count = 0;
    return WriteFile(file.handle, "x", 1, &count, nullptr) != FALSE;
}

bool wait_for_a_conflict() {  // two opens that exclude each other
    const Opened first(TEXT("file"), GENERIC_READ, 0);
    return !Opened(TEXT("file"), GENERIC_READ);
}

bool use_times() {
    WCHAR text[100];
    std::int64_t now = _time64(nullptr);
    return _putenv_s("TZ", "Europe/Berlin") == 0 && _localtime64(&now) != nullptr &&
           wcsftime(text, 100, TEXT("%c"), _localtime64(&now)) != 0;
}

bool use_code_pages() {
    WCHAR unit;
    return MultiByteToWideChar(932, 0, "x", 1, &unit, 1) == 1 && GetACP() != 0;
}

bool use_profile_module_and_volume() {
    WCHAR text[MAX_PATH];
    DWORD sectors;
    Dl_info module;
    dladdr("", &module);
    return GetPrivateProfileIntW(TEXT("s"), TEXT("k"), 7, TEXT("./profile")) == 8 &&
           GetModuleFileNameW(static_cast<HMODULE>(module.dli_fbase), text, MAX_PATH) > 0 &&
           GetDiskFreeSpaceW(nullptr, &sectors, &sectors, &sectors, &sectors) != FALSE;
}

// A call that a cancelled thread makes.
struct Row {
    const char *text;
    bool (*call)();
    bool done = false;
};

void *cancelled_thread(void *row) {
    pthread_cancel(pthread_self());  // takes effect in the first call of the host that allows it
    static_cast<Row *>(row)->done = static_cast<Row *>(row)->call();
    pthread_testcancel();
    return nullptr;
}

void *result_of(pthread_t thread) {
    void *result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result;
}

TEST(Cancellation, WaitsForTheEndOfACall) {
    std::setlocale(LC_TIME, "");
    const Planted dir("file=x d/");
    dir.Write("profile", "[s]\nk=8\n");
    for (Row row : {Row{CALL(bool{CopyFileW(TEXT("file"), TEXT("copy"), FALSE) != FALSE})},
                    Row{CALL(read_and_write_streams())}, Row{CALL(read_bytes_of_a_stream())},
                    Row{CALL(write_and_flush())}, Row{CALL(find_all())}, Row{CALL(walk())},
                    Row{CALL(wait_for_a_conflict())}, Row{CALL(use_times())},
                    Row{CALL(use_code_pages())}, Row{CALL(use_profile_module_and_volume())},
                    Row{CALL(GetFileVersionInfoSizeW(TEXT("file"), nullptr) == 0 &&
                             GetLastError() == ERROR_BAD_EXE_FORMAT)},
                    Row{CALL(MoveFileExW(TEXT("copy"), TEXT("moved"), 8) != FALSE)},
                    Row{CALL(DeleteFileW(TEXT("moved")) != FALSE)}}) {
        SCOPED_TRACE(row.text);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, cancelled_thread, &row), 0);
        EXPECT_EQ(result_of(thread), PTHREAD_CANCELED);
        EXPECT_TRUE(row.done);
    }
    EXPECT_EQ(_flushall(), 3);
    EXPECT_TRUE(Opened(TEXT("file"), GENERIC_READ | GENERIC_WRITE, 0));  // no lock has stayed
}

struct Reader {
    HANDLE fifo;
    std::atomic<pid_t> thread{0};
    bool read = false;
};

void *blocked_thread(void *argument) {
    auto *const reader = static_cast<Reader *>(argument);
    reader->thread = gettid();
    reader->read = read_one(reader->fifo) != FALSE;
    pthread_testcancel();
    return nullptr;
}

// Whether a thread of this process waits in the host.
bool is_blocked(pid_t thread) {
    const std::string facts = content_of("/proc/self/task/" + std::to_string(thread) + "/stat");
    return facts.find(") S ") != facts.npos;
}

TEST(Cancellation, ABlockedReadEndsWithItsByte) {
    const TempDir dir;
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    const Opened fifo(TEXT("fifo"), GENERIC_READ);
    const Opened writer(TEXT("fifo"), GENERIC_WRITE);
    Reader reader{fifo.handle};
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, blocked_thread, &reader), 0);
    while (reader.thread == 0 || !is_blocked(reader.thread)) {
    }
    EXPECT_EQ(pthread_cancel(thread), 0);
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(writer.handle, "x", 1, &count, nullptr));
    EXPECT_EQ(result_of(thread), PTHREAD_CANCELED);
    EXPECT_TRUE(reader.read);
    EXPECT_TRUE(WriteFile(writer.handle, "y", 1, &count, nullptr));
    EXPECT_TRUE(read_one(fifo.handle));  // on this thread: the handle and its locks are free
}

}  // namespace
