#include "ostrel/platform/find.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "support/file_calls.h"

namespace {

struct Entry {
    WIN32_FIND_DATAW data;
    _wfinddata64i32_t runtime;
};
using Names = std::vector<std::u16string>;

// What both forms of a search find, in their order; they must agree.
std::vector<Entry> entries_of(const std::u16string &path) {
    std::vector<Entry> entries;
    Entry entry;
    const HANDLE search = FindFirstFileW(path.c_str(), &entry.data);
    const std::intptr_t other = _wfindfirst64i32(path.c_str(), &entry.runtime);
    EXPECT_EQ(search == INVALID_HANDLE_VALUE, other == -1);
    for (bool more = other != -1; more;) {
        EXPECT_EQ(std::u16string(entry.data.cFileName), entry.runtime.name);
        entries.push_back(entry);
        more = FindNextFileW(search, &entry.data);
        EXPECT_EQ(_wfindnext64i32(other, &entry.runtime), more ? 0 : -1);
    }
    if (other != -1) {
        EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_TRUE(FindClose(search) && _findclose(other) == 0);
    }
    return entries;
}

Names found(const std::u16string &path) {
    Names names;
    for (const Entry &entry : entries_of(path)) {
        names.push_back(entry.data.cFileName);
    }
    return names;
}

TEST(Find, TakesThePatternsOfAPath) {
    const Planted dir("a.txt= b.TXT= noDot= sub/x*y= sub/xay= sub/q.= odd.= x?.=");
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "sub").c_str(), 1);
    const std::pair<const WCHAR *, Names> cases[] = {
        {TEXT("*.txt"), {u"a.txt", u"b.TXT"}},
        {TEXT("./*."), {u".", u"..", u"noDot", u"sub"}},
        {TEXT("SUB\\*"), {}},
        {TEXT("sub\xDC5C*"), {}},  // no separator
        {TEXT("sub\xDC2F*"), {}},  // nothing at all
        {TEXT("sub\\."), {u"."}},
        {TEXT("sub\\x?y."), {u"x*y", u"xay"}},
        {TEXT("s?b\\xay"), {}},
        {TEXT("odd."), {u"odd."}},
        {TEXT("x?."), {u"x?."}},                  // which its own pattern does not match
        {TEXT("q:*"), {u"q.", u"x*y", u"xay"}}};  // a root has no dots
    for (const auto &[path, names] : cases) {
        Names sorted = found(path);
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, names) << PrintToString(path);
    }
    unsetenv("OSTREL_DRIVE_Q");
    const Names all = found(TEXT("sub\\*")), root = found(TEXT("C:\\etc\\..\\*"));
    EXPECT_EQ(Names(all.begin(), all.begin() + 2), (Names{u".", u".."}));
    EXPECT_EQ(std::count(root.begin(), root.end(), u"tmp"), 1);  // the host's root by another way
    EXPECT_EQ(std::count(root.begin(), root.end(), u".."), 0);
}

TEST(Find, TellsWhyNothingIsFound) {
    const Planted dir("file= sub/");
    const std::u16string longest(259, u'a');
    const std::pair<DWORD, Names> cases[] = {
        {ERROR_FILE_NOT_FOUND, {u"none", u"*.none", u"sub\\", u"C:"}},
        {ERROR_PATH_NOT_FOUND, {u"none\\*", u"none\\x", u"file\\sub\\*", u"Q:\\*", u""}},
        {ERROR_DIRECTORY, {u"file\\*", u"file\\x"}},
        {ERROR_FILENAME_EXCED_RANGE, {longest + u"*", longest}}};
    for (const auto &[code, paths] : cases) {
        for (const std::u16string &path : paths) {
            SCOPED_TRACE(PrintToString(path));
            SetLastError(0);
            errno = 0;
            EXPECT_EQ(found(path), Names());
            EXPECT_EQ(GetLastError(), code);
            EXPECT_EQ(errno, code == ERROR_FILENAME_EXCED_RANGE ? ENAMETOOLONG : ENOENT);
        }
    }
}

TEST(Find, TellsTheFactsOfEveryKindOfEntry) {
    const Planted dir("file=12345 kept= sub/ toFile->file toSub->sub toNone->none");
    ASSERT_EQ(mkfifo("pipe", 0400) | truncate("kept", 0x1'2345'6789), 0);
    set(TEXT("kept"), kReadOnly | kHidden);
    const timespec times[] = {{1'000'000'000, 123'456'789}, {-1, 999'999'900}};
    ASSERT_EQ(utimensat(AT_FDCWD, "file", times, 0), 0);
    constexpr std::int64_t kTo1970 = 116'444'736'000'000'000;
    constexpr DWORD kLink = FILE_ATTRIBUTE_REPARSE_POINT;
    const std::map<std::u16string, std::pair<DWORD, std::uint64_t>> facts = {
        {u".", {kDirectory, 0}},
        {u"..", {kDirectory, 0}},
        {u"file", {kNormal, 5}},
        {u"kept", {kReadOnly | kHidden, 0x1'2345'6789}},
        {u"pipe", {kNormal, 0}},
        {u"sub", {kDirectory, 0}},
        {u"toFile", {kLink, 5}},
        {u"toNone", {kLink, 0}},
        {u"toSub", {kDirectory | kLink, 0}}};
    for (const auto &[data, runtime] : entries_of(u"*")) {
        SCOPED_TRACE(PrintToString(data.cFileName));
        const auto [attributes, size] = facts.at(data.cFileName);
        EXPECT_EQ(data.dwFileAttributes, attributes);
        EXPECT_EQ(runtime.attrib, attributes & ~kNormal);
        EXPECT_EQ(std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow, size);
        EXPECT_EQ(runtime.size, static_cast<std::uint32_t>(size));
    }
    const auto [data, runtime] = entries_of(u"toFile").at(0);  // alone
    EXPECT_EQ(data.dwFileAttributes, kLink);
    EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, static_cast<DWORD>(kTo1970 - 1));
    EXPECT_EQ(data.ftLastAccessTime.dwLowDateTime,
              static_cast<DWORD>(kTo1970 + 10'000'000'001'234'567));
    EXPECT_EQ(runtime.time_write, -1);
    EXPECT_EQ(runtime.time_access, 1'000'000'000);
}

void write_files(int count) {
    for (int i = 0; i < count; ++i) {
        plant("many/f" + std::to_string(i) + '=');
    }
}

TEST(Find, KeepsUpWithADirectoryThatChanges) {
    const TempDir dir;
    write_files(3000);  // several reads of the host
    EXPECT_EQ(found(TEXT("many\\f*")).size(), 3000u);
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(TEXT("many\\f*"), &data);
    fs::remove_all("many");
    EXPECT_EQ(error_of(FindNextFileW(search, &data)), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(error_of(FindNextFileW(search, &data)), ERROR_INVALID_HANDLE);
}

TEST(Find, GivesEachEntryToOneOfTheThreadsOfASearch) {
    const TempDir dir;
    write_files(500);
    WIN32_FIND_DATAW first;
    const HANDLE search = FindFirstFileW(TEXT("many\\f*"), &first);
    std::atomic<int> found{1};
    const auto take = [&] {
        for (WIN32_FIND_DATAW data; FindNextFileW(search, &data);) {
            ++found;
        }
    };
    std::thread other(take);
    take();
    other.join();
    EXPECT_EQ(found, 500);
    FindClose(search);
}

}  // namespace
