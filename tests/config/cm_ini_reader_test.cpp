#include "ostrel/config/cm_ini_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "ostrel/config/line_tokens.h"
#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"

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
    int m_begun = -1, m_ended = 0;

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
    const std::string x4094(4094, 'x');
    const std::u16string y4094(4094, u'x'), y4095 = y4094 + u'x';
    struct Case {
        std::u16string mode;
        std::string content;
        Lines lines;
    };
    const Case cases[] = {
        {u"r", "", {}},
        {u"r", "a\r\n\n#c\nb\rc\r\r\nd\r", {u"a\n", u"\n", u"#c\n", u"b\rc\r\n", u"d\r"}},
        {u"r", "a\nb\x1A\nc\n", {u"a\n", u"b"}},
        {u"r", {"ab\0cd\n\0\ne\n", 10}, {u"ab", u"", u"e\n"}},
        {u"r", "\xEF\xBB\xBF\xC3\xA4\xFF\n\xC3", {u"\u00E4\uFFFD\n", u"\uFFFD"}},
        {u"r", x4094 + "\n" + x4094 + "x\ny", {y4094 + u"\n", y4095, u"\n", u"y"}},
        {u"r", std::string(5000, 'x') + "\ny", {y4095, std::u16string(905, u'x') + u"\n", u"y"}},
        {u"rb", {"\xE4\0\r\0\n\0", 6}, {u"\u00E4\r\n"}},
        {u"r, ccs=UTF-8", {"\xFF\xFE\xE4\0\r\0\n\0", 8}, {u"\u00E4\n"}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(parse(dir.Write("file.txt", c.content), c.mode.c_str()), c.lines);
    }
}

TEST(IniReader, ReadsLongFilesWhole) {
    const TempDir dir;
    // Line ends, characters and the blocks of stream and reader meet in all ways.
    std::string content;
    Lines expected;
    for (std::size_t i = 0; i < 60000; ++i) {
        content += std::string(i % 11, 'a') + "\xE9\xBB\x84\xF0\x9F\x98\x80\r\n";
        expected.push_back(std::u16string(i % 11, u'a') + u"\u9EC4\U0001F600\n");
    }
    EXPECT_EQ(parse(dir.Write("long.txt", content)), expected);
}

TEST(IniReader, AddsFilesAndCopies) {
    const TempDir dir;
    CINIReader reader, assigned;
    reader.Parse(dir.Write("two.txt", "1\n2").c_str(), TEXT("r"));
    reader.Parse(dir.Write("three.txt", "3\n4\n5\n").c_str(), TEXT("r"));
    CINIReader copy(reader);
    assigned = copy;
    reader.Parse(dir.Write("two.txt", "6").c_str(), TEXT("r"));
    EXPECT_EQ(lines_of(reader).size(), 6u);
    const Lines five = {u"1\n", u"2", u"3\n", u"4\n", u"5\n"};
    EXPECT_EQ(lines_of(copy), five);
    EXPECT_EQ(lines_of(assigned), five);

    Collector stopping(2);
    copy.Enumerate(stopping);
    EXPECT_EQ(stopping.m_lines, (Lines{u"1\n", u"2", u"3\n"}));
    EXPECT_EQ(stopping.m_begun, 5);
    EXPECT_EQ(stopping.m_ended, 1);
}

TEST(IniReader, RaisesTheErrnoOfTheOpen) {
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("kept.txt", "kept").c_str(), TEXT("r"));
    const std::pair<const WCHAR *, int> cases[] = {{TEXT("none.txt"), ENOENT},
                                                   {TEXT("kept.txt\\x"), ENOTDIR},
                                                   {TEXT("."), EACCES},
                                                   {TEXT(""), EINVAL},
                                                   {nullptr, EINVAL}};
    for (const auto &[path, error] : cases) {
        try {
            reader.Parse(path, TEXT("r"));
            ADD_FAILURE() << error;
        } catch (const OS::CSystemException &failure) {
            EXPECT_EQ(failure.GetErrorCode(), error);
            EXPECT_NE(failure.GetErrorMsg().find(TEXT("[cm_ini_reader.cpp|")), OS::x_wstring::npos);
        }
    }
    EXPECT_THROW(reader.Parse(TEXT("kept.txt"), TEXT("q")), OS::CSystemException);
    EXPECT_EQ(lines_of(reader), Lines{u"kept"});
}

// --- cutting a line into tokens

