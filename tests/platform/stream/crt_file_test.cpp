#include "ostrel/platform/stream.h"

#include <fcntl.h>

#include <future>
#include <semaphore>
#include <thread>

#include "support/file_calls.h"

namespace {

// The lines, as fgetws cuts them, with a bar behind each; one character, errno, when it cannot be
// opened.
std::u16string lines_in(const std::u16string &path, const WCHAR *mode = TEXT("r"),
                        int count = 100) {
    std::FILE *const file = _wfopen(path.c_str(), mode);
    if (file == nullptr) {
        return {static_cast<WCHAR>(errno)};
    }
    std::u16string lines;
    std::vector<WCHAR> line(static_cast<std::size_t>(count));
    while (fgetws(line.data(), count, file) == line.data()) {
        lines += std::u16string(line.data()) + u'|';
    }
    EXPECT_EQ(std::fclose(file), 0);
    return lines;
}

TEST(CrtFile, FindsHostFilesByThePlatformsPaths) {
    const TempDir dir;
    dir.Write("sub dir/a.txt", "found");
    std::ofstream("sub dir/\xFF\xC3\xA4.txt") << "bytes";
    const std::u16string absolute = dir.Path().u16string() + u"/sub dir\\a.txt";
    setenv("OSTREL_DRIVE_W", "", 1);
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "sub dir").c_str(), 1);
    for (const std::u16string &path :
         {std::u16string(u".\\sub dir\\..\\sub dir//a.txt"), u'\\' + absolute.substr(1),
          u"C:" + absolute, u"c:" + absolute.substr(1), std::u16string(u"Q:\\a.txt"),
          std::u16string(u"q:a.txt")}) {
        EXPECT_EQ(lines_in(path), u"found|") << PrintToString(path);
    }
    EXPECT_EQ(lines_in(u"sub dir/\xDCFF\u00E4.txt"), u"bytes|");
    for (const WCHAR *path :
         {u"W:\\a.txt", u"X:\\a.txt", u"sub dir/\xD800\u00E4.txt", u"sub dir/A.txt"}) {
        EXPECT_EQ(lines_in(path), std::u16string{ENOENT}) << PrintToString(path);
    }
}

TEST(CrtFile, TakesThePlatformsModes) {
    const TempDir dir;
    dir.Write("file", "old");
    for (const WCHAR *mode : {u" r", u"rtN", u"rcS", u"rt,ccs = UTF-8", u"r,ccs=utf-8 "}) {
        EXPECT_EQ(lines_in(u"file", mode), u"old|") << PrintToString(mode);
    }
    for (const WCHAR *mode : {u"rb", u"r, ccs=UTF-16LE", u"rt,ccs = UNICODE"}) {
        EXPECT_EQ(lines_in(u"file", mode)[0], u'\u6C6F') << PrintToString(mode);
    }
    for (const WCHAR *mode :
         {static_cast<const WCHAR *>(nullptr), u"", u"r+", u"w+", u"br", u"tr", u"q", u"rx", u"rbt",
          u"r,", u"rD", u"r,ccs=UTF-7", u"rb,ccs=UTF-8", u"w,ccs=UTF-8"}) {
        EXPECT_EQ(lines_in(u"file", mode), std::u16string{EINVAL}) << PrintToString(mode);
    }
    EXPECT_EQ(lines_in(u"file", u"a"), u"");  // which does not read
    EXPECT_EQ(lines_in(u"file", u"wx"), std::u16string{EEXIST});
    chmod("file", 0444);  // read-only for everyone, root too
    EXPECT_EQ(lines_in(u"file", u"w") + lines_in(u".") + lines_in(u".", u"w"),
              std::u16string(3, EACCES));
    EXPECT_EQ(content_of("file"), "old");
}

TEST(CrtFile, WaitsForNoPeer) {
    const TempDir dir;
    mkfifo("fifo", 0600);
    const std::tuple<const WCHAR *, const WCHAR *, int> cases[] = {{u"fifo", u"r", EACCES},
                                                                   {u"/dev/zero", u"r", EACCES},
                                                                   {u"/dev/null", u"r", EACCES},
                                                                   {u"fifo", u"w", ENXIO},
                                                                   {u"fifo", u"a", ENXIO}};
    for (const auto &[path, mode, error] : cases) {
        EXPECT_EQ(lines_in(path, mode), std::u16string(1, static_cast<WCHAR>(error)))
            << PrintToString(std::pair(path, mode));
    }
    EXPECT_EQ(lines_in(u"/dev/null", u"w"), u"");
    const int reader = open("fifo", O_RDONLY | O_NONBLOCK);
    std::FILE *const file = _wfopen(u"fifo", u"w");
    ASSERT_NE(file, nullptr);
    const std::string text(100'000, 'x');  // more than a FIFO holds
    std::ifstream other_end("fifo");
    close(reader);
    std::jthread writer([&] {
        std::fputs(text.c_str(), file);
        EXPECT_EQ(std::fclose(file), 0);
    });
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(other_end), {}), text);
}

