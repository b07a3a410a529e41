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

struct Node {
    bool isDirectory = true;
    std::uint64_t size = 0;
    std::map<Text, Node> entries;
};

Node random_tree(std::mt19937 &random, int depth) {
    const auto below = [&random](unsigned end) { return static_cast<unsigned>(random() % end); };
    Node node;
    for (unsigned i = below(9); i > 0; --i) {
        Text name;
        for (unsigned length = below(4) + 1; length > 0; --length) {
            name += u"axX..o~"[below(7)];
        }
        name += below(3) == 0 ? u".log" : u"";
        if (name == u"." || name == u"..") {
            continue;
        }
        const std::uint64_t size = below(5) == 0 ? 0xFFFF'FF00 + below(1000) : below(1000);
        node.entries[name] =
            depth > 0 && below(2) == 0 ? random_tree(random, depth - 1) : Node{false, size, {}};
    }
    return node;
}

void write(const Node &node, const fs::path &path) {
    if (node.isDirectory) {
        fs::create_directory(path);
    } else {
        std::ofstream(path).close();
        fs::resize_file(path, node.size);
    }
    for (const auto &[name, entry] : node.entries) {
        write(entry, path / name);
    }
}

bool matches(const WCHAR *spec, const WCHAR *name) {
    const bool canGoOn = *name != 0;
    switch (*spec) {
        case u'*':
            return matches(spec + 1, name) || (canGoOn && matches(spec, name + 1));
        case u'?':
            return (canGoOn && matches(spec + 1, name + 1)) ||
                   ((!canGoOn || *name == u'.') && matches(spec + 1, name));
        case 0:
            return !canGoOn;
        default:
            return (*spec == *name || *spec == *name + 0x20) && matches(spec + 1, name + 1);
    }
}

struct Model {
    Text spec;
    bool recursive;

    bool Takes(const Text &name) const {
        const bool isPattern = spec.find_first_of(u"*?") != spec.npos;
        return isPattern ? matches(spec == u"*.*" ? u"*" : spec.c_str(), name.c_str())
                         : spec == name;
    }

    // What is in a directory, "." and ".." too, in the order of the platform's searches.
    static std::vector<std::pair<Text, Node>> Listed(const Node &node, const Text &path) {
        std::vector<std::pair<Text, Node>> entries;
        WIN32_FIND_DATAW data;
        const CFindHandle search(FindFirstFileW((path + u"\\*").c_str(), &data));
        do {
            const auto entry = node.entries.find(data.cFileName);
            entries.emplace_back(data.cFileName,
                                 entry != node.entries.end() ? entry->second : Node());
        } while (FindNextFileW(search, &data));
        EXPECT_EQ(entries.size(), node.entries.size() + 2);
        return entries;
    }

    void Browse(const Node &node, const Text &path, Paths *files) const {
        for (const auto &[name, entry] : Listed(node, path)) {
            const bool isShort = name == u"." || (name.size() == 2 && name.find(u'.') != name.npos);
            if (Takes(name) && !entry.isDirectory) {
                files->push_back(path + u'\\' + name);
            } else if (Takes(name) && recursive && !isShort) {
                Browse(entry, path + u'\\' + name, files);
            }
        }
    }

    void Collect(const Node &node, const Text &path, bool directories, Paths *found) const {
        const auto entries = Listed(node, path);
        for (const auto &[name, entry] : entries) {
            if (recursive && entry.isDirectory && name[0] != u'.') {
                Collect(entry, path + u'\\' + name, directories, found);
            }
        }
        for (const auto &[name, entry] : entries) {
            if (entry.isDirectory == directories && Takes(name)) {
                found->push_back(path + u'\\' + name);
            }
        }
    }

