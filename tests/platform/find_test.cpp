#include "ostrel/platform/find.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <tuple>
#include <vector>

#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::u16string>;

// What both forms of a search find, in their order; they must agree.
Names found(const std::u16string &path) {
    Names names, runtime;
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(path.c_str(), &data);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            names.push_back(data.cFileName);
        } while (FindNextFileW(search, &data));
        EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
        EXPECT_TRUE(FindClose(search));
    }
    _wfinddata64i32_t entry;
    const std::intptr_t other = _wfindfirst64i32(path.c_str(), &entry);
    if (other != -1) {
        do {
            runtime.push_back(entry.name);
        } while (_wfindnext64i32(other, &entry) == 0);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(_findclose(other), 0);
    }
    EXPECT_EQ(names, runtime);
    return names;
}

Names sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Find, TakesThePatternsOfAPath) {
    const TempDir dir;
    plant("a.txt= b.TXT= noDot= sub/x*y= sub/xay= sub/q.= odd.=");
    const std::pair<const WCHAR *, Names> cases[] = {
        {TEXT("*.txt"), {u"a.txt", u"b.TXT"}},
        {TEXT("./*."), {u".", u"..", u"noDot", u"sub"}},
        {TEXT("SUB\\*"), {}},
        {TEXT("NODOT"), {}},
        {TEXT("sub\\."), {u"."}},
        {TEXT("sub/.."), {u".."}},
        {TEXT("sub\\x?y."), {u"x*y", u"xay"}},
        {TEXT("s?b\\xay"), {}},
        {TEXT("odd."), {u"odd."}},
        {TEXT("?."), {u"."}}};
    for (const auto &[path, names] : cases) {
        EXPECT_EQ(sorted(found(path)), names) << testing::PrintToString(path);
    }
    const Names all = found(TEXT("sub\\*"));
    EXPECT_EQ(Names(all.begin(), all.begin() + 2), (Names{u".", u".."}));
    dir.Write("x?.", "");  // which its own pattern does not match
    EXPECT_EQ(found(TEXT("x?.")), (Names{u"x?."}));
}

TEST(Find, TellsWhyNothingIsFound) {
    const TempDir dir;
    plant("file= sub/");
    const std::u16string longest(259, u'a');
    const std::pair<DWORD, Names> cases[] = {
        {ERROR_FILE_NOT_FOUND, {u"none", u"*.none", u"sub\\", u"C:"}},
        {ERROR_PATH_NOT_FOUND, {u"none\\*", u"none\\x", u"file\\sub\\*", u"Q:\\*", u""}},
        {ERROR_DIRECTORY, {u"file\\*", u"file\\x"}},
        {ERROR_FILENAME_EXCED_RANGE, {longest + u"*", longest}},
    };
    for (const auto &[code, paths] : cases) {
        for (const std::u16string &path : paths) {
            WIN32_FIND_DATAW data = {};
            _wfinddata64i32_t entry = {};
            EXPECT_EQ(FindFirstFileW(path.c_str(), &data), INVALID_HANDLE_VALUE);
            EXPECT_EQ(GetLastError(), code) << testing::PrintToString(path);
            EXPECT_EQ(_wfindfirst64i32(path.c_str(), &entry), -1);
            EXPECT_EQ(errno, code == ERROR_FILENAME_EXCED_RANGE ? ENAMETOOLONG : ENOENT);
            EXPECT_EQ(data.cFileName[0] + entry.name[0], 0);
        }
    }
}

