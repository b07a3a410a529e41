#include "ostrel/config/cm_IdMapping.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

std::u16string name_of(const CIDMapping &mapping, int id) {
    const WCHAR *const name = mapping.GetID(id);
    return name != nullptr ? name : u"<null>";
}

TEST(IdMapping, AnswersBothWays) {
    const TempDir dir;
    const std::u16string file = dir.Write("ids.txt",
                                          "# comment line with enough words\r\n"
                                          "\r\n"
                                          "7 alpha beta\r\n"
                                          "\t8\t\tgamma  x  y  z  zz\r\n"
                                          "9 only\r\n"
                                          " # 10 hidden x\r\n"
                                          "-3 minus x\r\n"
                                          "word zero x\r\n"
                                          "-1 ambiguous x\r\n"
                                          "11 a x\r\n"
                                          "11 b x\r\n"
                                          "12 c x\r\n"
                                          "13 c x");
    const CIDMapping mapping(file.c_str());
    const std::pair<int, const WCHAR *> names[] = {
        {7, TEXT("alpha")},  {8, TEXT("gamma")}, {9, TEXT("<null>")},       {10, TEXT("<null>")},
        {-3, TEXT("minus")}, {0, TEXT("zero")},  {-1, TEXT("ambiguous")},   {11, TEXT("b")},
        {12, TEXT("c")},     {13, TEXT("c")},    {INT_MAX, TEXT("<null>")},
    };
    for (const auto &[id, name] : names) {
        EXPECT_EQ(name_of(mapping, id), name) << id;
    }
    const std::pair<const WCHAR *, int> ids[] = {
        {TEXT("alpha"), 7},  {TEXT("Alpha"), -1}, {TEXT("only"), -1},      {TEXT("hidden"), -1},
        {TEXT("minus"), -3}, {TEXT("zero"), 0},   {TEXT("ambiguous"), -1}, {TEXT("a"), 11},
        {TEXT("b"), 11},     {TEXT("c"), 13},     {TEXT(""), -1},          {nullptr, -1},
    };
    for (const auto &[name, id] : ids) {
        EXPECT_EQ(mapping.GetID(name), id);
    }
}

TEST(IdMapping, ReadsTheFilesThatAreShipped) {
    const std::u16string folder = std::filesystem::path(OSTREL_TEST_DATA "/config/").u16string();
    const CIDMapping ids((folder + u"cfg_IdMapping.txt").c_str());
    EXPECT_EQ(name_of(ids, 1001), u"DISK_EXHAUSTED");
    EXPECT_EQ(ids.GetID(TEXT("DISK_FULL")), 1001);
    EXPECT_EQ(ids.GetID(TEXT("SEED_EXHAUSTED")), 7007);
    const CIDMapping windows((folder + u"cfg_IdMapping_windows.txt").c_str());
    EXPECT_EQ(windows.GetID(TEXT("\u9EC4\u8272")), 103);
}

TEST(IdMapping, HandsItsItemsToTheCopy) {
    const TempDir dir;
    auto source =
        std::make_unique<CIDMapping>(dir.Write("ids.txt", "7 alpha x\n7 beta x\n").c_str());
    CIDMapping copy(*source);
    EXPECT_EQ(name_of(*source, 7), u"beta");  // from the items of the copy
    source.reset();
    copy.AddItem(8, TEXT("gamma"), TEXT("x"));
    CIDMapping assigned(dir.Write("other.txt", "1 one x\n").c_str());
    assigned = copy;
    EXPECT_EQ(name_of(assigned, 7), u"beta");
    EXPECT_EQ(assigned.GetID(TEXT("alpha")), 7);
    EXPECT_EQ(assigned.GetID(TEXT("gamma")), 8);
    EXPECT_EQ(assigned.GetID(TEXT("one")), -1);
}

TEST(IdMapping, TracesWhatItAddsAndFinds) {
    const TempDir dir;
    dir.Write("ids.txt", "7 alpha beta\n");
    const TraceCapture trace(DBG::kValue | DBG::kUnmet);
    const CIDMapping mapping(TEXT("ids.txt"));
    mapping.GetID(7);
    mapping.GetID(8);
    mapping.GetID(TEXT("alpha"));
    mapping.GetID(TEXT("beta"));
    EXPECT_EQ(trace.Lines(),
              (std::vector<std::string>{"258 .\\cm_ini_reader.cpp There were 3 streams flushed",
                                        "258 .\\cm_ini_reader.cpp Token = 7, Counter = 0",
                                        "258 .\\cm_ini_reader.cpp Token = alpha, Counter = 1",
                                        "258 .\\cm_ini_reader.cpp Token = beta, Counter = 2",
                                        "258 .\\cm_IdMapping.cpp ID         = 7",
                                        "258 .\\cm_IdMapping.cpp Logical ID = alpha",
                                        "258 .\\cm_IdMapping.cpp Category   = beta",
                                        "258 .\\cm_IdMapping.cpp CIDMapping::GetID() = alpha",
                                        "4099 .\\cm_IdMapping.cpp ID (8) cannot be found!",
                                        "258 .\\cm_IdMapping.cpp CIDMapping::GetID() = (null)",
                                        "258 .\\cm_IdMapping.cpp CIDMapping::GetID() = 7",
                                        "4099 .\\cm_IdMapping.cpp ID (beta) cannot be found!",
                                        "258 .\\cm_IdMapping.cpp CIDMapping::GetID() = -1"}));
    // All lines come from one module, the library.
    EXPECT_NE(trace.Modules().front(), nullptr);
    for (const HINSTANCE module : trace.Modules()) {
        EXPECT_EQ(module, trace.Modules().front());
    }
}

// The only test that touches the process's instance.
TEST(IdMapping, LoadsTheInstanceAtTheFirstCallThatSucceeds) {
    const TempDir dir;
    for (int i = 0; i < 2; ++i) {
        try {
            CIDMapping::Instance();
            FAIL();
        } catch (const OS::CSystemException &failure) {
            EXPECT_EQ(failure.GetErrorCode(), ENOENT);
        }
    }
    dir.Write("config/cfg_IdMapping.txt", "7 alpha beta\n");
    CIDMapping *const instance = CIDMapping::Instance();
    EXPECT_EQ(name_of(*instance, 7), u"alpha");
    dir.Write("config/cfg_IdMapping.txt", "7 changed beta\n");
    EXPECT_EQ(CIDMapping::Instance(), instance);
    EXPECT_EQ(name_of(*instance, 7), u"alpha");
    instance->AddItem(8, TEXT("added"), TEXT("x"));
    EXPECT_EQ(name_of(*instance, 8), u"added");
}

}  // namespace