    DWORD Sum(const Node &node) const {
        auto sum = static_cast<DWORD>(node.size);
        for (const auto &[name, entry] : node.entries) {
            const bool isIn = !entry.isDirectory || (recursive && name[0] != u'.');
            sum += isIn && Takes(name) ? Sum(entry) : 0;
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
    EXPECT_EQ(static_cast<std::size_t>(count) + 1, files.size());
    const auto take = [](unsigned, std::int64_t, std::int64_t, std::int64_t, DWORD, WCHAR *name,
                         void *context) {
        const Text path = *++*static_cast<std::vector<OS::x_wstring>::iterator *>(context);
        EXPECT_EQ(path.substr(path.rfind(u'\\') + 1), name);
    };
    auto last = files.begin();
    EXPECT_EQ(collectFilesEx(take, &last, dir.c_str(), spec.c_str(), attributes, nullptr, recursive,
                             nullptr),
              count);
    EXPECT_EQ(last - files.begin(), count);
    return {files.begin() + 1, files.end()};
}

TEST(Walks, FindWhatTheModelFindsInItsOrder) {
    std::mt19937 random(20190604);
    for (int i = 0; i < 12; ++i) {
        const TempDir dir;
        const Node tree = random_tree(random, 3);
        write(tree, "top");
        for (const Text spec : {u"*.*", u"*", u"*.log", u"a?", u"x*", u".*", u"??", u"xa"}) {
            for (const bool recursive : {false, true}) {
                SCOPED_TRACE(testing::Message() << i << fs::path(spec) << recursive);
                const Model model = {spec, recursive};
                Paths browse, files, directories;
                model.Browse(tree, u"top", &browse);
                model.Collect(tree, u"top", false, &files);
                model.Collect(tree, u"top", true, &directories);
                EXPECT_EQ(browsed(u"top", recursive, spec), browse);
                EXPECT_EQ(collected(u"top", recursive, spec, 0x27), files);
                EXPECT_EQ(collected(u"top", recursive, spec, 0x10), directories);
                EXPECT_EQ(calcFileSize(TEXT("top"), spec.c_str(), 0, nullptr, recursive, nullptr),
                          model.Sum(tree));
            }
        }
        for (const WCHAR *path : {TEXT("top"), TEXT("top\\"), TEXT("top/")}) {
            DWORD size = 77;
            EXPECT_TRUE(getDirectorySize(path, size));
            EXPECT_EQ(size, (Model{u"*", false}.Sum(tree)));
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
    EXPECT_EQ(collectFilesEx(nullptr, &size, nullptr, TEXT("f*"), 0, nullptr, true, nullptr), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(calcFileSize({TEXT("file"), TEXT("none"), TEXT("f*")}), 10u);
    EXPECT_EQ(calcFileSize(TEXT("none"), TEXT("*"), 0, nullptr, true, nullptr), 0u);
    Text tooLong;
    while (tooLong.size() < 257) {
        tooLong += u".\\";
    }
    for (const WCHAR *path : {TEXT(""), TEXT("none"), TEXT("file"), tooLong.c_str()}) {
        EXPECT_FALSE(getDirectorySize(path, size));
    }
    EXPECT_FALSE(getDirectorySize(nullptr, size));
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
    const auto check = [](const Text &top) {
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
    };
    check(u"top");
    check(full);
    fs::current_path("top");
    check(u".");
}

TEST(Walks, TraceEachStepOfTheBrowsing) {
    const TempDir dir;
    fs::create_directories("top/sub");
    const TraceCapture trace;
    browsed(u"top", true, u"*");
    browsed(u"none", false, u"");
    const std::string longest(260, 'x');
    try {
        browsed(Text(260, u'x'), false, u"");
        ADD_FAILURE() << "nothing was raised";
    } catch (const OS::CSystemException &failure) {
        EXPECT_EQ(failure.GetErrorCode(), ENAMETOOLONG);
        EXPECT_NE(whole(failure.GetErrorMsg()).find(u"[win32_browse_directory_imp.cpp|"),
                  Text::npos);
    }
    const auto line = [](int level, const std::string &text) {
        return std::to_string(level) + R"( .\win32_browse_directory_imp.cpp )" + text + '\n';
    };
    const auto call = [&line](int level, const std::string &folder, const std::string &others) {
        return line(level, "BrowseSubDirectory(pszTargetDirectory = " + folder +
                               ", fIncludeSubDirectory = " + others + ')');
    };
    const auto name = [&line](const std::string &entry) {
        return line(258, "BrowseSubDirectory: fd.name = " + entry);
    };
    const std::string all = "1, pszFileSpec = *", none = "0, pszFileSpec = ";
    EXPECT_EQ(trace.Lines(),
              call(272, "top", all) + line(258, R"(strDirSpec = top\*)") + name(".") + name("..") +
                  name("sub") + call(272, R"(top\sub)", all) +
                  line(258, R"(strDirSpec = top\sub\*)") + name(".") + name("..") +
                  call(273, R"(top\sub)", all) + call(273, "top", all) + call(272, "none", none) +
                  line(258, "strDirSpec = none") + line(258, "errno = 2") +
                  call(273, "none", none) + call(272, longest, none) +
                  line(258, "strDirSpec = " + longest) + line(258, "errno = 36"));
}

TEST(Walks, CloseTheirSearchesWhenTheyAreLeft) {
    const TempDir dir;
    const std::string folder(120, 'd');
    dir.Write("one/two/file", "");
    dir.Write("too/" + folder + '/' + folder + '/' + folder + "/file", "");
    struct Raise : OS::CBrowseDirectory::CFileSearchCallback {
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override { throw 7; }
    } raise;
    OS::CBrowseDirectory walker, copy(walker);
    copy = walker;
    const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open();
    EXPECT_THROW(copy.BrowseDirectory(TEXT("one"), true, TEXT("*"), raise), int);
    EXPECT_THROW(walker.BrowseDirectory(TEXT("too"), true, TEXT("*"), raise), OS::CSystemException);
    EXPECT_EQ(open(), before);
}

}  // namespace
