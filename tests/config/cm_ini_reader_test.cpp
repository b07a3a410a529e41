#include "ostrel/config/cm_ini_reader.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "ostrel/config/line_tokens.h"
#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

using Lines = std::vector<std::u16string>;

class Collector : public CINIReader::CIterateEachLineCallback {
public:
    explicit Collector(int stop_at = -1) : m_stopAt(stop_at) {}
    void Begin(int count) override { m_begun = count; }
    void End() override { ++m_ended; }
    bool operator()(int index, const WCHAR *line) override {
        EXPECT_EQ(index, static_cast<int>(m_lines.size()));
        m_lines.push_back(line);
        return index != m_stopAt;
    }

    Lines m_lines;
    int m_begun = -1;
    int m_ended = 0;

private:
    int m_stopAt;
};

Lines lines_of(CINIReader &reader) {
    Collector collector;
    reader.Enumerate(collector);
    EXPECT_EQ(collector.m_begun, static_cast<int>(collector.m_lines.size()));
    EXPECT_EQ(collector.m_ended, 1);
    return collector.m_lines;
}

Lines parse(const std::u16string &path, const WCHAR *mode = TEXT("r")) {
    CINIReader reader;
    EXPECT_TRUE(reader.Parse(path.c_str(), mode));
    return lines_of(reader);
}

