#include "ostrel/core/cm_guid.h"

#include <cstring>

#include "ostrel/core/exception.h"
#include "ostrel/platform/error.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

const OS::x_wstring kLower(TEXT("6b29fc40-ca47-1067-b31d-00dd010662da"));
const OS::x_wstring kUpper(TEXT("6B29FC40-CA47-1067-B31D-00DD010662DA"));
const _GUID kValue = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0, 0xDD, 1, 6, 0x62, 0xDA}};

TEST(CmGuid, OfANewValueHasItsTextInLowerCase) {
    const CGUID guid, other;
    EXPECT_EQ(guid.GetString().size(), 36u);
    EXPECT_EQ(guid.GetString().find_first_not_of(TEXT("0123456789abcdef-")), OS::x_wstring::npos);
    EXPECT_EQ(guid.GetStringBraced(), TEXT("{") + guid.GetString() + TEXT("}"));
    EXPECT_EQ(guid == other, 0);
    EXPECT_EQ(CGUID(guid.GetString()) == guid.GetGUID(), 1);
}

TEST(CmGuid, KeepsTheFormThatItCameIn) {
    const CGUID lower(kLower), upper(kUpper), binary(kValue), copy(upper);
    EXPECT_EQ(upper.GetString(), kUpper);
    EXPECT_EQ(copy.GetString(), kUpper);
    EXPECT_EQ(binary.GetString(), kLower);
    EXPECT_EQ(upper.GetStringBraced(), TEXT("{") + kUpper + TEXT("}"));
    for (const CGUID *guid : {&lower, &upper, &binary, &copy}) {
        EXPECT_EQ(std::memcmp(&guid->GetGUID(), &kValue, sizeof kValue), 0);
        EXPECT_EQ(*guid == kValue, 1);
    }
    EXPECT_EQ(CGUID(_GUID{1, 0, 0, {}}) == kValue, 0);
    EXPECT_EQ(lower == upper, 0);
    EXPECT_EQ(upper == copy, 1);
    EXPECT_EQ(lower == binary, 1);
    EXPECT_EQ(upper == kUpper, 1);
    EXPECT_EQ(upper == kLower, 0);
}

TEST(CmGuid, SortsTextsDescending) {
    const CGUID lower(kLower), upper(kUpper), first(_GUID{1, 0, 0, {}});
    EXPECT_TRUE(lower < upper);  // 'b' is behind 'B'
    EXPECT_FALSE(upper < lower);
    EXPECT_TRUE(upper < first);
    EXPECT_FALSE(lower < lower);
}

TEST(CmGuid, AssignsAllThreeKindsAndItself) {
    CGUID guid;
    EXPECT_EQ(&(guid = kUpper), &guid);
    EXPECT_EQ(guid == kValue, 1);
    guid = guid.GetString();
    EXPECT_EQ(guid.GetString(), kUpper);
    EXPECT_EQ(&(guid = guid.GetGUID()), &guid);
    EXPECT_EQ(guid.GetString(), kLower);
    const CGUID other;
    EXPECT_EQ(&(guid = other), &guid);
    const CGUID &same = guid;
    guid = same;
    EXPECT_EQ(guid == other, 1);
    EXPECT_EQ(guid == other.GetGUID(), 1);
}

TEST(CmGuid, OfAnotherTextThrowsTheLastErrorAndKeepsTheText) {
    CGUID guid(kLower);
    for (const OS::x_wstring &text :
         {OS::x_wstring(), TEXT("{") + kLower + TEXT("}"), kLower + TEXT(" ")}) {
        SCOPED_TRACE(PrintToString(text));
        const TraceCapture trace;
        for (const bool constructs : {false, true}) {
            SetLastError(4321);
            try {
                constructs ? void(CGUID(text)) : void(guid = text);
                FAIL();
            } catch (const OS::CSystemException &failure) {
                EXPECT_EQ(failure.GetErrorCode(), 4321);
            }
        }
        EXPECT_EQ(guid.GetString(), text);
        const std::string line =
            "4097 .\\cm_guid.cpp RPC_STATUS status = 1705, last error = 4321\n";
        EXPECT_EQ(trace.Lines(), line + line);
    }
}

}  // namespace
