// CUtilZorv against calls of the platform that take notes and give what a test asks for.

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

#include "ostrel/file/class.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/registry.h"
#include "support/test.h"
#include "support/trace_capture.h"

namespace {

struct Platform {
    LSTATUS open = 0, query = 0;
    DWORD type = REG_SZ;
    std::u16string value;
    DWORD bytes = 0;       // of the value, when not all of it
    int failingLoads = 0;  // before the one that succeeds
    std::string notes;
} g_platform;

std::string narrow(std::u16string_view text) {
    return {text.begin(), text.end()};
}

template <class... Values>
void note(const Values &...values) {
    std::ostringstream line;
    ((line << values << ' '), ...);
    g_platform.notes += line.str();
}

HINSTANCE const kModule = reinterpret_cast<HINSTANCE>(std::intptr_t{0x1000});

}  // namespace

HMODULE LoadLibraryExW(const WCHAR *name, HANDLE file, DWORD flags) noexcept {
    note("load", name != nullptr ? narrow(name) : "null", file == nullptr, flags);
    SetLastError(g_platform.failingLoads > 0 ? 126 - static_cast<DWORD>(g_platform.failingLoads)
                                             : GetLastError());
    return g_platform.failingLoads-- > 0 ? nullptr : kModule;
}
LSTATUS RegOpenKeyExW(HKEY key, const WCHAR *path, DWORD options, REGSAM access,
                      HKEY *result) noexcept {
    note("open", key == HKEY_LOCAL_MACHINE, narrow(path), options, access);
    *result = g_platform.open == 0 ? HKEY_USERS : nullptr;
    return g_platform.open;
}
LSTATUS RegQueryValueExW(HKEY key, const WCHAR *name, DWORD *reserved, DWORD *type, BYTE *data,
                         DWORD *size) noexcept {
    note("query", key == HKEY_USERS, narrow(name), reserved == nullptr, *size);
    *type = g_platform.type;
    const std::size_t bytes =
        g_platform.bytes != 0 ? g_platform.bytes - 1 : 2 * g_platform.value.size();
    if (g_platform.query == 0 && bytes <= *size) {
        std::memcpy(data, g_platform.value.data(), bytes);
    }
    *size = static_cast<DWORD>(bytes);
    return g_platform.query;
}
LSTATUS RegCloseKey(HKEY key) noexcept {
    note("close", key == HKEY_USERS);
    return 0;
}

namespace {

const std::string kOpen = "open 1 SOFTWARE\\Nimbara\\Larkspur\\service\\Information 0 1 ";
const std::string kQuery = "query 1 Local_Path 1 ";

Platform platform(LSTATUS open = 0, LSTATUS query = 0, DWORD type = REG_SZ) {
    Platform made;
    made.value = std::u16string(TEXT("D:\\agent\\")) + u'\0';
    made.open = open;
    made.query = query;
    made.type = type;
    return made;
}

TEST(ClassCallsReplaced, ReadsTheFolder) {
    const std::string read = kOpen + kQuery + "520 close 1 ";
    const std::string mismatch =
        "258 .\\class.cpp Fail query reg of ZORV main folder, or dtype mismatch, err=77\n";
    const std::tuple<const char *, Platform, int, std::string, std::string> cases[] = {
        {"read", platform(), 1, read,
         "258 .\\class.cpp VEKA folder under KORL is 'D:\\agent\\VEKA\\'\n"},
        {"no key", platform(2), 0, kOpen,
         "258 .\\class.cpp Fail open reg of ZORV main folder, err=77\n"},
        {"no value", platform(0, 234), 0, read, mismatch},
        {"wrong type", platform(0, 0, REG_EXPAND_SZ), 0, read, mismatch},
    };
    for (const auto &[name, given, result, notes, lines] : cases) {
        SCOPED_TRACE(name);
        g_platform = given;
        const TraceCapture capture;
        WCHAR folder[260] = {};
        SetLastError(77);
        EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(folder, 260), result);
        EXPECT_EQ(GetLastError(), 77u);
        EXPECT_EQ(g_platform.notes, notes);
        EXPECT_EQ(capture.Lines(), lines);
    }
    const TraceCapture capture;
    WCHAR folder[1] = {u'x'};
    EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(nullptr, 260) +
                  CUtilZorv::GetAbsVekaFolderInZorv(folder, 0),
              0);
    EXPECT_EQ(capture.Lines() + narrow({folder, 1}), "x");
}

TEST(ClassCallsReplaced, EndsTheFolderWithinItsBuffer) {
    const std::tuple<const char *, std::u16string, DWORD, int, std::string> cases[] = {
        {"no separator", u"D:\\agent|", 0, 260, "D:\\agentVEKA\\"},
        {"a NUL within", std::u16string(u"D:\\\0x|", 6), 0, 260, "D:\\VEKA\\"},
        {"nothing", u"", 0, 260, "VEKA\\"},
        {"an odd byte", u"xx", 1 + 1, 260, "VEKA\\"},
        {"an odd last byte", u"D:\\ab", 1 + 7, 260, "D:VEKA\\"},
        {"all of the buffer", u"D:\\a|", 0, 5, "D:\\a"},
        {"one too few", u"D:\\a|", 0, 8, "D:\\aVEK"},
        {"a single unit", u"|", 0, 1, ""},
    };
    for (const auto &[name, value, bytes, size, expected] : cases) {
        g_platform = platform();
        g_platform.value = value;
        g_platform.bytes = bytes;
        const std::unique_ptr<WCHAR[]> folder(new WCHAR[static_cast<std::size_t>(size)]);
        std::fill_n(folder.get(), size, u'y');
        EXPECT_EQ(CUtilZorv::GetAbsVekaFolderInZorv(folder.get(), size), 1);
        EXPECT_EQ(narrow(folder.get()), expected) << name;
        EXPECT_EQ(folder[static_cast<std::size_t>(size) - 1], u'\0');
    }
}