OS::x_wstring fields_of(const CLineReaderTokenCallback &line) {
    return formatted(TEXT("%d|%s|%s|%s"), line.m_nID, line.m_strToken1.c_str(),
                     line.m_strToken2.c_str(), line.m_strToken3.c_str());
}
OS::x_wstring fields_of(const CLineReaderTokenCallbackEx &line) {
    return line.m_strToken0 + u'|' + line.m_strToken1 + u'|' + line.m_strToken2;
}
OS::x_wstring fields_of(const CLineReaderTokenCallback2 &line) {
    return line.m_strToken0 + u'|' + line.m_strToken1 + u'|' + line.m_strToken2 + u'|' +
           line.m_strToken3 + u'|' + line.m_strToken4;
}

// The fields, and into how many pieces with a delimiter behind them the line has been cut: one for
// each call, but for the line's end.
template <class Callback>
OS::x_wstring cut(std::u16string line) {
    Callback fields(line.c_str(), TEXT(" \t\n"));
    Collector().Enumerate(fields);
    const auto cuts = std::count(line.begin(), line.end(), u'\0');
    return fields_of(Callback(fields)) + formatted(TEXT(" %d"), static_cast<int>(cuts));
}

TEST(LineTokens, FillTheFields) {
    const std::u16string cases[][4] = {
        {u"12 alpha beta\n", u"12|alpha|beta| 3", u"12|alpha|beta 3", u"12|alpha|beta|| 3"},
        {u"1 2 3 4 5 6 7\n", u"1|2|3|4 5", u"1|2|3 4", u"1|2|3|4|5 6"},
        {u"\ta  b\n", u"0|b|| 2", u"a|b| 2", u"a|b||| 2"},
        {u"  # word\n", u"0||| 1", u"|| 1", u"|||| 1"},
        {u"1 a # word", u"1|a|#|word 3", u"1|a|# 3", u"1|a|#|word| 3"},
        {u" \t\n", u"0||| 0", u"|| 0", u"|||| 0"},
        {u"", u"0||| 0", u"|| 0", u"|||| 0"},
    };
    for (const auto &[line, id, three, five] : cases) {
        EXPECT_EQ(cut<CLineReaderTokenCallback>(line), id);
        EXPECT_EQ(cut<CLineReaderTokenCallbackEx>(line), three);
        EXPECT_EQ(cut<CLineReaderTokenCallback2>(line), five);
    }
}

TEST(LineTokens, CutTheStoredLine) {
    struct Cutter : Collector {
        bool operator()(int, const WCHAR *line) override {
            CLineReaderTokenCallback fields(line, TEXT(" \t\n"));
            Enumerate(fields);
            m_lines.push_back(fields_of(fields));
            return true;
        }
    } cutter;
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("one.txt", "12 alpha beta\n").c_str(), TEXT("r"));
    reader.Enumerate(cutter);
    reader.Enumerate(cutter);
    EXPECT_EQ(cutter.m_lines, (Lines{u"12|alpha|beta|", u"12|||"}));
}

TEST(LineTokens, AreAskedThroughTheirVirtualOperations) {
    class Semicolons : public CLineReaderTokenCallbackEx {
    public:
        using CLineReaderTokenCallbackEx::CLineReaderTokenCallbackEx;
        bool IsComment(const WCHAR *token, const WCHAR *) const override {
            return CLineReaderTokenCallbackEx::IsComment(token, TEXT(";!"));
        }
        const WCHAR *GetDelimiter() const override { return TEXT("|\u3000"); }
    };
    std::u16string line = u"#a|b c\u3000d";
    Semicolons fields(line.c_str(), TEXT(" "));
    Collector().Enumerate(fields);
    EXPECT_EQ(fields_of(fields), TEXT("#a|b c|d"));
    EXPECT_TRUE(fields.IsComment(TEXT("!x"), nullptr));
    EXPECT_TRUE(fields.IsComment(TEXT(""), nullptr));
    EXPECT_FALSE(fields.IsComment(TEXT("x!"), nullptr));
}

TEST(IniReader, LetsTheExceptionOfACallbackThrough) {
    struct Thrower : Collector {
        bool operator()(int, const WCHAR *) override { throw 7; }
    } thrower;
    const TempDir dir;
    dir.Write("a", "1\n2\n");
    CINIReader reader;
    reader.Parse(TEXT("a"), TEXT("r"));
    EXPECT_THROW(reader.Enumerate(thrower), int);
    EXPECT_EQ(lines_of(reader), (Lines{u"1\n", u"2\n"}));
}

}  // namespace