TEST(IniReader, StoresTheLinesAsTheyAreRead) {
    const TempDir dir;
    const std::u16string long_line(5000, u'x');
    struct Case {
        const char *what;
        std::string content;
        Lines lines;
    };
    const Case cases[] = {
        {"empty", "", {}},
        {"last line without a line feed", "a\n\n#c\nb", {u"a\n", u"\n", u"#c\n", u"b"}},
        {"CR LF, lone CR", "a\r\nb\rc\r\r\nd\r", {u"a\n", u"b\rc\r\n", u"d\r"}},
        {"Ctrl-Z", "a\nb\x1A\nc\n", {u"a\n", u"b"}},
        {"NUL", {"ab\0cd\n\0\ne\n", 10}, {u"ab", u"", u"e\n"}},
        {"UTF-8 mark and text", "\xEF\xBB\xBF\xC3\xA4\xF0\x9F\x98\x80\n", {u"\u00E4\U0001F600\n"}},
        {"broken UTF-8",
         "a\xFF\xE2\x82z\xED\xA0\x80\n\xC3",
         {u"a\uFFFD\uFFFDz\uFFFD\uFFFD\uFFFD\n", u"\uFFFD"}},
        {"UTF-16 read as text", {"\xFF\xFE\x61\0\n\0", 6}, {u"\uFFFD\uFFFDa", u""}},
        {"4095 characters", std::string(4095, 'x') + "\n", {long_line.substr(0, 4095), u"\n"}},
        {"4094 characters", std::string(4094, 'x') + "\n", {long_line.substr(0, 4094) + u"\n"}},
        {"5000 characters",
         std::string(5000, 'x') + "\ny",
         {long_line.substr(0, 4095), long_line.substr(0, 905) + u"\n", u"y"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(parse(dir.Write("file.txt", c.content)), c.lines);
    }
}

TEST(IniReader, ReadsLongFilesWhole) {
    const TempDir dir;
    // Every line is longer by one, so that line ends, characters and the reader's blocks meet in
    // all ways.
    std::string content;
    Lines expected;
    for (int i = 0; i < 1500; ++i) {
        std::string line;
        std::u16string units;
        for (int k = 0; k < i % 97; ++k) {
            line += k % 3 == 0 ? "\xE9\xBB\x84" : k % 3 == 1 ? "\xF0\x9F\x98\x80" : "a";
            units += k % 3 == 0 ? u"\u9EC4" : k % 3 == 1 ? u"\U0001F600" : u"a";
        }
        content += line + (i % 2 == 0 ? "\r\n" : "\n");
        expected.push_back(units + u"\n");
    }
    EXPECT_EQ(parse(dir.Write("long.txt", content)), expected);

    const Lines pieces = parse(dir.Write("wide.txt", std::string(2'000'000, 'w')));
    EXPECT_EQ(pieces.size(), 2'000'000u / 4095 + 1);
    EXPECT_EQ(pieces.back().size(), 2'000'000u % 4095);
}

TEST(IniReader, PassesTheModeOn) {
    const TempDir dir;
    const std::u16string text =
        dir.Write("utf16.txt", {"\xFF\xFE\xE4\0\r\0\n\0\x3D\xD8\0\xDE", 12});
    EXPECT_EQ(parse(text, TEXT("r, ccs=UTF-8")), (Lines{u"\u00E4\n", u"\U0001F600"}));
    EXPECT_EQ(parse(text, TEXT("rb")), (Lines{u"\uFEFF\u00E4\r\n", u"\U0001F600"}));
    EXPECT_EQ(parse(dir.Write("utf8.txt", "\xC3\xA4"), TEXT("rt,ccs=UTF-8")), (Lines{u"\u00E4"}));
    CINIReader reader;
    EXPECT_THROW(reader.Parse(text.c_str(), TEXT("q")), OS::CSystemException);
}

TEST(IniReader, AddsFilesAndCopies) {
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("two.txt", "1\n2").c_str(), TEXT("r"));
    reader.Parse(dir.Write("three.txt", "3\n4\n5\n").c_str(), TEXT("r"));
    const Lines five = {u"1\n", u"2", u"3\n", u"4\n", u"5\n"};
    EXPECT_EQ(lines_of(reader), five);

    CINIReader copy(reader);
    CINIReader assigned;
    assigned = copy;
    reader.Parse(dir.Write("two.txt", "6").c_str(), TEXT("r"));
    EXPECT_EQ(lines_of(reader).size(), 6u);
    EXPECT_EQ(lines_of(copy), five);
    EXPECT_EQ(lines_of(assigned), five);

    Collector stopping(2);
    copy.Enumerate(stopping);
    EXPECT_EQ(stopping.m_lines, (Lines{u"1\n", u"2", u"3\n"}));
    EXPECT_EQ(stopping.m_ended, 1);
}

int code_of_failure(CINIReader &reader, const WCHAR *path) {
    try {
        reader.Parse(path, TEXT("r"));
    } catch (const OS::CSystemException &failure) {
        EXPECT_NE(failure.GetErrorMsg().find(TEXT("[cm_ini_reader.cpp|")), OS::x_wstring::npos);
        return failure.GetErrorCode();
    }
    return 0;
}

TEST(IniReader, RaisesTheErrnoOfTheOpen) {
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("kept.txt", "kept").c_str(), TEXT("r"));
    EXPECT_EQ(code_of_failure(reader, TEXT("missing.txt")), ENOENT);
    EXPECT_EQ(code_of_failure(reader, TEXT("kept.txt\\x")), ENOTDIR);
    EXPECT_EQ(code_of_failure(reader, dir.Path().u16string().c_str()), EACCES);
    EXPECT_EQ(code_of_failure(reader, TEXT("")), EINVAL);
    EXPECT_EQ(code_of_failure(reader, nullptr), EINVAL);
    EXPECT_EQ(lines_of(reader), Lines{u"kept"});
}

// Permissions do not stop root, so a child without rights tries.
TEST(IniReader, RaisesWhenTheFileMayNotBeRead) {
    const TempDir dir;
    dir.Write("closed.txt", "secret");
    std::filesystem::permissions(dir.Path(), std::filesystem::perms::all);
    std::filesystem::permissions(dir.Path() / "closed.txt", std::filesystem::perms::none);
    const pid_t child = fork();
    if (child == 0) {
        if (getuid() == 0 && setuid(65534) != 0) {
            _exit(99);
        }
        CINIReader reader;
        _exit(code_of_failure(reader, TEXT("closed.txt")));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), EACCES);
}

