// The walks through directory trees.

#include "ostrel/core/exception.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "ostrel/platform/find.h"
#include "support/file_calls.h"
#include "support/trace_capture.h"

namespace {

using namespace NS_FileUtils;
using Text = std::u16string;
using Paths = std::vector<Text>;

struct Files : OS::CBrowseDirectory::CFileSearchCallback {
    void operator()(const WCHAR *directory, const WCHAR *name, const WCHAR *fullPath) override {
        EXPECT_EQ(Text(directory) + u'\\' + name, fullPath);
        paths.push_back(fullPath);
    }
    Paths paths;
};

Paths browsed(const Text &dir, bool recursive, const Text &spec) {
    Files files;
    OS::CBrowseDirectory().BrowseDirectory(dir.c_str(), recursive, spec.c_str(), files);
    return files.paths;
}

// collectFilesEx tells the names of the same entries.
Paths collected(const Text &dir, bool recursive, const Text &spec, unsigned attributes) {
    std::vector<OS::x_wstring> files = {TEXT("kept")};
    const LONG count =
        collectFiles(files, dir.c_str(), spec.c_str(), attributes, nullptr, recursive, nullptr);
    EXPECT_EQ(files[0], TEXT("kept"));
    const auto take = [](unsigned, std::int64_t, std::int64_t, std::int64_t, DWORD, WCHAR *name,
                         void *context) {
        const Text path = *++*static_cast<std::vector<OS::x_wstring>::iterator *>(context);
        EXPECT_EQ(path.substr(path.rfind(u'\\') + 1), name);
    };
    auto last = files.begin();
    EXPECT_EQ(collectFilesEx(take, &last, dir.c_str(), spec.c_str(), attributes, nullptr, recursive,
                             nullptr),
              count);
    EXPECT_EQ(last, files.end() - 1);
    return {files.begin() + 1, files.end()};
}

// What follows `top` in each path, sorted.
std::string behind(const Text &top, const Paths &paths) {
    Lines lines;
    for (const Text &path : paths) {
        EXPECT_EQ(path.substr(0, top.size()), top);
        lines.insert(fs::path(path.substr(top.size())));
    }
    return text(lines);
}

TEST(Walk, EntersSubdirectoriesByTheirNamesAndTakesWhatMatches) {
    const Planted dir(
        "t/f.log=1 t/X=22 t/.hid/x.log=333 t/.h/x=4444 t/h./x=55555 t/a/b/f.log=666666 "
        "t/a.log/x=7777777 t/a.log/y.log=88888888");
    using Names = const char *;  // of what is browsed, of the files and of the directories
    const std::tuple<Text, bool, Names, Names, Names, DWORD> cases[] = {
        {u"*", false, R"(\X \f.log )", R"(\X \f.log )", R"(\. \.. \.h \.hid \a \a.log \h. )", 3},
        {u"*.*", true, R"(\.hid\x.log \X \a.log\x \a.log\y.log \a\b\f.log \f.log )",
         R"(\X \a.log\x \a.log\y.log \a\b\f.log \f.log \h.\x )",
         R"(\. \.. \.h \.hid \a \a.log \a.log\. \a.log\.. \a\. \a\.. \a\b \a\b\. \a\b\.. )"
         R"(\h. \h.\. \h.\.. )",
         29},
        {u"*.log", true, R"(\a.log\y.log \f.log )", R"(\a.log\y.log \a\b\f.log \f.log )",
         R"(\a.log )", 9},
        {u"?", true, R"(\X )", R"(\X \a.log\x \h.\x )", R"(\. \a \a.log\. \a\. \a\b \a\b\. \h.\. )",
         2}};
    for (const auto &[spec, recursive, found, files, directories, bytes] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(spec, recursive)));
        EXPECT_EQ(behind(u"t", browsed(u"t", recursive, spec)), found);
        EXPECT_EQ(behind(u"t", collected(u"t", recursive, spec, 0x27)), files);
        EXPECT_EQ(behind(u"t", collected(u"t", recursive, spec, 0x10)), directories);
        EXPECT_EQ(calcFileSize(TEXT("t"), spec.c_str(), 0, nullptr, recursive, nullptr), bytes);
    }
    DWORD size = 77;
    EXPECT_TRUE(getDirectorySize(TEXT("t\\"), size));
    EXPECT_EQ(size, 3u);
    // What lies in a subdirectory comes first.
    const Paths upwards = {u"t\\a\\b\\f.log", u"t\\a\\g"};
    plant("t/a/g=");
    EXPECT_EQ(collected(u"t\\a", true, u"*", 0), upwards);
}

