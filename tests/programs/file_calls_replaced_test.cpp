// The file family against calls of the platform that take notes and give what a test asks for.

#include <map>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

std::string g_notes;
std::map<std::string, DWORD> g_errors;  // of the calls that fail
DWORD g_left, g_written;

std::string told(const WCHAR *text) {
    return text != nullptr ? fs::path(text).string() : "null";
}

template <class Number>
std::string told(Number number) {
    return std::to_string(number);
}

template <class... Values>
BOOL note(const std::string &call, const Values &...values) {
    g_notes += call;
    ((g_notes += ' ' + told(values)), ...);
    g_notes += '\n';
    const auto error = g_errors.find(call);
    if (error != g_errors.end()) {
        SetLastError(error->second);
    }
    return error == g_errors.end();
}

std::string notes() {
    return std::exchange(g_notes, {});
}

}  // namespace

#define NOTED(Call, Parameters, ...)     \
    BOOL Call Parameters noexcept {      \
        return note(#Call, __VA_ARGS__); \
    }
NOTED(MoveFileExW, (const WCHAR *from, const WCHAR *to, DWORD flags), from, to, flags)
NOTED(MoveFileW, (const WCHAR *from, const WCHAR *to), from, to)
NOTED(CopyFileW, (const WCHAR *from, const WCHAR *to, BOOL failIfExists), from, to, failIfExists)
NOTED(DeleteFileW, (const WCHAR *path), path)
NOTED(RemoveDirectoryW, (const WCHAR *path), path)

DWORD GetTickCount() noexcept {
    return 4'294'967'295;
}
BOOL ReadFile(HANDLE, LPVOID, DWORD count, DWORD *done, LPVOID) noexcept {
    *done = std::min(count, g_left);
    g_left -= *done;
    return note("ReadFile", count);
}
BOOL WriteFile(HANDLE, LPCVOID, DWORD count, DWORD *done, LPVOID) noexcept {
    *done = std::min(count, g_written);
    EXPECT_FALSE(Opened(TEXT("s"), GENERIC_WRITE));  // by nobody else, while the copy goes on
    EXPECT_FALSE(Opened(TEXT("t"), GENERIC_READ));
    return note("WriteFile", count);
}

namespace {

using namespace NS_FileUtils;

TEST(FileCallsReplaced, MoveByHandWhereTheCallIsMissing) {
    const std::tuple<const WCHAR *, const WCHAR *, DWORD, const char *, const char *, bool>
        cases[] = {
            {u"c:a", u"C:b", 3, "DeleteFileW", "DeleteFileW C:b\nMoveFileW c:a C:b\n", true},
            {u"\\a", u"b", 2, "MoveFileW", "MoveFileW \\a b\n", false},
            {u"c:a", u"b", 1, "", "", false},
            {u"c:a", u"d:b", 2, "", "CopyFileW c:a d:b 1\nDeleteFileW c:a\n", true},
            {u"c:a", u"d:b", 3, "DeleteFileW", "CopyFileW c:a d:b 0\nDeleteFileW c:a\n", false},
            {u"c:a", u"d:b", 3, "CopyFileW", "CopyFileW c:a d:b 0\n", false}};
    for (const auto &[source, target, flags, failing, by_hand, result] : cases) {
        g_errors = {{failing, ERROR_ACCESS_DENIED}, {"MoveFileExW", ERROR_CALL_NOT_IMPLEMENTED}};
        const std::string call = told(source) + ' ' + told(target) + ' ' + told(flags) + '\n';
        EXPECT_EQ(moveFileEx(source, target, flags, 1), result) << call << failing;
        EXPECT_EQ(notes(), "MoveFileExW " + call + by_hand) << failing;
    }
}

TEST(FileCallsReplaced, CopyInBlocksUntilAReadOrAWriteEndsIt) {
    const std::tuple<DWORD, DWORD, const char *, const char *, bool> cases[] = {
        {16383, 99999, "", "ReadFile 16383\nWriteFile 16383\nReadFile 16383\n", true},
        {99999, 99999, "ReadFile", "ReadFile 16383\n", true},
        {99999, 16382, "", "ReadFile 16383\nWriteFile 16383\n", false},
        {99999, 99999, "WriteFile", "ReadFile 16383\nWriteFile 16383\n", false}};
    for (const auto &[left, written, failing, calls, result] : cases) {
        SCOPED_TRACE(testing::Message() << left << ' ' << written << ' ' << failing);
        const Planted dir("s=");
        g_errors = {{failing, ERROR_DISK_FULL}};
        std::tie(g_left, g_written) = std::tie(left, written);
        EXPECT_EQ(copyFileEx(TEXT("s"), TEXT("t"), false), result);
        EXPECT_EQ(notes(), calls);
    }
}

TEST(FileCallsReplaced, MoveAsideOnceAndForgiveWhatNobodyAsksFor) {
    const Planted dir("s/f=x t/f.x.dll/in=");  // which cannot be opened, before and after
    g_errors = {{"RemoveDirectoryW", ERROR_DIR_NOT_EMPTY}};
    EXPECT_FALSE(copyFileEx(TEXT("s\\f"), TEXT("t\\f.x.dll"), true));
    EXPECT_EQ(notes(), "MoveFileW t\\f.x.dll t\\f.x-1.dll\n");
    EXPECT_EQ(moveDirectory(TEXT("s"), TEXT("t"), 1, 0), 1);
    EXPECT_EQ(notes(), "MoveFileExW s\\f t\\f 3\nRemoveDirectoryW s\n");
    g_errors = {{"MoveFileExW", ERROR_ACCESS_DENIED}};
    deleteFilesUntilReboot({TEXT("c"), TEXT("d")});
    EXPECT_EQ(notes(), "MoveFileExW c null 4\nMoveFileExW d null 4\n");
}

}  // namespace
