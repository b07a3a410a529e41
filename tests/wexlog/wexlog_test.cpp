// The trace library through its public calls: who gets a line, what it says, and what a line must
// not do to its caller.

#include "wexlog/wexlog.h"

#include <cerrno>
#include <cstdarg>
#include <future>
#include <map>
#include <optional>
#include <thread>

#include "ostrel/platform/error.h"
#include "support/temp_dir.h"
#include "support/test.h"
#include "support/trace_capture.h"

// The C library's system log, as this program has it: the last message. Hardened builds call the
// second form.
static std::string g_log;
static void log_message(int priority, const char *format, std::va_list args) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    g_log = std::to_string(priority) + ' ' + text;
}
extern "C" void syslog(int priority, const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    log_message(priority, format, args);
    va_end(args);
}
extern "C" void __syslog_chk(int priority, int, const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    log_message(priority, format, args);
    va_end(args);
}

namespace {

struct Added {
    const DBG::SinkId id;
    ~Added() { DBG::RemoveSink(id); }
};

template <class... Values>
void Trace(int level, Values... format) {
    DBG::DebugLogEx(nullptr, level, TEXT("a\\b"), 7, format...);
}

void TraceEveryLevel(const char *text) {
    for (const int level : {258, 272, 273, 4097, 4099, 1, 0, -258}) {
        Trace(level, "%s", text);
    }
}

// What the lines of a file say behind time and thread.
std::vector<std::string> SaidIn(const fs::path &path) {
    std::ifstream file(path);
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);) {
        all.push_back(line.substr(line.find("] ") + 2));
    }
    return all;
}

// For a process of its own, in which nothing has been traced yet. Its exit code counts the file's
// lines.
[[noreturn]] void TraceWith(const char *level, const char *file, const char *text) {
    static const TempDir dir;
    std::atexit([] { Trace(4097, "x"); });
    setenv("WEXLOG_LEVEL", level, 1);
    setenv("WEXLOG_FILE", file, 1);
    TraceEveryLevel(text);
    std::exit(static_cast<int>(SaidIn(file).size()));
}

TEST(Wexlog, EnvironmentChoosesKindsAndFile) {
    const std::tuple<const char *, const char *, int, const char *, const char *> kCases[] = {
        {" ,,", "", 0, "", "{0}"},
        {"all", "", 0, "258|272|273|4097|4099|1|0|-258", "{9}"},
        {"failure,exits,unmet,Entry", "/proc/none/t.log", 0, "4097|4099", "{3}"},
        {" value\tentry , other,exit", "new/t.log", 6, "", "{0}"}};
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const auto &[names, file, in_file, levels, count] : kCases) {
        const std::string pattern =
            std::string("(20[-0-9]{8} [:0-9]{8}\\.[0-9]{3} \\[[0-9]+\\] (") + levels +
            ") a.b\\(7\\) x\n)" + count;
        // A line that nobody wants must not even look at its arguments.
        const char *text = in_file + *levels != 0 ? "x" : reinterpret_cast<const char *>(1);
        EXPECT_EXIT(TraceWith(names, file, text), testing::ExitedWithCode(in_file),
                    testing::MatchesRegex(pattern))
            << names;
    }
}