TEST(Walk, TellsTheFactsOfAFileAndPassesOverWhatIsMissing) {
    const TempDir dir;
    dir.Write("file", "12345");
    FILETIME times[] = {{0, 0x01C0'0000}, {0, 0x01C1'0000}, {0, 0x01C2'0000}};
    ASSERT_TRUE(setFileTime(TEXT("file"), &times[0], &times[1], &times[2]));
    set(TEXT("file"), kHidden);
    const auto take = [](unsigned attributes, std::int64_t create, std::int64_t access,
                         std::int64_t write, DWORD size, WCHAR *, void *context) {
        EXPECT_EQ(attributes, kHidden);
        EXPECT_EQ(create, 965'605'356);
        EXPECT_EQ(access, 993'752'854);
        EXPECT_EQ(write, 1'021'900'351);
        *static_cast<DWORD *>(context) += size;
    };
    DWORD size = 0;
    EXPECT_EQ(collectFilesEx(take, &size, nullptr, TEXT("f*"), 0, nullptr, true, nullptr), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(calcFileSize({TEXT("file"), TEXT("none"), TEXT("f*")}), 10u);
    EXPECT_FALSE(getDirectorySize(TEXT("file"), size) || getDirectorySize(nullptr, size));
    EXPECT_EQ(size, 5u);
}

TEST(Walk, TakesLinksForTheirTargetsAndNeverTurnsInALoop) {
    const Planted dir(
        "top/file=12345 top/a/inA=1 top/b/inB=22 top/toFile->file top/toNone->none top/a/toTop->.. "
        "top/a/self->. top/a/toB->../b top/b/toA->../a top/b/up->../..");
    fs::create_symlink(dir.Path() / "top", "top/b/whole");
    const Text full = u"C:" + dir.Path().u16string() + u"/top";
    for (const Text &top : {Text(u"top"), full, Text(u".")}) {
        SCOPED_TRACE(fs::path(top));
        fs::current_path(top == u"." ? dir.Path() / "top" : dir.Path());
        for (const Paths &paths : {browsed(top, true, u"*"), collected(top, true, u"*", 0)}) {
            EXPECT_EQ(behind(top, paths),
                      R"(\a\inA \a\toB\inB \b\inB \b\toA\inA \file \toFile \toNone )");
        }
        EXPECT_EQ(calcFileSize(top.c_str(), TEXT("*"), 0, nullptr, true, nullptr), 16u);
    }
}

TEST(Walk, EntersTheTargetOfLinksOnceInAnyGraph) {
    // Each directory has links to so many that come next, in a circle. There is one file for each
    // directory, and once more through a link.
    for (const auto &[directories, links] : {std::pair(4, 4), {7, 2}}) {
        SCOPED_TRACE(links);
        const TempDir dir;
        for (int i = 0; i < directories; ++i) {
            const std::string path = "t/" + std::to_string(i);
            plant(path + "/f=");
            for (int link = 0; link < links; ++link) {
                const int next = links == 2 ? i + 1 : i + link;
                fs::create_symlink("../" + std::to_string(next % directories),
                                   path + "/l" + std::to_string(link));
            }
        }
        const std::size_t files = 2u * static_cast<unsigned>(directories);
        EXPECT_EQ(browsed(u"t", true, u"*").size(), files);
        EXPECT_EQ(collected(u"t", true, u"*", 0).size(), files);
        EXPECT_EQ(collected(u"t", true, u"?", 0).size(), files);
        EXPECT_EQ(copyDirectory(TEXT("t"), TEXT("u"), 1, 0, 0), 1);
        EXPECT_EQ(collected(u"u", true, u"*", 0).size(), files);
    }
}

TEST(Walk, CallbacksFindAllFacts) {
    const Planted dir("t/f=12345 t/s/g=x");
    set(TEXT("t\\f"), kHidden);
    struct Look : OS::CBrowseDirectory::CFileSearchCallback {
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override {
            WIN32_FIND_DATAW data;
            EXPECT_TRUE(FindClose(FindFirstFileW(TEXT("t\\f"), &data)));
            EXPECT_EQ(std::tuple(data.nFileSizeLow, data.dwFileAttributes),
                      std::tuple(5u, kHidden));
            ++count;
        }
        int count = 0;
    } look;
    for (const WCHAR *spec : {TEXT("*"), TEXT("f"), TEXT("s\\*"), TEXT("s\\g")}) {
        OS::CBrowseDirectory().BrowseDirectory(TEXT("t"), false, spec, look);
    }
    const auto look_again = [](const WCHAR *, int, void *context) {
        (*static_cast<Look *>(context))(nullptr, nullptr, nullptr);
    };
    deleteTree(TEXT("t"), look_again, &look, 0, 0, TEXT("s\\*"));
    EXPECT_EQ(look.count, 5);
}

TEST(Walk, TracesEachStepOfTheBrowsingAndClosesItsSearches) {
    const TempDir dir;
    dir.Write("raises/sub/file", "");
    fs::create_directory("top");
    const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open();
    struct Raise : OS::CBrowseDirectory::CFileSearchCallback {
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override { throw 7; }
    } raise;
    OS::CBrowseDirectory walker;
    EXPECT_THROW(walker.BrowseDirectory(TEXT("raises"), true, TEXT("*"), raise), int);
    EXPECT_EQ(open(), before);
    try {
        browsed(Text(260, u'x'), false, u"");
        ADD_FAILURE() << "nothing was raised";
    } catch (const OS::CSystemException &failure) {
        EXPECT_EQ(failure.GetErrorCode(), ENAMETOOLONG);
    }
    const TraceCapture trace;
    browsed(u"top", true, u"*");
    browsed(u"none", false, u"");
    std::string lines = trace.Lines();
    const std::string file = R"( .\win32_browse_directory_imp.cpp)";
    for (std::size_t at = 0; (at = lines.find(file)) != std::string::npos;) {
        lines.erase(at, file.size());
    }
    EXPECT_EQ(
        lines,
        R"(272 BrowseSubDirectory(pszTargetDirectory = top, fIncludeSubDirectory = 1, pszFileSpec = *)
258 strDirSpec = top\*
258 BrowseSubDirectory: fd.name = .
258 BrowseSubDirectory: fd.name = ..
273 BrowseSubDirectory(pszTargetDirectory = top, fIncludeSubDirectory = 1, pszFileSpec = *)
272 BrowseSubDirectory(pszTargetDirectory = none, fIncludeSubDirectory = 0, pszFileSpec = )
258 strDirSpec = none
258 errno = 2
273 BrowseSubDirectory(pszTargetDirectory = none, fIncludeSubDirectory = 0, pszFileSpec = )
)");
}

}  // namespace
