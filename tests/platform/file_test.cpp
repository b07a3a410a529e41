#include "ostrel/platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "support/temp_dir.h"

namespace {

std::string content_of(const std::filesystem::path &path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::u16string first_line(const WCHAR *path, const WCHAR *mode = TEXT("r")) {
    WCHAR line[100] = {};
    std::FILE *const file = _wfopen(path, mode);
    if (file != nullptr) {
        fgetws(line, 100, file);
        std::fclose(file);
    }
    return file != nullptr ? line : u"<none>";
}

TEST(CrtFile, FindsHostFilesByThePlatformsPaths) {
    const TempDir dir;
    dir.Write("sub dir/a.txt", "found");
    std::ofstream("sub dir/\xFF\xC3\xA4.txt") << "bytes";
    dir.Write("Case", "upper");
    const std::u16string root = dir.Path().u16string();
    setenv("OSTREL_DRIVE_W", "", 1);
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "sub dir").c_str(), 1);
    const std::pair<std::u16string, const WCHAR *> cases[] = {
        {u"sub dir\\a.txt", u"found"},
        {u"sub dir/a.txt", u"found"},
        {u".\\sub dir\\..\\sub dir//a.txt", u"found"},
        {root + u"\\sub dir/a.txt", u"found"},
        {u"C:" + root + u"/sub dir\\a.txt", u"found"},
        {u"c:\\" + root.substr(1) + u"\\sub dir\\a.txt", u"found"},
        {u"c:" + root.substr(1) + u"\\sub dir\\a.txt", u"found"},
        {u"Q:\\a.txt", u"found"},
        {u"q:a.txt", u"found"},
        {u"W:\\a.txt", u"<none>"},
        {u"sub dir/\xDCFF\u00E4.txt", u"bytes"},
        {u"sub dir/\xD800\u00E4.txt", u"<none>"},
        {u"Case", u"upper"},
        {u"case", u"<none>"},
    };
    for (const auto &[path, text] : cases) {
        EXPECT_EQ(first_line(path.c_str()), text);
    }
    errno = 0;
    EXPECT_EQ(_wfopen(TEXT("W:\\a.txt"), TEXT("r")), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(CrtFile, TakesThePlatformsModes) {
    const TempDir dir;
    dir.Write("file", "old");
    std::istringstream good("r|rb| r|rtN|rcS|a|ab|r, ccs=UTF-16LE|rt,ccs = UNICODE|r,ccs=utf-8 ");
    for (std::string mode; std::getline(good, mode, '|');) {
        std::FILE *const file =
            _wfopen(TEXT("file"), std::u16string(mode.begin(), mode.end()).c_str());
        ASSERT_NE(file, nullptr) << mode;
        WCHAR line[9];
        EXPECT_EQ(fgetws(line, 9, file) != nullptr, mode.find('r') != mode.npos) << mode;
        std::fclose(file);
    }
    // One direction only; a letter that is no mode; a charset that is not read.
    std::istringstream bad(
        "r+|w+|a+|br|tr|q|rx|rbt|rz|r,|rD|r,ccs=UTF-7|rb,ccs=UTF-8|w,ccs=UTF-8||");
    for (std::string mode; std::getline(bad, mode, '|');) {
        errno = 0;
        EXPECT_EQ(_wfopen(TEXT("file"), std::u16string(mode.begin(), mode.end()).c_str()), nullptr)
            << mode;
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(_wfopen(TEXT("file"), nullptr), nullptr);
    EXPECT_EQ(content_of("file"), "old");
    errno = 0;
    EXPECT_EQ(_wfopen(TEXT("file"), TEXT("wx")), nullptr);
    EXPECT_EQ(errno, EEXIST);
    for (const WCHAR *mode : {TEXT("r"), TEXT("w"), TEXT("a")}) {
        EXPECT_EQ(_wfopen(TEXT("."), mode), nullptr);
        EXPECT_EQ(errno, EACCES);
    }
    // Read-only for everyone, root too.
    chmod("file", 0444);
    EXPECT_EQ(_wfopen(TEXT("file"), TEXT("w")), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(first_line(TEXT("file")), u"old");
}

TEST(CrtFile, ReadsCharactersByMode) {
    const TempDir dir;
    struct Case {
        const WCHAR *mode;
        std::string bytes;
        std::u16string line;
    };
    const Case cases[] = {
        {TEXT("r, ccs=UNICODE"), {"\xE4\0a\0", 4}, u"\u00E4a"},
        {TEXT("r, ccs=UNICODE"), "\xEF\xBB\xBF\xC3\xA4", u"\u00E4"},
        {TEXT("r, ccs=UTF-8"), "\xC3\xA4", u"\u00E4"},
        {TEXT("r, ccs=UTF-8"), {"\xFF\xFE\xE4\0", 4}, u"\u00E4"},
        {TEXT("r, ccs=UTF-16LE"), {"\xFF\xFE\xE4\0x", 5}, u"\u00E4\uFFFD"},
        {TEXT("r, ccs=UTF-16LE"), {"a\0\r\0\n\0b\0", 8}, u"a\n"},
        {TEXT("r, ccs=UTF-16LE"), {"a\0\x1A\0b\0", 6}, u"a"},
        {TEXT("rb"), {"a\0\r\0\n\0b\0", 8}, u"a\r\n"},
        {TEXT("rb"), {"a\0b\0c", 5}, u"ab"},
        {TEXT("rb"), {"\xEF\xBB", 2}, u"\uBBEF"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(first_line(dir.Write("file", c.bytes).c_str(), c.mode), c.line);
    }
}

TEST(CrtFile, CutsLinesAtTheCount) {
    const TempDir dir;
    dir.Write("file", "abc\r\nd");
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("r"));
    ASSERT_NE(file, nullptr);
    WCHAR buffer[4] = {u'?', u'?', u'?', u'!'};
    EXPECT_EQ(fgetws(buffer, 1, file), buffer);
    EXPECT_EQ(std::u16string(buffer), u"");
    EXPECT_EQ(fgetws(buffer, 0, file), nullptr);
    EXPECT_EQ(fgetws(static_cast<WCHAR *>(nullptr), 3, file), nullptr);
    EXPECT_EQ(std::u16string(fgetws(buffer, 3, file)), u"ab");
    EXPECT_EQ(std::u16string(fgetws(buffer, 3, file)), u"c\n");
    EXPECT_EQ(std::u16string(fgetws(buffer, 3, file)), u"d");
    EXPECT_EQ(fgetws(buffer, 3, file), nullptr);
    EXPECT_EQ(buffer[3], u'!');
    EXPECT_EQ(std::fclose(file), 0);
    errno = 0;
    EXPECT_EQ(fgetws(buffer, 3, stdin), nullptr);  // not a stream of _wfopen
    EXPECT_EQ(errno, EINVAL);
    // Such an answer is not remembered: the next stream may stand at the same address.
    std::FILE *const foreign = fmemopen(buffer, sizeof buffer, "r");
    EXPECT_EQ(fgetws(buffer, 3, foreign), nullptr);
    std::fclose(foreign);
    EXPECT_EQ(first_line(TEXT("file")), u"abc\n");
}

// A pipe delivers what it has: characters and line ends are cut anywhere.
TEST(CrtFile, ReadsFromAPipeThatIsFedInPieces) {
    const TempDir dir;
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::thread writer([] {
        const int pipe = open("pipe", O_WRONLY);
        for (const char byte : std::string("\xEF\xBB\xBF\xE2\x82\xAC\r\nb\rc\r")) {
            ASSERT_EQ(write(pipe, &byte, 1), 1);
            usleep(1000);
        }
        close(pipe);
    });
    std::FILE *const file = _wfopen(TEXT("pipe"), TEXT("r"));
    ASSERT_NE(file, nullptr);
    WCHAR line[20];
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"\u20AC\n");
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"b\rc\r");
    EXPECT_EQ(fgetws(line, 20, file), nullptr);
    std::fclose(file);
    writer.join();
}

TEST(CrtFile, EndsWhereAFileIsCutWhileItIsRead) {
    const TempDir dir;
    dir.Write("file", std::string(200000, 'x'));
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("r"));
    WCHAR line[101];
    ASSERT_NE(fgetws(line, 101, file), nullptr);
    ASSERT_EQ(truncate("file", 10), 0);
    int more = 0;
    while (fgetws(line, 101, file) != nullptr) {
        ++more;
    }
    EXPECT_LT(more, 2000 - 1);
    std::fclose(file);
}

TEST(CrtFile, ReadsAndWritesBytesForTheHostsCalls) {
    const TempDir dir;
    dir.Write("text", "content that goes when the file is opened for writing");
    std::FILE *file = _wfopen(TEXT("text"), TEXT("w"));
    ASSERT_NE(file, nullptr);
    std::fputs("a\nb\r\n", file);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(content_of("text"), "a\r\nb\r\r\n");
    file = _wfopen(TEXT("text"), TEXT("ab"));
    std::fputs(
        "c\n\x1A"
        "d",
        file);
    std::fclose(file);
    EXPECT_EQ(content_of("text"),
              "a\r\nb\r\r\nc\n\x1A"
              "d");
    char bytes[100];
    dir.Write("mark", "\xEF\xBB\xBF");
    file = _wfopen(TEXT("mark"), TEXT("r"));
    EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, file), 0u);
    std::fclose(file);
    file = _wfopen(TEXT("text"), TEXT("r"));
    EXPECT_EQ(std::string(bytes, std::fread(bytes, 1, sizeof bytes, file)), "a\nb\r\nc\n");
    std::fclose(file);
    file = _wfopen(TEXT("text"), TEXT("rb"));
    EXPECT_EQ(std::string(bytes, std::fread(bytes, 1, sizeof bytes, file)), content_of("text"));
    std::fclose(file);
    // A disk that is full is told when the bytes are written.
    file = _wfopen(TEXT("\\dev\\full"), TEXT("w"));
    ASSERT_NE(file, nullptr);
    std::fputs("lost", file);
    EXPECT_NE(std::fclose(file), 0);
    EXPECT_EQ(errno, ENOSPC);
}