TEST(ClassCallsReplaced, JoinsFolderAndFile) {
    const std::tuple<const WCHAR *, const WCHAR *, int, std::string> cases[] = {
        {u"D:\\x\\", u"a.dll", 260, "D:\\x\\a.dll"}, {u"D:\\x\\", u"a.dll", 5, "D:\\x"},
        {u"D:\\x\\", u"a.dll", 8, "D:\\x\\a."},      {u"D:\\x\\", u"a.dll", 1, ""},
        {nullptr, u"a.dll", 260, "a.dll"},           {u"D:\\x\\", nullptr, 260, "D:\\x\\"},
    };
    for (const auto &[folder, file, size, expected] : cases) {
        const std::unique_ptr<WCHAR[]> out(new WCHAR[static_cast<std::size_t>(size)]);
        CUtilZorv::GenVekaModFilenameInZorv(out.get(), size, const_cast<WCHAR *>(file),
                                            const_cast<WCHAR *>(folder));
        EXPECT_EQ(narrow(out.get()), expected);
    }
    WCHAR kept[] = u"kept";
    CUtilZorv::GenVekaModFilenameInZorv(kept, 0, kept, kept);
    CUtilZorv::GenVekaModFilenameInZorv(nullptr, 4, kept, kept);
    EXPECT_EQ(narrow(kept), "kept");
}

TEST(ClassCallsReplaced, LoadsByNameAndThenByFolder) {
    using Load = HINSTANCE (*)(WCHAR *);
    const std::string zorv = "CUtilZorv::LoadLibExPlim ";
    for (const auto &[load, flag] : {std::pair<Load, char>(CUtilZorv::LoadLibExPlim, '8'),
                                     std::pair<Load, char>(CUtilZorv::LoadLibExAsDataPlim, '2')}) {
        const std::string first = std::string("load a.dll 1 ") + flag + ' ';
        const std::string second = std::string("load D:\\agent\\VEKA\\a.dll 1 ") + flag + ' ';
        const std::string read = kOpen + kQuery + "520 close 1 ";
        const std::string flags = std::string(", flag=0000000") + flag + ". ";
        const std::string failed =
            "258 .\\class.cpp " + zorv + "'a.dll'" + flags + "fail, try abs path of ZORV.\n";
        const std::string folder =
            "258 .\\class.cpp VEKA folder under KORL is 'D:\\agent\\VEKA\\'\n";
        const std::string full = "'D:\\agent\\VEKA\\a.dll'" + flags;
        const std::tuple<const char *, int, LSTATUS, std::string, std::string> cases[] = {
            {"at once", 0, 0, first, "258 .\\class.cpp " + zorv + "'a.dll'" + flags + "done.\n"},
            {"by folder", 1, 0, first + read + second,
             failed + folder + "258 .\\class.cpp " + zorv + full + "loaded under zorv path.\n"},
            {"no folder", 1, 2, first + kOpen,
             failed + "258 .\\class.cpp Fail open reg of ZORV main folder, err=125\n" +
                 "4097 .\\class.cpp " + zorv + "by LoadLibrary: 'a.dll' fail of find abs path.\n"},
            {"not at all", 2, 0, first + read + second,
             failed + folder + "4097 .\\class.cpp " + zorv + "fail of loadlib: " + full +
                 "(err:125)\n"},
        };
        for (const auto &[name, failing, open, notes, lines] : cases) {
            SCOPED_TRACE(name);
            g_platform = platform(open);
            g_platform.failingLoads = failing;
            const TraceCapture capture;
            WCHAR file[] = u"a.dll";
            EXPECT_EQ(load(file), failing == 2 || open != 0 ? nullptr : kModule);
            EXPECT_EQ(g_platform.notes, notes);
            EXPECT_EQ(capture.Lines(), lines);
        }
    }
}

TEST(ClassCallsReplaced, LoadsAFileOfAFolder) {
    WCHAR file[] = u"a.dll", folder[] = u"D:\\x\\", out[8];
    for (const int failing : {0, 1}) {
        g_platform = platform();
        g_platform.failingLoads = failing;
        const TraceCapture capture;
        EXPECT_EQ(CUtilZorv::LoadLibEx(file, folder, out, 8), failing != 0 ? nullptr : kModule);
        EXPECT_EQ(g_platform.notes, "load D:\\x\\a. 1 8 ");
        EXPECT_EQ(narrow(out), "D:\\x\\a.");
        EXPECT_EQ(
            capture.Lines(),
            failing != 0 ? "4097 .\\class.cpp LoadLib EX fail: 'D:\\x\\a.'. (err:125)\n" : "");
    }
    g_platform = platform();
    EXPECT_NE(CUtilZorv::LoadLibEx(file, folder, out, 0), nullptr);
    EXPECT_EQ(g_platform.notes, "load null 1 8 ");  // not what `out` holds
}

}  // namespace