TEST(IniReader, LetsExceptionsOfTheCallbackPass) {
    class Thrower : public Collector {
    public:
        bool operator()(int, const WCHAR *) override { throw std::runtime_error("line"); }
    };
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("one.txt", "1\n").c_str(), TEXT("r"));
    Thrower thrower;
    EXPECT_THROW(reader.Enumerate(thrower), std::runtime_error);
    EXPECT_EQ(thrower.m_ended, 0);
    EXPECT_EQ(lines_of(reader), Lines{u"1\n"});
}

TEST(IniReader, TracesEntryFlushAndExit) {
    const TempDir dir;
    dir.Write("one.txt", "1\n");
    const TraceCapture trace;
    CINIReader reader;
    reader.Parse(TEXT("one.txt"), TEXT("r"));
    Collector collector;
    reader.Enumerate(collector);
    EXPECT_THROW(reader.Parse(TEXT("none"), TEXT("r")), OS::CSystemException);
    EXPECT_EQ(trace.Lines(),
              (std::vector<std::string>{
                  "272 .\\cm_ini_reader.cpp CINIReader::Parse(pszFile = one.txt)",
                  "258 .\\cm_ini_reader.cpp There were 3 streams flushed",
                  "273 .\\cm_ini_reader.cpp CINIReader::Parse(pszFile = one.txt), [REUTRN=1]",
                  "272 .\\cm_ini_reader.cpp CINIReader::Enumerate()",
                  "273 .\\cm_ini_reader.cpp CINIReader::Enumerate()",
                  "272 .\\cm_ini_reader.cpp CINIReader::Parse(pszFile = none)"}));
}

// --- cutting a line into tokens

class Tokens : public CINIReader::CIterateEachTokenCallback {
public:
    using CIterateEachTokenCallback::CIterateEachTokenCallback;
    bool operator()(int index, const WCHAR *token) override {
        EXPECT_EQ(index, static_cast<int>(m_tokens.size()));
        m_tokens.push_back(token);
        return m_tokens.size() < m_most;
    }
    Lines m_tokens;
    std::size_t m_most = 99;
};

TEST(LineTokens, AreSeparatedByRunsOfDelimiters) {
    struct Case {
        std::u16string line;
        Lines tokens;
    };
    const Case cases[] = {
        {u"\ta  b\n", {u"a", u"b"}},
        {u"", {}},
        {u" \t\n", {}},
        {u"one", {u"one"}},
        {u"a\u00E9,b c", {u"a\u00E9,b", u"c"}},
    };
    Collector cutter;
    for (Case c : cases) {
        Tokens tokens(c.line.c_str(), TEXT(" \t\n"));
        cutter.Enumerate(tokens);
        EXPECT_EQ(tokens.m_tokens, c.tokens);
    }
    // The set of delimiters is the callback's, beyond ASCII too, and false ends the line.
    std::u16string line = u"a\u3000b;c;d";
    Tokens two(line.c_str(), TEXT(";\u3000"));
    two.m_most = 2;
    cutter.Enumerate(two);
    EXPECT_EQ(two.m_tokens, (Lines{u"a", u"b"}));
    // The line has been cut: what was a token ends there now, the rest is as it was.
    EXPECT_EQ(line, std::u16string(u"a\0b\0c;d", 7));
}

TEST(LineTokens, CutTheStoredLine) {
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("one.txt", "12 alpha beta\n").c_str(), TEXT("r"));
    class Cutter : public Collector {
    public:
        bool operator()(int, const WCHAR *line) override {
            CLineReaderTokenCallback fields(line, TEXT(" \t\n"));
            Enumerate(fields);
            m_lines.push_back(fields.m_strToken1);
            return true;
        }
    };
    Cutter cutter;
    const TraceCapture trace;
    reader.Enumerate(cutter);
    reader.Enumerate(cutter);
    EXPECT_EQ(cutter.m_lines, (Lines{u"alpha", u""}));
    EXPECT_EQ(trace.Lines()[2], "258 .\\cm_ini_reader.cpp Token = alpha, Counter = 1");
}

