// The walks through directory trees, against a model of a tree that is kept beside the one on disk.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <random>

#include "ostrel/core/exception.h"
#include "ostrel/core/handles.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

namespace fs = std::filesystem;
using namespace NS_FileUtils;
using Text = std::u16string;
using Paths = std::vector<Text>;

// Files and directories with names that the walks treat in different ways.
void plant_any(std::mt19937 &random, int depth, const fs::path &path) {
    const auto below = [&random](unsigned end) { return static_cast<unsigned>(random() % end); };
    fs::create_directory(path);
    for (unsigned i = below(9); i > 0; --i) {
        Text name;
        for (unsigned length = below(4) + 1; length > 0; --length) {
            name += u"axX..o~"[below(7)];
        }
        name += below(3) == 0 ? u".log" : u"";
        if (fs::exists(path / name)) {
            continue;
        }
        if (depth > 0 && below(2) == 0) {
            plant_any(random, depth - 1, path / name);
        } else {
            std::ofstream(path / name).close();
            fs::resize_file(path / name, below(below(5) == 0 ? 0xFFFF'FFFF : 1000));
        }
    }
}

// What the walks find, by the platform's searches alone.
struct Model {
    Text spec;
    bool recursive;

    struct Entry {
        Text name, path;
        bool isDirectory;
        DWORD size;
    };

    static std::vector<Entry> Found(const Text &path, const Text &pattern) {
        std::vector<Entry> entries;
        WIN32_FIND_DATAW data;
        const CFindHandle search(FindFirstFileW((path + u'\\' + pattern).c_str(), &data));
        for (bool found = search != INVALID_HANDLE_VALUE; found;
             found = FindNextFileW(search, &data) != FALSE) {
            entries.push_back({data.cFileName, path + u'\\' + data.cFileName,
                               (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                               data.nFileSizeLow});
        }
        return entries;
    }

    void Browse(const Text &top, Paths *files) const {
        for (const Entry &e : Found(top, spec)) {
            const bool isShort = e.name == u"." || (e.name.size() == 2 && e.name.find(u'.') < 2);
            if (!e.isDirectory) {
                files->push_back(e.path);
            } else if (recursive && !isShort) {
                Browse(e.path, files);
            }
        }
    }

    void Collect(const Text &top, bool directories, Paths *found) const {
        for (const Entry &e : Found(top, u"*")) {
            if (recursive && e.isDirectory && e.name[0] != u'.') {
                Collect(e.path, directories, found);
            }
        }
        for (const Entry &e : Found(top, spec)) {
            if (e.isDirectory == directories) {
                found->push_back(e.path);
            }
        }
    }

    DWORD Sum(const Text &top) const {
        DWORD sum = 0;
        for (const Entry &e : Found(top, spec)) {
            const bool isEntered = e.isDirectory && recursive && e.name[0] != u'.';
            sum += isEntered ? Sum(e.path) : e.size;
        }
        return sum;
    }
};

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

TEST(Walks, FindWhatTheModelFindsInItsOrder) {
    std::mt19937 random(20190604);
    for (int i = 0; i < 12; ++i) {
        const TempDir dir;
        plant_any(random, 3, "top");
        for (const Text spec : {u"*.*", u"*", u"*.log", u"a?", u"x*", u".*", u"??", u"xa"}) {
            for (const bool recursive : {false, true}) {
                SCOPED_TRACE(testing::Message() << i << fs::path(spec) << recursive);
                const Model model = {spec, recursive};
                Paths browse, files, directories;
                model.Browse(u"top", &browse);
                model.Collect(u"top", false, &files);
                model.Collect(u"top", true, &directories);
                EXPECT_EQ(browsed(u"top", recursive, spec), browse);
                EXPECT_EQ(collected(u"top", recursive, spec, 0x27), files);
                EXPECT_EQ(collected(u"top", recursive, spec, 0x10), directories);
                EXPECT_EQ(calcFileSize(TEXT("top"), spec.c_str(), 0, nullptr, recursive, nullptr),
                          model.Sum(u"top"));
            }
        }
        for (const WCHAR *path : {TEXT("top"), TEXT("top\\"), TEXT("top/")}) {
            DWORD size = 77;
            EXPECT_TRUE(getDirectorySize(path, size));
            EXPECT_EQ(size, (Model{u"*", false}.Sum(u"top")));
        }
    }
}

TEST(Walks, TellTheFactsOfAFileAndPassOverWhatIsMissing) {
    const TempDir dir;
    dir.Write("file", "12345");
    const timespec times[] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "file", times, 0), 0);
    ASSERT_TRUE(SetFileAttributesW(TEXT("file"), FILE_ATTRIBUTE_HIDDEN));
    const auto take = [](unsigned attributes, std::int64_t create, std::int64_t access,
                         std::int64_t write, DWORD size, WCHAR *, void *context) {
        EXPECT_EQ(attributes, FILE_ATTRIBUTE_HIDDEN);
        EXPECT_GT(create, 1'500'000'000);
        EXPECT_EQ(access, 1'000'000'000);
        EXPECT_EQ(write, 1'100'000'000);
        *static_cast<DWORD *>(context) += size;
    };
    DWORD size = 0;
    EXPECT_EQ(collectFilesEx(take, &size, nullptr, TEXT("f*"), 0, nullptr, true, nullptr), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(calcFileSize({TEXT("file"), TEXT("none"), TEXT("f*")}), 10u);
    EXPECT_FALSE(getDirectorySize(TEXT("file"), size) || getDirectorySize(nullptr, size));
    EXPECT_EQ(size, 5u);
}

TEST(Walks, TakeLinksForTheirTargetsAndNeverTurnInALoop) {
    const TempDir dir;
    dir.Write("top/file", "12345");
    dir.Write("top/a/inA", "1");
    dir.Write("top/b/inB", "22");
    const std::map<std::string, std::string> links = {
        {"toFile", "file"}, {"toNone", "none"}, {"a/toTop", ".."}, {"a/self", "."},
        {"a/toB", "../b"},  {"b/toA", "../a"},  {"b/up", "../.."}, {"b/whole", dir.Path() / "top"},
    };
    for (const auto &[link, target] : links) {
        fs::create_symlink(target, "top/" + link);
    }
    const Text full = u"C:" + dir.Path().u16string() + u"/top";
    for (const Text &top : {Text(u"top"), full, Text(u".")}) {
        fs::current_path(top == u"." ? dir.Path() / "top" : dir.Path());
        for (Paths paths : {browsed(top, true, u"*"), collected(top, true, u"*", 0)}) {
            std::sort(paths.begin(), paths.end());
            Text text;
            for (const Text &path : paths) {
                EXPECT_EQ(path.substr(0, top.size()), top);
                text += path.substr(top.size()) + u' ';
            }
            EXPECT_EQ(text,
                      u"\\a\\inA \\a\\toB\\inB \\b\\inB \\b\\toA\\inA \\file \\toFile \\toNone ");
        }
        EXPECT_EQ(calcFileSize(top.c_str(), TEXT("*"), 0, nullptr, true, nullptr), 16u);
    }
}

TEST(Walks, TraceEachStepOfTheBrowsingAndCloseTheirSearches) {
    const TempDir dir;
    dir.Write("raises/sub/file", "");
    fs::create_directory("top");
    const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open();
    struct Raise : OS::CBrowseDirectory::CFileSearchCallback {
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override { throw 7; }
    } raise;
    OS::CBrowseDirectory walker, copy(walker);
    copy = walker;
    EXPECT_THROW(copy.BrowseDirectory(TEXT("raises"), true, TEXT("*"), raise), int);
    EXPECT_EQ(open(), before);
    try {
        browsed(Text(260, u'x'), false, u"");
        ADD_FAILURE() << "nothing was raised";
    } catch (const OS::CSystemException &failure) {
        EXPECT_EQ(failure.GetErrorCode(), ENAMETOOLONG);
        EXPECT_NE(whole(failure.GetErrorMsg()).find(u"[win32_browse_directory_imp.cpp|"),
                  Text::npos);
    }
    const TraceCapture trace;
    browsed(u"top", true, u"*");
    browsed(u"none", false, u"");
    const std::string call = "BrowseSubDirectory(pszTargetDirectory = ";
    const std::string top = call + "top, fIncludeSubDirectory = 1, pszFileSpec = *)";
    const std::string none = call + "none, fIncludeSubDirectory = 0, pszFileSpec = )";
    std::string expected;
    for (const std::string &line :
         {"272" + top, std::string(R"(258strDirSpec = top\*)"),
          std::string("258BrowseSubDirectory: fd.name = ."),
          std::string("258BrowseSubDirectory: fd.name = .."), "273" + top, "272" + none,
          std::string("258strDirSpec = none"), std::string("258errno = 2"), "273" + none}) {
        expected +=
            line.substr(0, 3) + R"( .\win32_browse_directory_imp.cpp )" + line.substr(3) + '\n';
    }
    EXPECT_EQ(trace.Lines(), expected);
}

}  // namespace
