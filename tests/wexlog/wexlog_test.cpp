// The trace library through its public calls: who gets a line, what it says, and what a line must
// not do to its caller.

#include "wexlog/wexlog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <latch>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "ostrel/platform/error.h"

namespace fs = std::filesystem;
using DBG::DebugLogEx;
using Texts = std::vector<std::u16string>;

// The C library's system log, as this program has it: the last message, with its priority.
static int g_logPriority = -1;
static std::string g_logText;
extern "C" void openlog(const char *program, int, int) {
    g_logText = program;
}
extern "C" void closelog() {
    g_logText.clear();
}
extern "C" void syslog(int priority, const char *format, ...) {
    char text[256];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    g_logPriority = priority;
    g_logText += '|' + std::string(text);
}

namespace {

constexpr int kLevels[] = {258, 272, 273, 4097, 4099, 1};

class Added {
public:
    explicit Added(DBG::SinkId id) : m_id(id) { EXPECT_NE(id, 0u); }
    Added(std::function<void(const DBG::Line &)> function, DBG::Kinds kinds = DBG::kAllKinds)
        : Added(DBG::AddSink(std::move(function), kinds)) {}
    ~Added() { DBG::RemoveSink(m_id); }
    Added(const Added &) = delete;
    Added &operator=(const Added &) = delete;

private:
    const DBG::SinkId m_id;
};

std::function<void(const DBG::Line &)> KeepTexts(Texts &texts) {
    return [&texts](const DBG::Line &line) { texts.emplace_back(line.text); };
}

void TraceText(const WCHAR *text) {
    DebugLogEx(nullptr, 258, TEXT("x"), 1, TEXT("%s"), text);
}

void TraceEveryLevel() {
    for (const int level : kLevels) {
        DebugLogEx(nullptr, level, TEXT(".\\a.cpp"), 7, "level %d", level);
    }
}

// A folder of the test's own. Its name is the same in a test that runs in a process of its own.
class Folder {
public:
    Folder() : m_path(fs::temp_directory_path() / ("wexlog_test." + Name())) {
        fs::remove_all(m_path);
        fs::create_directory(m_path);
    }
    ~Folder() { fs::remove_all(m_path); }
    std::string File(const char *name) const { return (m_path / name).string(); }
    const fs::path &Path() const { return m_path; }

private:
    static std::string Name() {
        return testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    const fs::path m_path;
};

std::vector<std::string> LinesOf(const fs::path &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What a line says behind time and thread.
std::string SaidBy(const std::string &line) {
    int said = 0;
    std::sscanf(line.c_str(), "%*4d-%*2d-%*2d %*2d:%*2d:%*2d.%*3d [%*d] %n", &said);
    return said == 0 ? "not a line: " + line : line.substr(static_cast<std::size_t>(said));
}

// Each statement of EXPECT_EXIT runs in a process of its own, in which nothing has been traced yet.
class EnvironmentDeathTest : public testing::Test {
protected:
    EnvironmentDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

template <class Action>
void RunIn(const char *level, const char *file, Action action) {
    for (const auto &[name, value] : {std::pair("WEXLOG_LEVEL", level), {"WEXLOG_FILE", file}}) {
        value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    }
    action();
    std::exit(0);
}

TEST_F(EnvironmentDeathTest, LevelChoosesKinds) {
    const std::pair<const char *, std::string> kCases[] = {
        {nullptr, ""},
        {" ,,", ""},
        {"all", "258 272 273 4097 4099 1 "},
        {"failure,unmet", "4097 4099 "},
        {" value\tentry , other", "258 272 1 "},
        {"exits,exit,Entry", "273 "},
    };
    const std::string path = fs::temp_directory_path() / "wexlog_test.environment/trace.log";
    for (const auto &[level, expected] : kCases) {
        fs::remove(path);
        EXPECT_EXIT(RunIn(level, path.c_str(), TraceEveryLevel), testing::ExitedWithCode(0), "");
        std::string levels;
        for (const std::string &line : LinesOf(path)) {
            levels += SaidBy(line).substr(0, SaidBy(line).find('.'));
        }
        EXPECT_EQ(levels, expected) << (level == nullptr ? "(unset)" : level);
    }
    fs::remove_all(fs::path(path).parent_path());
}

TEST_F(EnvironmentDeathTest, StandardErrorWithoutAFileAndUntilTheEnd) {
    struct Late {
        ~Late() { DebugLogEx(nullptr, 4097, TEXT(".\\late.cpp"), 8, "from a destructor"); }
    };
    const auto trace = [] {
        static Late late;
        TraceEveryLevel();
    };
    for (const char *file : {static_cast<const char *>(nullptr), "", "/proc/none/trace.log"}) {
        EXPECT_EXIT(
            RunIn("failure", file, trace), testing::ExitedWithCode(0),
            testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} \\[[0-9]+\\] "
                                  "4097 \\.\\\\a\\.cpp\\(7\\) level 4097\n"
                                  "20[^\n]*\\] 4097 \\.\\\\late\\.cpp\\(8\\) from a destructor\n"));
    }
}

TEST_F(EnvironmentDeathTest, IsReadOnceByThreadsThatBeginTogether) {
    const auto trace = [] {
        std::latch start(4);
        const auto traceOne = [&start] {
            start.arrive_and_wait();
            DebugLogEx(nullptr, 4097, nullptr, 0, "x");
        };
        std::vector<std::jthread> threads(4);
        std::generate(threads.begin(), threads.end(), [&] { return std::jthread(traceOne); });
    };
    EXPECT_EXIT(RunIn("failure", nullptr, trace), testing::ExitedWithCode(0),
                testing::MatchesRegex("(20[^\n]* 4097 \\(0\\) x\n){4}"));
}

TEST_F(EnvironmentDeathTest, ArgumentsOfAnUnwantedLineAreNotLookedAt) {
    const auto trace = [] {
        const auto *const bad = reinterpret_cast<const WCHAR *>(1);
        DebugLogEx(nullptr, 258, bad, 1, TEXT("%s"), bad);  // the first line
        DebugLogEx(nullptr, 258, bad, 1, TEXT("%s"), bad);
        DBG::AddSink([](const DBG::Line &) { std::abort(); }, DBG::kAllKinds & ~DBG::kValue);
        DebugLogEx(nullptr, 258, bad, 1, TEXT("%s"), bad);
        DebugLogEx(nullptr, 258, bad, 1, "%s", bad);
    };
    EXPECT_EXIT(RunIn(nullptr, nullptr, trace), testing::ExitedWithCode(0), "");
}

TEST(Wexlog, EachLevelIsOfOneKind) {
    const std::pair<int, DBG::Kinds> kCases[] = {
        {258, DBG::kValue},  {272, DBG::kEntry}, {273, DBG::kExit}, {4097, DBG::kFailure},
        {4099, DBG::kUnmet}, {1, DBG::kOther},   {0, DBG::kOther},  {-258, DBG::kOther},
    };
    for (const auto &[level, expected] : kCases) {
        for (DBG::Kinds kind = 1; kind < DBG::kAllKinds; kind <<= 1) {
            Texts others;
            Texts texts;
            const Added both(KeepTexts(others), DBG::kAllKinds & ~kind);
            const Added sink(KeepTexts(texts), kind);
            DebugLogEx(nullptr, level, nullptr, 0, "x");
            EXPECT_EQ(texts.size(), kind == expected) << level;
            EXPECT_EQ(others.size(), kind != expected) << level;
        }
    }
}

TEST(Wexlog, TextsOfBothOverloads) {
    Texts texts;
    const Added sink(KeepTexts(texts));
    const WCHAR *const noWide = nullptr;
    const char *const noNarrow = nullptr;
    DebugLogEx(nullptr, 1, nullptr, 0, TEXT("%s %d %S"), TEXT("wide"), -1, "\xC3\xA9");
    DebugLogEx(nullptr, 1, nullptr, 0, "%s %d %S", "\xC3\xA9", 2, TEXT("wide"));
    DebugLogEx(nullptr, 1, nullptr, 0, TEXT("<%s>"), noWide);
    DebugLogEx(nullptr, 1, nullptr, 0, "<%s>", noNarrow);
    DebugLogEx(nullptr, 1, nullptr, 0, noWide);
    DebugLogEx(nullptr, 1, nullptr, 0, noNarrow);
    DebugLogEx(nullptr, 1, nullptr, 0, TEXT("wide %d 100%"), 3);
    DebugLogEx(nullptr, 1, nullptr, 0, "narrow %d 100%", 3);
    EXPECT_EQ(texts, (Texts{u"wide -1 \u00E9", u"\u00E9 2 wide", u"<(null)>", u"<(null)>", u"", u"",
                            u"wide %d 100%", u"narrow %d 100%"}));
    texts.clear();
    // On both sides of what the stack holds, and beyond every 16-bit count.
    for (const std::size_t length : {511u, 512u, 513u, 70'000u}) {
        DebugLogEx(nullptr, 1, nullptr, 0, TEXT("%s"), std::u16string(length, u'w').c_str());
        DebugLogEx(nullptr, 1, nullptr, 0, "%s", std::string(length, 'n').c_str());
        const Texts expected{std::u16string(length, u'w'), std::u16string(length, u'n')};
        EXPECT_EQ(texts, expected) << length;
        texts.clear();
    }
}

TEST(Wexlog, SinkGetsOriginOfTheLine) {
    const auto module = reinterpret_cast<HINSTANCE>(&g_logText);
    const WCHAR *const file = TEXT(".\\a.cpp");
    std::vector<std::tuple<HINSTANCE, int, std::u16string, int>> origins;
    const Added sink([&origins](const DBG::Line &line) {
        origins.emplace_back(line.module, line.level, line.file, line.line);
    });
    DebugLogEx(module, 273, file, 42, "x");
    DebugLogEx(nullptr, 258, nullptr, 0, TEXT("x"));
    EXPECT_EQ(origins, (decltype(origins){{module, 273, file, 42}, {nullptr, 258, u"", 0}}));
}

TEST(Wexlog, SinkThatThrowsOrTracesDisturbsNobody) {
    Texts texts;
    int calls = 0;
    const Added throwing([&calls](const DBG::Line &) {
        ++calls;
        throw 1;
    });
    const Added tracing([&calls](const DBG::Line &) {
        ++calls;
        TraceText(TEXT("within"));
    });
    const Added last(KeepTexts(texts));
    TraceText(TEXT("1"));
    TraceText(TEXT("2"));
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(texts, (Texts{u"1", u"2"}));
}

TEST(Wexlog, SinkChangesTheSinksWithinItsCall) {
    Texts removed;
    Texts added;
    DBG::SinkId own = 0;
    DBG::SinkId next = 0;
    DBG::SinkId fresh = 0;
    auto resource = std::make_shared<int>();
    const std::weak_ptr<int> alive = resource;
    own = DBG::AddSink([&, resource](const DBG::Line &) {
        DBG::RemoveSink(own);
        DBG::RemoveSink(next);
        fresh = DBG::AddSink(KeepTexts(added));
        EXPECT_FALSE(alive.expired());
    });
    next = DBG::AddSink(KeepTexts(removed));
    resource.reset();
    TraceText(TEXT("1"));
    EXPECT_TRUE(alive.expired());
    TraceText(TEXT("2"));
    DBG::RemoveSink(fresh);
    TraceText(TEXT("3"));
    EXPECT_EQ(removed, Texts());
    EXPECT_EQ(added, Texts{u"2"});
}

TEST(Wexlog, RemoveWaitsForTheCallUnderWay) {
    std::promise<void> begun;
    std::promise<void> removed;
    std::atomic<bool> ended = false;
    auto removal = removed.get_future();
    const DBG::SinkId id = DBG::AddSink([&](const DBG::Line &) {
        begun.set_value();
        // Passes whatever the time: a removal that waits is never seen here.
        EXPECT_EQ(removal.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        ended = true;
    });
    const std::jthread tracer([] { TraceText(TEXT("1")); });
    begun.get_future().wait();
    DBG::RemoveSink(id);
    EXPECT_TRUE(ended);
    removed.set_value();
    TraceText(TEXT("2"));  // a second set_value would throw, were the sink still there
}

TEST(Wexlog, ErrorsOfTheCallerAreKept) {
    const Added sink([](const DBG::Line &) {
        errno = EIO;
        SetLastError(6);
    });
    errno = ENOENT;
    SetLastError(1234);
    DebugLogEx(nullptr, 4097, nullptr, 0, "refused %");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST(WexlogFile, WritesOneLineOfUtf8) {
    const Folder folder;
    const std::string path = folder.File("new/trace.log");
    const Added file(DBG::AddFileSink(path.c_str()));
    DebugLogEx(nullptr, 272, TEXT(".\\a.cpp"), 42, TEXT("%s"),
               TEXT("a\r\nb \u00E9 \u20AC \U0001F600 \xD800 \xDC00\xDC00 \xD83D"));
    const std::vector<std::string> lines = LinesOf(path);  // before the file is closed
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(SaidBy(lines[0]),
              "272 .\\a.cpp(42) a\\r\\nb \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 "
              "\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD");
}

std::string RotatedText(std::size_t thread, std::size_t i) {
    return std::to_string(thread) + '/' + std::to_string(i) + std::string(i % 80, '.') + '!';
}

TEST(WexlogFile, EveryLineOfManyThreadsArrivesWholeAcrossRotation) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kLines = 500;
    const Folder folder;
    {
        const Added file(DBG::AddFileSink(folder.File("t.log").c_str(), 10'000, 100));
        std::vector<std::jthread> threads;
        for (std::size_t thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread] {
                for (std::size_t i = 0; i < kLines; ++i) {
                    DebugLogEx(nullptr, 258, TEXT("f"), 1, "%s", RotatedText(thread, i).c_str());
                }
            });
        }
    }
    std::set<std::string> expected;
    for (std::size_t i = 0; i < kThreads * kLines; ++i) {
        expected.insert("258 f(1) " + RotatedText(i / kLines, i % kLines));
    }
    std::size_t files = 0;
    for (const auto &entry : fs::directory_iterator(folder.Path())) {
        ++files;
        EXPECT_LE(entry.file_size(), 10'000u);
        for (const std::string &line : LinesOf(entry.path())) {
            EXPECT_EQ(expected.erase(SaidBy(line)), 1u) << "broken, or there twice: " << line;
        }
    }
    EXPECT_TRUE(expected.empty()) << expected.size() << " lost, such as " << *expected.begin();
    EXPECT_GT(files, 10u);
    EXPECT_TRUE(fs::exists(folder.File("t.1.log")));
}

TEST(WexlogFile, WhatCannotBeAddedGivesZero) {
    const Folder folder;
    EXPECT_EQ(DBG::AddFileSink(folder.Path().c_str()), 0u);
    EXPECT_EQ(DBG::AddFileSink(nullptr), 0u);
    EXPECT_EQ(DBG::AddFileSink(folder.File("f").c_str(), 0), 0u);
    EXPECT_EQ(DBG::AddSink(nullptr), 0u);
    EXPECT_EQ(DBG::AddSystemLogSink(nullptr), 0u);
}

// A process without a free descriptor cannot open the next file when one is full.
TEST(WexlogFile, ComesBackAfterAFailedRotation) {
    const Folder folder;
    const std::string path = folder.File("t.log");
    const Added file(DBG::AddFileSink(path.c_str(), 200, 5));
    const std::u16string longText(150, u'x');
    TraceText(longText.c_str());
    // A file in the folder's place: the rotation finds no way, nor does the new open behind it.
    const fs::path away = folder.Path().string() + ".away";
    fs::rename(folder.Path(), away);
    std::ofstream(folder.Path()) << "in the way";
    TraceText(longText.c_str());  // lost, and leaves no file open
    TraceText(TEXT("short"));     // lost
    fs::remove(folder.Path());
    fs::rename(away, folder.Path());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (LinesOf(path).size() != 1 || SaidBy(LinesOf(path)[0]) != "258 x(1) back") {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        TraceText(TEXT("back"));
        std::this_thread::yield();
    }
}

TEST(WexlogSystemLog, FailuresAreErrorsAndUnmetRequestsWarnings) {
    const std::pair<int, int> kCases[] = {{4097, 3}, {4099, 4}, {258, 7}, {1, 7}};
    for (const auto &[level, priority] : kCases) {
        const Added sink(DBG::AddSystemLogSink("product"));
        DebugLogEx(nullptr, level, TEXT("f"), 1, "100%%");
        EXPECT_EQ(g_logPriority, priority) << level;
        EXPECT_EQ(g_logText, "product|" + std::to_string(level) + " f(1) 100%");
    }
}

}  // namespace
