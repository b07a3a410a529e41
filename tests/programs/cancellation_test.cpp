// Threads that are cancelled in a call of the layer.

#include <pthread.h>

#include <clocale>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/codepage.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/rpc_crypt.h"
#include "ostrel/platform/system.h"
#include "support/file_calls.h"

namespace {

WCHAR text[MAX_PATH];
DWORD number;

bool find_all() {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(TEXT("*"), &data);
    while (FindNextFileW(search, &data)) {
    }
    return GetLastError() == ERROR_NO_MORE_FILES && FindClose(search);
}

bool read_and_write_streams() {
    std::FILE *const reader = _wfopen(TEXT("file"), TEXT("r"));
    std::FILE *const writer = _wfopen(TEXT("written"), TEXT("w"));
    std::FILE *const bytes = _wfopen(TEXT("file"), TEXT("rb"));
    std::fputs(" ", stdout);  // which _flushall writes
    return fgetws(text, 9, reader) != nullptr && std::fputs("x", writer) >= 0 && _flushall() == 6 &&
           std::fgetc(bytes) == 'x' && std::fclose(bytes) == 0 && std::fclose(reader) == 0 &&
           std::fclose(writer) == 0;
}

bool read_and_write_a_file() {
    const Opened file(TEXT("written"), GENERIC_READ | GENERIC_WRITE, kShareAll, CREATE_ALWAYS);
    return WriteFile(file.handle, "x", 1, &number, nullptr) &&
           ReadFile(file.handle, text, 1, &number, nullptr);
}

bool wait_for_a_conflict() {  // two opens that exclude each other
    const Opened first(TEXT("file"), GENERIC_READ, 0);
    return !Opened(TEXT("file"), GENERIC_READ);
}

bool use_times() {
    std::int64_t now = _time64(nullptr);
    return _putenv_s("TZ", "Europe/Berlin") == 0 && _localtime64(&now) != nullptr &&
           wcsftime(text, MAX_PATH, TEXT("%c"), _localtime64(&now)) != 0;
}

bool draw_random_bytes() {
    UUID uuid;
    BYTE byte;
    HCRYPTPROV provider = 0;
    return UuidCreate(&uuid) == RPC_S_OK &&
           CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) &&
           CryptGenRandom(provider, 1, &byte) && CryptReleaseContext(provider, 0);
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

TEST(Cancellation, WaitsForTheEndOfACall) {
    std::setlocale(LC_TIME, "");
    const Planted dir("file=x d/");
    for (Row row :
         {Row{CALL(CopyFileW(TEXT("file"), TEXT("copy"), FALSE) == TRUE)},
          Row{CALL(read_and_write_streams())}, Row{CALL(read_and_write_a_file())},
          Row{CALL(find_all())}, Row{CALL(wait_for_a_conflict())},
          Row{CALL(NS_FileUtils::copyDirectory(TEXT("d"), TEXT("e"), 1, 0, 0) == 1)},
          Row{CALL(use_times())}, Row{CALL(MultiByteToWideChar(932, 0, "x", 1, text, 1) == 1)},
          Row{CALL(GetACP() != 0)}, Row{CALL(draw_random_bytes())},
          Row{CALL(MoveFileExW(TEXT("copy"), TEXT("moved"), 8) == TRUE)},
          Row{CALL(DeleteFileW(TEXT("moved")) == TRUE)}}) {
        SCOPED_TRACE(row.text);
        pthread_t thread;
        void *result = nullptr;
        ASSERT_EQ(pthread_create(&thread, nullptr, cancelled_thread, &row), 0);
        EXPECT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(row.done);
    }
    EXPECT_EQ(_flushall(), 3);
    EXPECT_TRUE(Opened(TEXT("file"), GENERIC_READ | GENERIC_WRITE, 0));  // no lock has stayed
}

}  // namespace
