#include "ostrel/config/cm_ini_reader.h"

#include <cerrno>

#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"

namespace {

using Lines = std::vector<std::u16string>;

class Collector : public CINIReader::CIterateEachLineCallback {
public:
    void Begin(int count) override { m_begun = count; }
    void End() override { ++m_ended; }
    bool operator()(int index, const WCHAR *line) override {
        EXPECT_EQ(index, static_cast<int>(m_lines.size()));
        m_lines.push_back(line);
        return index != m_stopAt;
    }

    Lines m_lines;
    int m_begun = -1, m_ended = 0, m_stopAt = -1;
};

Lines lines_of(CINIReader &reader) {
    Collector collector;
    reader.Enumerate(collector);
    EXPECT_EQ(collector.m_begun, static_cast<int>(collector.m_lines.size()));
    EXPECT_EQ(collector.m_ended, 1);
    return collector.m_lines;
}

TEST(CmIniReader, StoresTheLinesAsTheyAreRead) {
    const TempDir dir;
    const std::string x4094(4094, 'x');
    const std::u16string y4094(4094, u'x'), y4095 = y4094 + u'x';
    // Line ends, characters and the blocks of stream and reader meet in all ways.
    std::string mixed;
    Lines mixed_lines;
    for (std::size_t i = 0; i < 60000; ++i) {
        mixed += std::string(i % 11, 'a') + "\xE9\xBB\x84\xF0\x9F\x98\x80\r\n";
        mixed_lines.push_back(std::u16string(i % 11, u'a') + u"\u9EC4\U0001F600\n");
    }
    const std::tuple<std::u16string, std::string, Lines> cases[] = {
        {u"r", "a\r\n\n#c\nb\rc\r\r\nd\r", {u"a\n", u"\n", u"#c\n", u"b\rc\r\n", u"d\r"}},
        {u"r", mixed, mixed_lines},
        {u"r", {"ab\0cd\n\0\ne\n", 10}, {u"ab", u"", u"e\n"}},
        {u"r", "\xEF\xBB\xBF\xC3\xA4\xFF\n\xC3", {u"\u00E4\uFFFD\n", u"\uFFFD"}},
        {u"r", x4094 + "\n" + x4094 + "x\ny", {y4094 + u"\n", y4095, u"\n", u"y"}},
        {u"rb", {"\xE4\0\r\0\n\0", 6}, {u"\u00E4\r\n"}}};
    for (const auto &[mode, content, lines] : cases) {
        SCOPED_TRACE(PrintToString(content.substr(0, 20)));
        CINIReader reader;
        EXPECT_TRUE(reader.Parse(dir.Write("file.txt", content).c_str(), mode.c_str()));
        EXPECT_EQ(lines_of(reader), lines);
    }
}

TEST(CmIniReader, AddsFilesAndCopies) {
    const TempDir dir;
    CINIReader reader, assigned;
    reader.Parse(dir.Write("two.txt", "1\n2").c_str(), TEXT("r"));
    reader.Parse(dir.Write("three.txt", "3\n4\n5\n").c_str(), TEXT("r"));
    CINIReader copy(reader);
    assigned = copy;
    reader.Parse(dir.Write("two.txt", "6").c_str(), TEXT("r"));
    EXPECT_EQ(lines_of(reader).size(), 6u);
    EXPECT_EQ(lines_of(copy), (Lines{u"1\n", u"2", u"3\n", u"4\n", u"5\n"}));
    EXPECT_EQ(lines_of(assigned), lines_of(copy));

    Collector stopping;
    stopping.m_stopAt = 2;
    copy.Enumerate(stopping);
    EXPECT_EQ(stopping.m_lines, (Lines{u"1\n", u"2", u"3\n"}));
    EXPECT_TRUE(stopping.m_begun == 5 && stopping.m_ended == 1);
}

TEST(CmIniReader, RefusesALineBeyondTheLimit) {
    const TempDir dir;
    const std::size_t limit = std::size_t{4} << 20;
    const std::string longest(limit, 'x');
    const std::tuple<const char *, std::string, int> cases[] = {
        {"at the limit", longest + "\nx", 0},
        {"no line feed", longest + std::string(4096, 'x'), EFBIG}};
    for (const auto &[name, content, error] : cases) {
        SCOPED_TRACE(name);
        CINIReader reader;
        int code = 0;
        try {
            reader.Parse(dir.Write("file", content).c_str(), TEXT("r"));
        } catch (const OS::CSystemException &failure) {
            code = failure.GetErrorCode();
        }
        EXPECT_EQ(code, error);
        EXPECT_EQ(lines_of(reader).size(), limit / 4095 + (error == 0 ? 2 : 0));
    }
}

TEST(CmIniReader, RaisesTheErrnoOfTheOpen) {
    const TempDir dir;
    CINIReader reader;
    reader.Parse(dir.Write("kept", "kept").c_str(), TEXT("r"));
    mkfifo("fifo", 0600);
    const std::tuple<const WCHAR *, const WCHAR *, int> cases[] = {
        {u"none", u"r", ENOENT}, {u"kept\\x", u"r", ENOTDIR},  {u".", u"r", EACCES},
        {u"fifo", u"r", EACCES}, {u"/dev/zero", u"r", EACCES}, {nullptr, u"r", EINVAL},
        {u"kept", u"q", EINVAL}};
    for (const auto &[path, mode, error] : cases) {
        SCOPED_TRACE(PrintToString(std::pair(path, mode)));
        try {
            reader.Parse(path, mode);
            ADD_FAILURE() << "no error " << error;
        } catch (const OS::CSystemException &failure) {
            EXPECT_EQ(failure.GetErrorCode(), error);
            EXPECT_NE(failure.GetErrorMsg().find(TEXT("[cm_ini_reader.cpp|")), OS::x_wstring::npos);
        }
    }
    EXPECT_EQ(lines_of(reader), Lines{u"kept"});
}

}  // namespace