TEST(CrtFile, FlushesAndCountsTheOpenStreams) {
    const TempDir dir;
    EXPECT_EQ(_flushall(), 3);
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("w"));
    std::fputs("held back", file);
    EXPECT_EQ(content_of("file"), "");
    EXPECT_EQ(_flushall(), 4);
    EXPECT_EQ(content_of("file"), "held back");
    std::fclose(file);
    EXPECT_EQ(_flushall(), 3);
}

TEST(CrtFile, RemovesFilesThatMayBeRemoved) {
    const TempDir dir;
    dir.Write("file", "");
    dir.Write("read-only", "");
    chmod("read-only", 0444);
    std::filesystem::create_directory("folder");
    std::filesystem::create_symlink("read-only", "link");
    const std::pair<const WCHAR *, int> cases[] = {
        {TEXT(".\\file"), 0},       {TEXT("file"), ENOENT},      {TEXT(""), ENOENT},
        {TEXT("folder"), EACCES},   {TEXT("read-only"), EACCES}, {TEXT("link"), 0},
        {TEXT("x:\\file"), ENOENT}, {nullptr, EINVAL},
    };
    for (const auto &[path, error] : cases) {
        errno = 0;
        EXPECT_EQ(_wremove(path), error == 0 ? 0 : -1);
        EXPECT_EQ(errno, error);
    }
    EXPECT_TRUE(std::filesystem::exists("read-only") && std::filesystem::exists("folder"));
}

}  // namespace