TEST(Find, TellsTheFactsOfEveryKindOfEntry) {
    const TempDir dir;
    plant("file=12345 kept= sub/ toFile->file toSub->sub toNone->none");
    ASSERT_EQ(mkfifo("pipe", 0400) | truncate("kept", 0x1'2345'6789), 0);
    set(TEXT("kept"), kReadOnly | kHidden);
    const timespec times[] = {{1'000'000'000, 123'456'789}, {-1, 999'999'900}};
    ASSERT_EQ(utimensat(AT_FDCWD, "file", times, 0), 0);
    constexpr std::int64_t kTo1970 = 116'444'736'000'000'000;
    constexpr DWORD kLink = FILE_ATTRIBUTE_REPARSE_POINT;
    const std::tuple<std::u16string, DWORD, std::uint64_t> cases[] = {
        {u".", kDirectory, 0},
        {u"..", kDirectory, 0},
        {u"file", kNormal, 5},
        {u"kept", kReadOnly | kHidden, 0x1'2345'6789},
        {u"pipe", kNormal, 0},
        {u"sub", kDirectory, 0},
        {u"toFile", kLink, 5},
        {u"toNone", kLink, 0},
        {u"toSub", kDirectory | kLink, 0}};
    for (const auto &[name, attributes, size] : cases) {
        for (const std::u16string &path : {std::u16string(u"*"), name}) {  // among others; alone
            WIN32_FIND_DATAW data;
            _wfinddata64i32_t entry;
            const HANDLE search = FindFirstFileW(path.c_str(), &data);
            while (data.cFileName != name && FindNextFileW(search, &data)) {
            }
            const std::intptr_t runtime = _wfindfirst64i32(path.c_str(), &entry);
            while (entry.name != name && _wfindnext64i32(runtime, &entry) == 0) {
            }
            EXPECT_TRUE(FindClose(search) && _findclose(runtime) == 0);
            EXPECT_EQ(data.dwFileAttributes, attributes) << testing::PrintToString(name);
            EXPECT_EQ(entry.attrib, attributes & ~kNormal);
            EXPECT_EQ(std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow, size);
            EXPECT_EQ(entry.size, static_cast<std::uint32_t>(size));
            if (size == 5) {
                EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, static_cast<DWORD>(kTo1970 - 1));
                EXPECT_EQ(data.ftLastAccessTime.dwLowDateTime,
                          static_cast<DWORD>(kTo1970 + 10'000'000'001'234'567));
                EXPECT_EQ(entry.time_write, -1);
                EXPECT_EQ(entry.time_access, 1'000'000'000);
            }
        }
    }
}

TEST(Find, ARootHasNoDots) {
    const TempDir dir;
    plant("x= sub/");
    setenv("OSTREL_DRIVE_Q", dir.Path().c_str(), 1);
    EXPECT_EQ(sorted(found(TEXT("q:*"))), (Names{u"sub", u"x"}));
    EXPECT_EQ(sorted(found(TEXT("Q:\\sub\\*"))), (Names{u".", u".."}));
    unsetenv("OSTREL_DRIVE_Q");
    const Names names = found(TEXT("C:\\etc\\..\\*"));  // the host's root by another way
    EXPECT_EQ(std::count(names.begin(), names.end(), u"tmp"), 1);
    EXPECT_EQ(std::count(names.begin(), names.end(), u".."), 0);
}

// Any bytes but NUL and the separator make a name of the host.
TEST(Find, EveryNameOfTheHostIsWithinReach) {
    const TempDir dir;
    std::mt19937 random(7);
    std::set<std::string> names;
    fs::create_directory("sub");
    constexpr char kBytes[] = "a.?\\\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\xFF";
    while (names.size() < 500) {
        std::string name;
        for (auto length = 1 + random() % 8; name.size() < length;) {
            name += kBytes[random() % (sizeof kBytes - 1)];
        }
        if (name != "." && name != "..") {
            names.insert(name);
            std::ofstream("sub/" + name).put('x');
        }
    }
    const Names told = found(TEXT("sub\\*"));
    EXPECT_EQ(std::set(told.begin(), told.end()).size(), names.size() + 2);
    for (const std::u16string &name : told) {
        const std::u16string path = u"sub\\" + name;
        if (name != u"." && name != u"..") {
            EXPECT_EQ(GetFileAttributesW(path.c_str()), kNormal);
            EXPECT_EQ(_wremove(path.c_str()), 0) << testing::PrintToString(name);
        }
    }
    EXPECT_TRUE(fs::is_empty("sub"));
    EXPECT_EQ(found(TEXT("sub\xDC5C*")), Names());  // no separator
    EXPECT_EQ(found(TEXT("sub\xDC2F*")), Names());  // nothing at all
}

TEST(Find, KeepsUpWithADirectoryThatChanges) {
    const TempDir dir;
    constexpr int kFiles = 3000;  // several reads of the host
    for (int i = 0; i < kFiles; ++i) {
        dir.Write("many/f" + std::to_string(i), "");
    }
    EXPECT_EQ(found(TEXT("many\\f*")).size(), std::size_t{kFiles});
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(TEXT("many\\f*"), &data);
    std::set<std::u16string> seen = {data.cFileName};
    for (int i = 0; i < kFiles; i += 2) {
        fs::remove("many/f" + std::to_string(i));
    }
    while (seen.size() < 100 && FindNextFileW(search, &data)) {
        ASSERT_TRUE(fs::exists(u"many/" + std::u16string(data.cFileName)));
        ASSERT_TRUE(seen.insert(data.cFileName).second);
    }
    fs::remove_all("many");
    EXPECT_EQ(error_of(FindNextFileW(search, &data)), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(search));
}

TEST(Find, ASearchBelongsToItsFamilyUntilItIsClosed) {
    const TempDir dir;
    WIN32_FIND_DATAW data;
    _wfinddata64i32_t entry;
    const HANDLE search = FindFirstFileW(TEXT("*"), &data);
    const auto number = reinterpret_cast<std::intptr_t>(search);
    EXPECT_FALSE(CloseHandle(search));
    EXPECT_EQ(_findclose(number) + _wfindnext64i32(number, &entry), -2);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(error_of(FindNextFileW(search, &data)), ERROR_INVALID_HANDLE);
}

}  // namespace
