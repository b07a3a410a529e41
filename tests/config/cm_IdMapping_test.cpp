#include "ostrel/config/cm_IdMapping.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

std::u16string name_of(const CIDMapping &mapping, int id) {
    const WCHAR *const name = mapping.GetID(id);
    return name != nullptr ? name : u"<null>";
}

// Behind the lines that are told apart by hand: names that share long parts, some of them beyond
// Latin-1, and keys that occur again. The last line wins, for number and name by itself.
TEST(IdMapping, AnswersBothWays) {
    std::string lines =
        "# comment line with enough words\n\n7 alpha beta\n\t8\t\tgamma  x  y  z  zz\n9 only\n"
        " # 10 hidden x\n-3 minus x\nword zero x\n-1 ambiguous x";
    std::map<int, std::u16string> names = {
        {7, u"alpha"}, {8, u"gamma"}, {-3, u"minus"}, {0, u"zero"}, {-1, u"ambiguous"}};
    std::map<std::u16string, int> ids = {{u"Alpha", -1}, {u"only", -1}, {u"hidden", -1}, {u"", -1}};
    for (const auto &[id, name] : names) {
        ids[name] = id;
    }
    std::mt19937 random(3);
    for (int line = 0; line < 2000; ++line) {
        const int id = static_cast<int>(random() % 900) + 100;
        const std::string number = std::to_string(random() % 1000);
        const bool wide = random() % 2 != 0;
        lines +=
            "\r\n" + std::to_string(id) + (wide ? " shared\u0100" : " shared0") + number + " x";
        names[id] =
            (wide ? u"shared\u0100" : u"shared0") + std::u16string(number.begin(), number.end());
        ids[names[id]] = id;
    }
    const CIDMapping mapping(TempDir().Write("ids.txt", lines).c_str());
    for (int id = -9; id < 1009; ++id) {
        EXPECT_EQ(name_of(mapping, id), names.count(id) != 0 ? names[id] : u"<null>");
    }
    for (const auto &[name, id] : ids) {
        EXPECT_EQ(mapping.GetID(name.c_str()), id);
    }
    EXPECT_EQ(mapping.GetID(nullptr), -1);
}

TEST(IdMapping, HandsItsItemsToTheCopy) {
    const TempDir dir;
    auto source = std::make_unique<CIDMapping>(dir.Write("ids.txt", "7 alpha x\n7 beta x").c_str());
    CIDMapping copy(*source), assigned(dir.Write("ids.txt", "1 one x").c_str());
    EXPECT_EQ(name_of(*source, 7), u"beta");  // from the items of the copy
    source.reset();
    copy.AddItem(8, TEXT("gamma"), TEXT("x"));
    assigned = copy;
    EXPECT_EQ(name_of(assigned, 7) + name_of(assigned, 8), u"betagamma");
    EXPECT_EQ(assigned.GetID(TEXT("alpha")) + assigned.GetID(TEXT("one")), 7 - 1);
}

TEST(IdMapping, TakesFurtherEntries) {
    const TempDir dir;
    CIDMapping mapping(dir.Write("ids.txt", "7 alpha x\n8 beta x").c_str());
    mapping.AddItem(7, TEXT("gamma"), TEXT("x"));
    mapping.AddItem(9, TEXT("beta"), nullptr);
    CINIReader reader;
    reader.Parse(dir.Write("more.txt", "10 delta x\n7 omega x\n11 none").c_str(), TEXT("r"));
    CIDMapping::CLineReaderCallback nowhere(nullptr), more(&mapping);
    CINIReader(reader).Enumerate(nowhere);
    EXPECT_EQ(name_of(mapping, 7) + name_of(mapping, 8), u"gammabeta");
    EXPECT_EQ(mapping.GetID(TEXT("alpha")) * 10 + mapping.GetID(TEXT("beta")), 79);
    reader.Enumerate(more);
    EXPECT_EQ(name_of(mapping, 7) + name_of(mapping, 10), u"omegadelta");
    EXPECT_EQ(mapping.GetID(TEXT("none")), -1);
}

// The only test that touches the process's instance.
TEST(IdMapping, LoadsTheInstanceAtTheFirstCallThatSucceeds) {
    const TempDir dir;
    EXPECT_THROW(CIDMapping::Instance(), OS::CSystemException);
    EXPECT_THROW(CIDMapping::Instance(), OS::CSystemException);
    dir.Write("config/cfg_IdMapping.txt", "7 alpha beta\n");
    CIDMapping *const instance = CIDMapping::Instance();
    dir.Write("config/cfg_IdMapping.txt", "7 changed beta\n");
    EXPECT_EQ(CIDMapping::Instance(), instance);
    EXPECT_EQ(name_of(*instance, 7), u"alpha");
}

TEST(IdMapping, TracesWhatItReadsAddsAndFinds) {
    const TempDir dir;
    dir.Write("ids.txt", "7 alpha beta\n");
    const TraceCapture trace;
    const CIDMapping mapping(TEXT("ids.txt"));
    mapping.GetID(7);
    mapping.GetID(8);
    mapping.GetID(TEXT("beta"));
    EXPECT_EQ(trace.Lines(), R"(272 .\cm_ini_reader.cpp CINIReader::Parse(pszFile = ids.txt)
258 .\cm_ini_reader.cpp There were 3 streams flushed
273 .\cm_ini_reader.cpp CINIReader::Parse(pszFile = ids.txt), [REUTRN=1]
272 .\cm_ini_reader.cpp CINIReader::Enumerate()
258 .\cm_ini_reader.cpp Token = 7, Counter = 0
258 .\cm_ini_reader.cpp Token = alpha, Counter = 1
258 .\cm_ini_reader.cpp Token = beta, Counter = 2
258 .\cm_IdMapping.cpp ID         = 7
258 .\cm_IdMapping.cpp Logical ID = alpha
258 .\cm_IdMapping.cpp Category   = beta
273 .\cm_ini_reader.cpp CINIReader::Enumerate()
258 .\cm_IdMapping.cpp CIDMapping::GetID() = alpha
4099 .\cm_IdMapping.cpp ID (8) cannot be found!
258 .\cm_IdMapping.cpp CIDMapping::GetID() = (null)
4099 .\cm_IdMapping.cpp ID (beta) cannot be found!
258 .\cm_IdMapping.cpp CIDMapping::GetID() = -1
)");
    EXPECT_EQ(trace.Modules().size(), 1u);  // all of one module, the library
    EXPECT_EQ(trace.Modules().count(nullptr), 0u);
}

}  // namespace