TEST(CrtFile, ReadsCharactersByMode) {
    const TempDir dir;
    const std::tuple<const WCHAR *, std::string, std::u16string> cases[] = {
        {u"r, ccs=UNICODE", {"\xE4\0a\0", 4}, u"\u00E4a|"},
        {u"r, ccs=UNICODE", "\xEF\xBB\xBF\xC3\xA4", u"\u00E4|"},
        {u"r, ccs=UTF-8", {"\xFF\xFE\xE4\0", 4}, u"\u00E4|"},
        {u"r, ccs=UTF-16LE", {"\xFF\xFE\xE4\0x", 5}, u"\u00E4\uFFFD|"},
        {u"r, ccs=UTF-16LE", {"a\0\r\0\n\0b\0\x1A\0c\0", 12}, u"a\n|b|"},
        {u"rb", {"a\0\r\0\n\0b\0\x1A\0c", 11}, u"a\r\n|b\x1A|"},
        {u"rb", {"\xEF\xBB", 2}, u"\uBBEF|"}};
    for (const auto &[mode, bytes, lines] : cases) {
        EXPECT_EQ(lines_in(dir.Write("file", bytes), mode), lines) << PrintToString(bytes);
    }
    dir.Write("file", "abc\r\nd");
    EXPECT_EQ(lines_in(u"file", u"r", 3), u"ab|c\n|d|");
    WCHAR buffer[2] = {};
    // A stream that is not of _wfopen is not remembered: the next may stand at the same address.
    std::FILE *const foreign = fmemopen(buffer, sizeof buffer, "r");
    EXPECT_EQ(fgetws(buffer, 2, foreign), nullptr);
    EXPECT_EQ(errno, EINVAL);
    std::fclose(foreign);
    EXPECT_EQ(lines_in(u"file", u"r", 6), u"abc\n|d|");
}

TEST(CrtFile, TellsManyStreamsApart) {
    const TempDir dir;
    dir.Write("file", "1\n2\n");
    const auto read = [] {
        std::FILE *files[200];
        std::generate_n(files, 200, [] { return _wfopen(u"file", u"r"); });
        for (const std::u16string_view line : {u"1\n", u"2\n"}) {
            for (std::FILE *const file : files) {
                WCHAR buffer[9];
                EXPECT_EQ(fgetws(buffer, 9, file), line);
            }
        }
        std::for_each(files, files + 200, std::fclose);
    };
    const std::jthread other(read);
    read();
}

// A thread that reads standard input holds the lock of stdin, one that writes that of its stream.
TEST(CrtFile, FlushesWithoutWaitingForOtherThreads) {
    const TempDir dir;
    std::FILE *const file = _wfopen(u"file", u"w"), *const busy = _wfopen(u"busy", u"w");
    std::fputs("text", file);
    std::fputs("busy", busy);
    std::binary_semaphore held(0), done(0);
    std::jthread other([&] {
        flockfile(stdin);
        flockfile(busy);
        held.release();
        done.acquire();
        funlockfile(busy);
        funlockfile(stdin);
    });
    held.acquire();
    auto flushed = std::async(std::launch::async, _flushall);
    EXPECT_EQ(flushed.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(content_of("file") + '|' + content_of("busy"), "text|");
    done.release();
    other.join();
    EXPECT_EQ(flushed.get(), 5);
    _flushall();
    EXPECT_EQ(content_of("busy"), "busy");
    std::fclose(file);
    std::fclose(busy);
}

TEST(CrtFile, ReadsAndWritesBytesForTheHostsCalls) {
    const TempDir dir;
    EXPECT_EQ(_flushall(), 3);
    std::FILE *file = _wfopen(u"file", u"w");
    std::fputs("a\nb\r\n", file);
    EXPECT_EQ(_flushall(), 4);
    EXPECT_EQ(content_of("file"), "a\r\nb\r\r\n");
    std::fclose(file);
    EXPECT_EQ(_flushall(), 3);
    file = _wfopen(u"file", u"ab");
    std::fputs("c\n\x1A\x44", file);
    std::fclose(file);
    EXPECT_EQ(content_of("file"), "a\r\nb\r\r\nc\n\x1A\x44");
    dir.Write("mark", "\xEF\xBB\xBF");
    const std::tuple<const WCHAR *, const WCHAR *, std::string> reads[] = {
        {u"file", u"r", "a\nb\r\nc\n"}, {u"file", u"rb", content_of("file")}, {u"mark", u"r", ""}};
    for (const auto &[path, mode, read] : reads) {
        char bytes[100];
        file = _wfopen(path, mode);
        EXPECT_EQ(std::string(bytes, std::fread(bytes, 1, sizeof bytes, file)), read)
            << PrintToString(mode);
        std::fclose(file);
    }
}

}  // namespace