// The texts of the fields of a callback, the number first where it has one.
Lines fields_of(const CLineReaderTokenCallback &line) {
    return {wide(TEXT("%d"), line.m_nID), line.m_strToken1, line.m_strToken2, line.m_strToken3};
}
Lines fields_of(const CLineReaderTokenCallbackEx &line) {
    return {line.m_strToken0, line.m_strToken1, line.m_strToken2};
}
Lines fields_of(const CLineReaderTokenCallback2 &line) {
    return {line.m_strToken0, line.m_strToken1, line.m_strToken2, line.m_strToken3,
            line.m_strToken4};
}

template <class Callback>
Lines cut(std::u16string line) {
    Callback fields(line.c_str(), TEXT(" \t\n"));
    Collector cutter;
    cutter.Enumerate(fields);
    const Callback copy(fields);
    EXPECT_EQ(fields_of(copy), fields_of(fields));
    return fields_of(copy);
}

TEST(LineTokens, FillTheFields) {
    struct Case {
        std::u16string line;
        Lines id, three, five;
    };
    const Case cases[] = {
        {u"12 alpha beta\n",
         {u"12", u"alpha", u"beta", u""},
         {u"12", u"alpha", u"beta"},
         {u"12", u"alpha", u"beta", u"", u""}},
        {u"1 2 3 4 5 6 7\n",
         {u"1", u"2", u"3", u"4"},
         {u"1", u"2", u"3"},
         {u"1", u"2", u"3", u"4", u"5"}},
        {u"  # word\n", {u"0", u"", u"", u""}, {u"", u"", u""}, {u"", u"", u"", u"", u""}},
        {u"#word\n", {u"0", u"", u"", u""}, {u"", u"", u""}, {u"", u"", u"", u"", u""}},
        {u"1 a # word",
         {u"1", u"a", u"#", u"word"},
         {u"1", u"a", u"#"},
         {u"1", u"a", u"#", u"word", u""}},
        {u" \n", {u"0", u"", u"", u""}, {u"", u"", u""}, {u"", u"", u"", u"", u""}},
        {u"x1 a", {u"0", u"a", u"", u""}, {u"x1", u"a", u""}, {u"x1", u"a", u"", u"", u""}},
        {u"-3x a", {u"-3", u"a", u"", u""}, {u"-3x", u"a", u""}, {u"-3x", u"a", u"", u"", u""}},
        {u"99999999999 a",
         {u"2147483647", u"a", u"", u""},
         {u"99999999999", u"a", u""},
         {u"99999999999", u"a", u"", u"", u""}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(cut<CLineReaderTokenCallback>(c.line), c.id);
        EXPECT_EQ(cut<CLineReaderTokenCallbackEx>(c.line), c.three);
        EXPECT_EQ(cut<CLineReaderTokenCallback2>(c.line), c.five);
    }
}

TEST(LineTokens, AreAskedThroughTheirVirtualOperations) {
    class Semicolons : public CLineReaderTokenCallbackEx {
    public:
        using CLineReaderTokenCallbackEx::CLineReaderTokenCallbackEx;
        bool IsComment(const WCHAR *token, const WCHAR *) const override {
            return CLineReaderTokenCallbackEx::IsComment(token, TEXT(";!"));
        }
        const WCHAR *GetDelimiter() const override { return TEXT("|"); }
    };
    std::u16string line = u"#a|b c|d";
    Semicolons fields(line.c_str(), TEXT(" "));
    Collector cutter;
    cutter.Enumerate(fields);
    EXPECT_EQ(fields_of(fields), (Lines{u"#a", u"b c", u"d"}));
    EXPECT_TRUE(fields.IsComment(TEXT("!x"), nullptr));
    EXPECT_TRUE(fields.IsComment(TEXT(""), nullptr));
    EXPECT_FALSE(fields.IsComment(TEXT("x!"), nullptr));
    EXPECT_FALSE(fields(3, TEXT("surplus")));
    EXPECT_FALSE(fields(-1, TEXT("surplus")));
}

}  // namespace