TEST(Wexlog, TextAndOriginOfBothOverloads) {
    const TraceCapture lines;
    DBG::DebugLogEx(nullptr, 273, nullptr, 0, TEXT("%s %d %S"), TEXT("wide"), -1, "\xC3\xA9");
    DBG::DebugLogEx(nullptr, 1, nullptr, 0, "%s %d %S", "\xC3\xA9", 2, TEXT("wide"));
    Trace(2, static_cast<const WCHAR *>(nullptr));
    Trace(4, TEXT("wide %d 100%"), 3);
    std::string expected = "273  wide -1 \xE9\n1  \xE9 2 wide\n2 a\\b \n4 a\\b wide %d 100%\n";
    // On both sides of what the stack holds, and beyond every 16-bit count.
    for (const std::size_t length : {512u, 513u, 70'000u}) {
        Trace(6, TEXT("%s"), std::u16string(length, u'n').c_str());
        Trace(6, "%s", std::string(length, 'n').c_str());
        const std::string line = "6 a\\b " + std::string(length, 'n') + '\n';
        expected += line + line;
    }
    EXPECT_EQ(lines.Lines(), expected);
}

TEST(Wexlog, SinkGetsItsKindsAndDisturbsNobodyWhateverItDoes) {
    std::string levels;
    const auto take = [&levels](const DBG::Line &line) {
        levels += std::to_string(line.level + line.line) + ' ';
        Trace(1, "within");
        errno = EIO;
        SetLastError(6);
        throw 1;
    };
    const Added sink{DBG::AddSink(take, DBG::kEntry | DBG::kFailure | DBG::kOther)};
    const TraceCapture last;
    errno = ENOENT;
    SetLastError(1234);
    TraceEveryLevel("x");
    EXPECT_TRUE(errno == ENOENT && GetLastError() == 1234);
    EXPECT_EQ(levels, "279 4104 8 7 -251 ");
    EXPECT_TRUE(last.Lines().ends_with("\n-258 a\\b x\n"));
}

TEST(Wexlog, SinkChangesTheSinksWithinItsCall) {
    std::optional<TraceCapture> removed, added;
    auto own = std::make_shared<DBG::SinkId>();
    const std::weak_ptr<DBG::SinkId> alive = own;
    *own = DBG::AddSink([&removed, &added, own](const DBG::Line &) {
        DBG::RemoveSink(*own);
        EXPECT_EQ(removed->Lines(), "");
        removed.reset();
        added.emplace();
    });
    own.reset();
    removed.emplace();
    Trace(1, "1");
    EXPECT_TRUE(alive.expired());
    Trace(1, "2");
    EXPECT_EQ(added->Lines(), "1 a\\b 2\n");
}

TEST(Wexlog, RemoveWaitsForTheCallUnderWay) {
    std::promise<void> begun;
    bool ended = false;
    const DBG::SinkId id = DBG::AddSink([&](const DBG::Line &) {
        begun.set_value();
        // Passes whatever the time, which only a removal that does not wait would use.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ended = true;
    });
    const std::jthread tracer([] { Trace(1, "1"); });
    begun.get_future().wait();
    DBG::RemoveSink(id);
    EXPECT_TRUE(ended);
}

TEST(Wexlog, FileHoldsEveryLineOfManyThreadsAcrossRotation) {
    const TempDir dir;
    const Added file{DBG::AddFileSink("t.log", 10'000, 100)};
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i) {
                Trace(258, "%d%*s!", i, i % 80, "");
            }
        });
    }
    threads.clear();
    std::map<std::string, int> said;
    for (const auto &entry : fs::directory_iterator(".")) {
        EXPECT_LE(entry.file_size(), 10'000u);
        for (const std::string &line : SaidIn(entry.path())) {
            ++said[line];
        }
    }
    for (std::size_t i = 0; i < 500; ++i) {
        const std::string text = std::to_string(i) + std::string(i % 80, ' ') + '!';
        EXPECT_EQ(said["258 a\\b(7) " + text], 4) << text;
    }
    EXPECT_EQ(said.size(), 500u);  // none is broken
    EXPECT_TRUE(fs::exists("t.1.log") && fs::exists("t.10.log"));
}

TEST(Wexlog, FileIsUtf8AndComesBackAfterAFailedRotation) {
    const TempDir dir;
    const Added file{DBG::AddFileSink("logs/t.log", 200, 5)};
    Trace(1, TEXT("%s"),
          TEXT("\r\n\t\x1B\x7F\u2028 \u00E9 \u20AC \U0001F600 \xD800 \xDC00\xDC00 \xD83D\xD83D"));
    EXPECT_EQ(SaidIn("logs/t.log").at(0),
              "1 a\\b(7) \\r\\n\t\\u001b\\u007f\\u2028 \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 "
              "\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD");
    // A file in the folder's place: the rotation finds no way, nor does the new open behind it.
    fs::rename("logs", "away");
    dir.Write("logs", "in the way");
    Trace(1, std::string(150, 'x').c_str());  // lost, and leaves no file open
    Trace(1, "short");                        // lost
    fs::remove("logs");
    fs::rename("away", "logs");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (SaidIn("logs/t.log").back() != "1 a\\b(7) back") {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        Trace(1, "back");
    }
}

TEST(Wexlog, SystemLogGetsPrioritiesAndWhatCannotBeAddedGivesZero) {
    const Added sink{DBG::AddSystemLogSink("me")};
    for (const auto &[level, said] : {std::pair(4097, "3 4097"), {4099, "4 4099"}, {1, "7 1"}}) {
        Trace(level, "100%%");
        EXPECT_EQ(g_log, std::string(said) + " a\\b(7) 100%") << level;
    }
    EXPECT_EQ(DBG::AddFileSink(".") + DBG::AddFileSink(""), 0u);
}

}  // namespace
