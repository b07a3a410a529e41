// CUtilZorv against calls of the platform that take notes and give what a test asks for.

#include <algorithm>

#include "ostrel/file/class.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/registry.h"
#include "support/test.h"
#include "support/trace_capture.h"

namespace {

struct {
    LSTATUS open = 0, query = 0;
    DWORD type = REG_SZ;
    std::string value;      // bytes
    int failing_loads = 0;  // before the one that succeeds
    std::string notes;
} g_platform;

std::string narrow(std::u16string_view text) {
    return {text.begin(), text.end()};
}

std::string bytes_of(std::u16string_view text) {
    return {reinterpret_cast<const char *>(text.data()), 2 * text.size()};
}

HINSTANCE const kModule = reinterpret_cast<HINSTANCE>(std::intptr_t{0x1000});

}  // namespace

HMODULE LoadLibraryExW(const WCHAR *name, HANDLE file, DWORD flags) noexcept {
    EXPECT_EQ(file, nullptr);
    g_platform.notes += "load " + narrow(name) + ' ' + std::to_string(flags) + ' ';
    SetLastError(g_platform.failing_loads > 0 ? 126 - static_cast<DWORD>(g_platform.failing_loads)
                                              : GetLastError());
    return g_platform.failing_loads-- > 0 ? nullptr : kModule;
}
LSTATUS RegOpenKeyExW(HKEY key, const WCHAR *path, DWORD, REGSAM access, HKEY *result) noexcept {
    EXPECT_TRUE(key == HKEY_LOCAL_MACHINE && access == KEY_QUERY_VALUE);
    EXPECT_EQ(narrow(path), "SOFTWARE\\Nimbara\\Larkspur\\service\\Information");
    *result = g_platform.open == 0 ? HKEY_USERS : nullptr;
    return g_platform.open;
}
LSTATUS RegQueryValueExW(HKEY, const WCHAR *name, DWORD *, DWORD *type, BYTE *data,
                         DWORD *size) noexcept {
    g_platform.notes += "query " + narrow(name) + ' ' + std::to_string(*size) + ' ';
    *type = g_platform.type;
    std::copy_n(g_platform.value.data(), std::min<std::size_t>(*size, g_platform.value.size()),
                data);
    *size = static_cast<DWORD>(g_platform.value.size());
    return g_platform.query;
}
LSTATUS RegCloseKey(HKEY key) noexcept {
    g_platform.notes += key == HKEY_USERS ? "close " : "";
    return 0;
}

namespace {

TEST(ClassCallsReplaced, EndsTheFolderWithinItsBuffer) {
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        {bytes_of(u"D:\\agent|"), 260, "D:\\agentVEKA\\"},
        {"", 260, "VEKA\\"},
        {"x", 260, "VEKA\\"},
        {bytes_of(u"D:\\") + 'a', 260, "D:VEKA\\"},
        {bytes_of(u"D:\\a|"), 5, "D:\\a"},
        {bytes_of(u"D:\\a|"), 8, "D:\\aVEK"},
        {bytes_of(u"|"), 1, ""},
    };
    for (const auto &[value, size, expected] : cases) {
        g_platform = {0, 0, REG_SZ, value, 0, ""};
        std::vector<WCHAR> folder(size, u'y');
        EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(folder.data(), static_cast<int>(size)), 1);
        EXPECT_EQ(narrow(folder.data()), expected);
    }
    EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(nullptr, 260), 0);
}

TEST(ClassCallsReplaced, LoadsAFileOfAFolder) {
    WCHAR folder[] = u"D:\\x\\", file[] = u"a.dll";
    const std::tuple<WCHAR *, int, int, std::string> cases[] = {{folder, 260, 0, "D:\\x\\a.dll"},
                                                                {folder, 5, 0, "D:\\x"},
                                                                {folder, 8, 1, "D:\\x\\a."},
                                                                {folder, 1, 0, ""},
                                                                {nullptr, 260, 0, "a.dll"}};
    for (const auto &[path, size, failing, expected] : cases) {
        g_platform = {0, 0, 0, "", failing, ""};
        const TraceCapture capture;
        std::vector<WCHAR> out(static_cast<std::size_t>(size));
        EXPECT_EQ(CUtilZorv::LoadLibEx(file, path, out.data(), size),
                  failing != 0 ? nullptr : kModule);
        EXPECT_EQ(g_platform.notes, "load " + expected + " 8 ");
        EXPECT_EQ(
            capture.Lines(),
            failing == 0 ? "" : "4097 .\\class.cpp LoadLib EX fail: 'D:\\x\\a.'. (err:125)\n");
    }
    CUtilZorv::GenVekaModFilenameInZorv(file, 0, folder, folder);
    EXPECT_EQ(narrow(file), "a.dll");
}

TEST(ClassCallsReplaced, LoadsByNameAndThenByFolder) {
    using Load = HINSTANCE (*)(WCHAR *);
    const std::string trace = "258 .\\class.cpp ", zorv = "CUtilZorv::LoadLibExPlim ";
    for (const auto &[load, flag] :
         {std::pair<Load, std::string>(CUtilZorv::LoadLibExPlim, "8"),
          std::pair<Load, std::string>(CUtilZorv::LoadLibExAsDataPlim, "2")}) {
        const std::string first = "load a.dll " + flag + ' ';
        const std::string read = first + "query Local_Path 520 close ";
        const std::string both = read + "load D:\\agent\\VEKA\\a.dll " + flag + ' ';
        const std::string flags = "', flag=0000000" + flag + ". ";
        const std::string failed =
            trace + zorv + "'a.dll" + flags + "fail, try abs path of ZORV.\n" + trace;
        const std::string folder = failed + "VEKA folder under KORL is 'D:\\agent\\VEKA\\'\n";
        const std::string full = "'D:\\agent\\VEKA\\a.dll" + flags;
        const std::string end =
            "4097 .\\class.cpp " + zorv + "by LoadLibrary: 'a.dll' fail of find abs path.\n";
        const std::string mismatch =
            failed + "Fail query reg of ZORV main folder, or dtype mismatch, err=125\n" + end;
        const std::tuple<int, LSTATUS, LSTATUS, DWORD, std::string, std::string> cases[] = {
            {0, 0, 0, 1, first, trace + zorv + "'a.dll" + flags + "done.\n"},
            {1, 0, 0, 1, both, folder + trace + zorv + full + "loaded under zorv path.\n"},
            {1, 2, 0, 1, first, failed + "Fail open reg of ZORV main folder, err=125\n" + end},
            {1, 0, 234, 1, read, mismatch},
            {1, 0, 0, REG_EXPAND_SZ, read, mismatch},
            {2, 0, 0, 1, both,
             folder + "4097 .\\class.cpp " + zorv + "fail of loadlib: " + full + "(err:125)\n"},
        };
        for (const auto &[failing, open, query, type, notes, lines] : cases) {
            g_platform = {open,    query, type, bytes_of(std::u16string_view(u"D:\\agent\\", 10)),
                          failing, ""};
            const TraceCapture capture;
            WCHAR file[] = u"a.dll";
            const bool is_loaded = failing == 0 || (failing == 1 && notes == both);
            EXPECT_EQ(load(file), is_loaded ? kModule : nullptr);
            EXPECT_EQ(g_platform.notes, notes);
            EXPECT_EQ(capture.Lines(), lines);
        }
    }
}

}  // namespace
