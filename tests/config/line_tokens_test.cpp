#include "ostrel/config/line_tokens.h"

#include "support/text.h"

namespace {

// What a callback calls to have its line cut.
struct Walker : CINIReader::CIterateEachLineCallback {
    void Begin(int) override {}
    void End() override {}
    bool operator()(int, const WCHAR *) override { return true; }
};

OS::x_wstring fields_of(const CLineReaderTokenCallback &line) {
    return formatted(TEXT("%d|"), line.m_nID) + line.m_strToken1 + u'|' + line.m_strToken2 + u'|' +
           line.m_strToken3;
}
OS::x_wstring fields_of(const CLineReaderTokenCallbackEx &line) {
    return line.m_strToken0 + u'|' + line.m_strToken1 + u'|' + line.m_strToken2;
}
OS::x_wstring fields_of(const CLineReaderTokenCallback2 &line) {
    return line.m_strToken0 + u'|' + line.m_strToken1 + u'|' + line.m_strToken2 + u'|' +
           line.m_strToken3 + u'|' + line.m_strToken4;
}

template <class Callback>
OS::x_wstring cut(std::u16string line) {
    Callback fields(line.c_str(), TEXT(" \t\n"));
    Walker().Enumerate(fields);
    return fields_of(Callback(fields));
}

TEST(LineTokens, FillTheFields) {
    const std::u16string cases[][4] = {{u"1 2 3 4 5 6\n", u"1|2|3|4", u"1|2|3", u"1|2|3|4|5"},
                                       {u"\ta  b\n", u"0|b||", u"a|b|", u"a|b|||"},
                                       {u"  # word\n", u"0|||", u"||", u"||||"},
                                       {u"1 a # word", u"1|a|#|word", u"1|a|#", u"1|a|#|word|"},
                                       {u" \t\n", u"0|||", u"||", u"||||"}};
    for (const auto &[line, id, three, five] : cases) {
        SCOPED_TRACE(PrintToString(line));
        EXPECT_EQ(cut<CLineReaderTokenCallback>(line), id);
        EXPECT_EQ(cut<CLineReaderTokenCallbackEx>(line), three);
        EXPECT_EQ(cut<CLineReaderTokenCallback2>(line), five);
    }
}

}  // namespace
