// The file family against calls of the platform that take notes and give what a test asks for.

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/volume.h"
#include "support/file_calls.h"
#include "support/temp_dir.h"

namespace {

std::string g_notes;
std::map<std::string, DWORD> g_errors;  // of the calls that fail
DWORD g_platform, g_drive, g_left, g_written, g_sectors, g_bytes, g_free;

std::string told(const WCHAR *text) {
    return text != nullptr ? std::filesystem::path(text).string() : "null";
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
BOOL GetVersionExW(OSVERSIONINFOW *version) noexcept {
    version->dwPlatformId = g_platform;
    return note("GetVersionExW", version->dwOSVersionInfoSize);
}
DWORD GetDriveTypeW(const WCHAR *root) noexcept {
    note("GetDriveTypeW", root);
    return g_drive;
}
BOOL GetDiskFreeSpaceW(const WCHAR *root, DWORD *sectors, DWORD *bytes, DWORD *free,
                       DWORD *) noexcept {
    std::tie(*sectors, *bytes, *free) = std::tie(g_sectors, g_bytes, g_free);
    return note("GetDiskFreeSpaceW", root);
}
DWORD GetModuleFileNameW(HMODULE, WCHAR *buffer, DWORD room) noexcept {
    *std::fill_n(buffer, room - 1, u'x') = 0;
    return room;
}

namespace {

using namespace NS_FileUtils;

TEST(ReplacedCalls, MoveByHandWhereTheCallIsMissing) {
    const struct {
        const WCHAR *source, *target;
        DWORD flags;
        const char *failing, *notes;
        bool result;
    } cases[] = {
        {TEXT("c:\\a"), TEXT("C:\\b"), 0, "", "MoveFileW c:\\a C:\\b\n", true},
        {TEXT("c:\\a"), TEXT("C:\\b"), 3, "DeleteFileW",
         "DeleteFileW C:\\b\nMoveFileW c:\\a C:\\b\n", true},
        {TEXT("\\a"), TEXT("b"), 2, "MoveFileW", "MoveFileW \\a b\n", false},
        {TEXT("c:a"), TEXT("b"), 1, "", "", false},
        {TEXT("c:a"), TEXT("d:b"), 2, "", "CopyFileW c:a d:b 1\nDeleteFileW c:a\n", true},
        {TEXT("c:a"), TEXT("d:b"), 3, "DeleteFileW", "CopyFileW c:a d:b 0\nDeleteFileW c:a\n",
         false},
        {TEXT("c:a"), TEXT("d:b"), 3, "CopyFileW", "CopyFileW c:a d:b 0\n", false},
    };
    for (const auto &c : cases) {
        g_errors = {{c.failing, ERROR_ACCESS_DENIED}, {"MoveFileExW", ERROR_CALL_NOT_IMPLEMENTED}};
        EXPECT_EQ(moveFileEx(c.source, c.target, c.flags, 1), c.result);
        EXPECT_EQ(notes(), "MoveFileExW " + told(c.source) + ' ' + told(c.target) + ' ' +
                               told(c.flags) + '\n' + c.notes);
    }
}

TEST(ReplacedCalls, CopyInBlocksUntilAReadOrAWriteEndsIt) {
    const struct {
        DWORD left, written;
        const char *failing, *notes;
        bool result;
    } cases[] = {
        {16383, 99999, "", "ReadFile 16383\nWriteFile 16383\nReadFile 16383\n", true},
        {99999, 99999, "ReadFile", "ReadFile 16383\n", true},
        {99999, 16382, "", "ReadFile 16383\nWriteFile 16383\n", false},
        {99999, 99999, "WriteFile", "ReadFile 16383\nWriteFile 16383\n", false},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        dir.Write("s", "");
        g_errors = {{c.failing, ERROR_DISK_FULL}};
        std::tie(g_left, g_written) = std::tie(c.left, c.written);
        EXPECT_EQ(copyFileEx(TEXT("s"), TEXT("t"), false), c.result);
        EXPECT_EQ(notes(), c.notes);
    }
}

TEST(ReplacedCalls, MoveAsideOnceAndForgiveWhatNobodyAsksFor) {
    const TempDir dir;
    dir.Write("s/f", "x");
    dir.Write("t/f.x.dll/in", "");  // cannot be opened, before and after
    g_errors = {{"RemoveDirectoryW", ERROR_DIR_NOT_EMPTY}};
    EXPECT_FALSE(copyFileEx(TEXT("s\\f"), TEXT("t\\f.x.dll"), true));
    EXPECT_EQ(notes(), "MoveFileW t\\f.x.dll t\\f.x-1.dll\n");
    std::u16string roundabout = u"t\\";
    while (roundabout.size() < 256) {
        roundabout += u".\\";  // too long to be cut into pieces, not too long to be opened
    }
    EXPECT_FALSE(copyFileEx(TEXT("s\\f"), (roundabout + u"..").c_str(), true));
    EXPECT_EQ(notes(), "");
    EXPECT_EQ(moveDirectory(TEXT("s"), TEXT("t"), 1, 0), 1);
    EXPECT_EQ(notes(), "MoveFileExW s\\f t\\f 3\nRemoveDirectoryW s\n");
    g_errors = {{"MoveFileExW", ERROR_ACCESS_DENIED}};
    for (g_platform = 1; g_platform <= 2; ++g_platform) {
        deleteFilesUntilReboot({TEXT("a"), TEXT("b")});
        EXPECT_EQ(notes(), g_platform == 1 ? "GetVersionExW 276\n"
                                           : "GetVersionExW 276\nMoveFileExW a null 4\n"
                                             "MoveFileExW b null 4\n");
    }
}

TEST(ReplacedCalls, TellDrivesRoomAndPrograms) {
    for (g_drive = DRIVE_UNKNOWN; g_drive <= DRIVE_RAMDISK; ++g_drive) {
        EXPECT_EQ(isDiskExist(TEXT("d:\\x")),
                  g_drive != DRIVE_NO_ROOT_DIR && g_drive != DRIVE_CDROM);
        EXPECT_EQ(notes(), "GetDriveTypeW d:\\\n");
    }
    g_errors.clear();
    constexpr DWORD kMost = 4'294'967'295;
    const struct {
        DWORD sectors, bytes, free, required;
        bool result;
    } cases[] = {
        {3, 100, 2, 599, true}, {3, 100, 2, 600, false}, {8, 512, 1'310'720, 1, true},
        {1, 0, 7, 0, false},    {1, 512, 0, 0, false},   {kMost, kMost, 1, kMost, true},
    };
    for (const auto &c : cases) {
        std::tie(g_sectors, g_bytes, g_free) = std::tie(c.sectors, c.bytes, c.free);
        EXPECT_EQ(isEnoughFreeDiskSpace(u'z', c.required), c.result) << c.required;
        EXPECT_EQ(notes(), "GetDiskFreeSpaceW z:\\\n");
    }
    g_errors = {{"GetDiskFreeSpaceW", ERROR_PATH_NOT_FOUND}};
    EXPECT_FALSE(isEnoughFreeDiskSpace(u'z', 0));
    EXPECT_EQ(getAppFullPathName(nullptr), TEXT(""));  // too long, never cut
}

}  // namespace
