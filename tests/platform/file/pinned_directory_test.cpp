// Calls by path below a directory that is kept open.

#include "ostrel/platform/pinned_directory.h"

#include "ostrel/platform/find.h"
#include "support/file_calls.h"

namespace {

using ostrel_platform::PinnedDirectory;

DWORD found_error(const WCHAR *path) {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(path, &data);
    return search != INVALID_HANDLE_VALUE ? error_of(FindClose(search)) : GetLastError();
}

DWORD attribute_error(const WCHAR *path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES ? 0 : GetLastError();
}

TEST(PinnedDirectory, CallsWorkInTheDirectoryThatWasOpened) {
    const struct {
        const char *text;
        DWORD (*call)();
        const char *away = "e/ f=1 ";
        DWORD error = ERROR_SUCCESS;
    } cases[] = {{CALL(attribute_error(TEXT("d\\f")))},
                 {CALL(found_error(TEXT("d\\f")))},
                 {CALL(found_error(TEXT("d\\f*")))},
                 {CALL(error_of(Opened(TEXT("d\\g"), GENERIC_WRITE, 0, CREATE_NEW))), "e/ f=1 g= "},
                 {CALL(error_of(DeleteFileW(TEXT("d\\f")))), "e/ "},
                 {CALL(error_of(CreateDirectoryW(TEXT("d\\n"), nullptr))), "e/ f=1 n/ "},
                 {CALL(error_of(RemoveDirectoryW(TEXT("d\\e")))), "f=1 "},
                 {CALL(error_of(MoveFileW(TEXT("d\\f"), TEXT("d\\e\\m")))), "e/ f=1 ",
                  ERROR_PATH_NOT_FOUND},  // e is not pinned
                 {CALL(error_of(MoveFileExW(TEXT("d\\f"), TEXT("d\\m"), 1))), "e/ m=1 "},
                 {CALL(DWORD{!PinnedDirectory(TEXT("d\\e"), 0).IsPinned()})}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const Planted dir("d/f=1 d/e/ out/");
        const PinnedDirectory pin(TEXT("d"), PinnedDirectory::kNotALink);
        fs::rename("d", "away");
        fs::create_directory_symlink("out", "d");
        EXPECT_EQ(c.call(), c.error);
        EXPECT_EQ(tree("away"), c.away);
        EXPECT_EQ(tree("out"), "");
    }
}

// The paths lead into the directory only by its text, which another directory has meanwhile.
TEST(PinnedDirectory, TheTextOfThePathDecides) {
    const Planted dir("t/d/f=1 t/d/c:f=2");
    const std::u16string verbatim = u"\\\\?\\" + platform_path(dir.Path());
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "t/d").c_str(), 1);
    const std::tuple<std::u16string, std::u16string, bool> cases[] = {
        {u"t\\d", u"t\\d\\f", true},
        {u"t\\d/", u"t\\d/f", true},
        {u"t\\d", u"t\\d\\c:f", true},
        {u"t\\d", u"t/d\\f", false},
        {u"t\\d", u".\\t\\d\\f", false},
        {u"t\\d", u"t\\d\\.\\f", false},
        {u"t\\d", u"t\\d\\f\\", false},
        {u"Q:", u"Q:\\f", true},
        {u"Q:/", u"Q:f", false},
        {u"\\\\?\\Q:\\", u"\\\\?\\Q:\\f", true},
        {verbatim + u"\\t\\d", verbatim + u"\\t\\d\\f", true},
        {verbatim + u"\\t\\d", verbatim + u"\\t\\d/f", false},
        {u"", u"f", true},
        {u"", u"c:f", false}};
    for (const auto &[directory, path, leads] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(directory, path)));
        fs::current_path(dir.Path() / (directory.empty() ? "t/d" : "."));
        const PinnedDirectory pin(directory.c_str(), PinnedDirectory::kNone);
        fs::current_path(dir.Path());
        ASSERT_TRUE(pin.IsPinned());
        fs::rename("t/d", "t/away");
        EXPECT_EQ(attribute_error(path.c_str()) == 0, leads);
        fs::rename("t/away", "t/d");
    }
    unsetenv("OSTREL_DRIVE_Q");
}

TEST(PinnedDirectory, OneThatCannotBeOpenedMakesCallsFailWithItsError) {
    const Planted dir("d/f=1 file=2 link->d none->missing");
    constexpr unsigned kNone = PinnedDirectory::kNone, kNotALink = PinnedDirectory::kNotALink;
    constexpr DWORD kNoPath = ERROR_PATH_NOT_FOUND;
    const std::tuple<std::u16string, unsigned, DWORD, DWORD> cases[] = {
        {u"d", kNotALink, 0, 0},
        {u"link", kNone, 0, 0},
        {u"link\\", kNotALink, kNoPath, ERROR_DIRECTORY},
        {u"file", kNone, kNoPath, ERROR_DIRECTORY},
        {u"file\\d", kNone, kNoPath, kNoPath},
        {u"none", kNone, kNoPath, kNoPath},
        {u"missing", kNone, kNoPath, kNoPath}};
    for (const auto &[directory, flags, error, of_search] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(directory, flags)));
        const std::u16string path = directory + (directory.ends_with(u'\\') ? u"f" : u"\\f");
        const std::u16string pattern = path + u'*';
        const PinnedDirectory pin(directory.c_str(), flags);
        EXPECT_EQ(pin.IsPinned(), error == 0);
        EXPECT_EQ(attribute_error(path.c_str()), error);
        EXPECT_EQ(error_of(Opened(path.c_str(), GENERIC_READ)), error);
        EXPECT_EQ(found_error(pattern.c_str()), of_search);
        if (directory == u"missing") {
            // What comes into its place afterwards is not reached either.
            plant("missing/f=3");
            EXPECT_EQ(error_of(DeleteFileW(path.c_str())), error);
        }
    }
}

TEST(PinnedDirectory, RefusesToWriteThroughLinks) {
    for (const unsigned flags : {PinnedDirectory::kNone, PinnedDirectory::kNoLinksInIt}) {
        const bool refuses = flags != PinnedDirectory::kNone;
        const Planted dir("d/l->../out/f d/none->../out/new out/f=1");
        const PinnedDirectory pin(TEXT("d"), flags);
        EXPECT_TRUE(Opened(TEXT("d\\l"), GENERIC_READ));
        for (const DWORD creation :
             {CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS, TRUNCATE_EXISTING}) {
            const Opened file(TEXT("d\\l"), GENERIC_READ | GENERIC_WRITE, 0, creation);
            EXPECT_EQ(!file, refuses) << creation;
        }
        EXPECT_EQ(!Opened(TEXT("d\\none"), GENERIC_READ, 0, OPEN_ALWAYS), refuses);
        EXPECT_EQ(tree("out"), refuses ? "f=1 " : "f= new= ");
    }
}

}  // namespace
