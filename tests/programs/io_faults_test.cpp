// Streams whose reads and writes are interrupted, short, or fail: the host's calls are defined
// here.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string>

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/platform/file.h"
#include "support/temp_dir.h"

namespace {

// Every other call is interrupted; the others move 3 bytes; after `g_left` bytes comes EIO.
bool g_faulty = false;
int g_calls = 0;
std::size_t g_left = 0;

std::size_t allowed(std::size_t count) {
    const std::size_t part = std::min({count, std::size_t{3}, g_left});
    errno = ++g_calls % 2 == 0 ? EINTR : EIO;
    g_left -= g_calls % 2 == 0 ? 0 : part;
    return g_calls % 2 == 0 ? 0 : part;
}

}  // namespace

extern "C" ssize_t read(int file, void *bytes, std::size_t count) {
    const std::size_t part = g_faulty ? allowed(count) : count;
    return part == 0 && g_faulty ? -1 : syscall(SYS_read, file, bytes, part);
}

extern "C" ssize_t write(int file, const void *bytes, std::size_t count) {
    const std::size_t part = g_faulty ? allowed(count) : count;
    return part == 0 && g_faulty ? -1 : syscall(SYS_write, file, bytes, part);
}

namespace {

struct Faults {
    explicit Faults(std::size_t left) { g_faulty = true, g_left = left; }
    ~Faults() { g_faulty = false; }
};

TEST(IoFaults, ReadThroughInterruptionsUntilAnErrorEndsTheFile) {
    const TempDir dir;
    dir.Write("file", "\xEF\xBB\xBFone\ntwo\r\nthree\n");
    WCHAR line[20];
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("r"));
    const Faults faults(3 + 4 + 5 + 2);  // up to "th"
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"one\n");
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"two\n");
    errno = 0;
    EXPECT_EQ(fgetws(line, 20, file), nullptr);
    EXPECT_EQ(errno, EIO);
    std::fclose(file);
    g_left = 6;
    char bytes[20];
    std::FILE *const raw = _wfopen(TEXT("file"), TEXT("r"));
    EXPECT_EQ(std::string(bytes, std::fread(bytes, 1, 20, raw)), "one");
    EXPECT_NE(std::ferror(raw), 0);
    std::fclose(raw);
    g_left = 9;
    CINIReader reader;  // keeps what came before
    EXPECT_TRUE(reader.Parse(TEXT("file"), TEXT("r")));
}

TEST(IoFaults, WriteThroughShortWritesUntilTheDiskFails) {
    const TempDir dir;
    dir.Write("file", "old content");
    {
        const Faults faults(100);
        std::FILE *const file = _wfopen(TEXT("file"), TEXT("w"));
        std::fputs("a\nlonger\n", file);
        EXPECT_EQ(std::fclose(file), 0);
    }
    std::ostringstream content;
    content << std::ifstream("file", std::ios::binary).rdbuf();
    EXPECT_EQ(content.str(), "a\r\nlonger\r\n");
    const Faults faults(4);
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("w"));
    std::fputs("longer", file);
    EXPECT_NE(std::fclose(file), 0);
    EXPECT_EQ(errno, EIO);
}

}  // namespace
