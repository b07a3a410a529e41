// How files are opened: no program that is started inherits them, and a log file is the file at its
// path, for its owner alone.

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdarg>
#include <map>

#include "support/file_calls.h"
#include "wexlog/wexlog.h"

static std::map<std::string, int> g_opened;  // the flags of each file

extern "C" int open(const char *path, int flags, ...) {
    g_opened[path] = flags;
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return openat(AT_FDCWD, path, flags, mode);
}

namespace {

// A file sink with 40 bytes to a file, the umask being none, and `count` lines of about 40.
DBG::SinkId trace(const char *path, int count, std::size_t older = 2) {
    const mode_t before = umask(0);
    const DBG::SinkId sink = DBG::AddFileSink(path, 40, older);
    for (int i = 0; i < count; ++i) {
        DBG::DebugLogEx(nullptr, 1, TEXT("f"), 1, "%d", i);
    }
    DBG::RemoveSink(sink);
    umask(before);
    return sink;
}

// The last character of the line in each file.
std::string files() {
    std::string text;
    for (const auto &entry : std::set<fs::path>(fs::recursive_directory_iterator("."), {})) {
        const std::string content = fs::is_regular_file(entry) ? content_of(entry) : "";
        text += entry.lexically_normal().string();
        text += content.size() > 1 ? '=' + content.substr(content.size() - 2, 1) : "";
        text += ' ';
    }
    return text;
}

TEST(OpenedFiles, AreNotInherited) {
    const TempDir dir;
    EXPECT_NE(trace("t.log", 1), 0u);
    EXPECT_EQ(g_opened.at("t.log") & (O_CLOEXEC | O_NOFOLLOW), O_CLOEXEC | O_NOFOLLOW);
}

TEST(OpenedFiles, OfLogsAreNumberedBeforeTheExtension) {
    const std::tuple<const char *, std::size_t, const char *> cases[] = {
        {"t.log", 2, "t.1.log=2 t.2.log=1 t.log=3 "},
        {"t.log", 0, "t.log=3 "},
        {"a.b/t", 1, "a.b a.b/t=3 a.b/t.1=2 "},
        {".t", 1, ".t=3 .t.1=2 "},
        {"t.", 1, "t.=3 t..1=2 "},
        {"a/b/t.x.y", 1, "a a/b a/b/t.x.1.y=2 a/b/t.x.y=3 "}};
    for (const auto &[path, older, expected] : cases) {
        const TempDir dir;
        EXPECT_NE(trace(path, 4, older), 0u) << path;
        EXPECT_EQ(files(), expected);
    }
}

TEST(OpenedFiles, OfLogsAreTheOwnersAndNoLinks) {
    const Planted dir("victim=x link->victim dangling->new t.1.log->victim kept.log=");
    chmod("kept.log", 0640);
    EXPECT_EQ(trace("link", 1) + trace("dangling", 1), 0u);
    EXPECT_NE(trace("d/t.log", 1), 0u);
    EXPECT_NE(trace("kept.log", 1), 0u);
    EXPECT_NE(trace("t.log", 2), 0u);
    EXPECT_EQ(files(), "d d/t.log=0 dangling kept.log=0 link t.1.log=0 t.2.log t.log=1 victim ");
    EXPECT_EQ(content_of("victim"), "x");
    const std::pair<const char *, mode_t> modes[] = {
        {"t.log", 0600}, {"t.1.log", 0600}, {"d", 0755}, {"d/t.log", 0600}, {"kept.log", 0640}};
    for (const auto &[path, mode] : modes) {
        EXPECT_EQ(host_facts(path).st_mode & 07777, mode) << path;
    }
}

TEST(OpenedFiles, OfLogsMayBeDevicesButNoPipes) {
    const TempDir dir;
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(trace("pipe", 1), 0u);
    EXPECT_NE(trace("/dev/null", 3), 0u);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

}  // namespace
