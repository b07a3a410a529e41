#include "ostrel/core/cm_guid.h"

#include "ostrel/core/exception.h"
#include "ostrel/platform/error.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

const OS::x_wstring kLower(TEXT("6b29fc40-ca47-1067-b31d-00dd010662da"));
const OS::x_wstring kUpper(TEXT("6B29FC40-CA47-1067-B31D-00DD010662DA"));
const _GUID kValue = {0x6B29FC40, 0xCA47, 0x1067, {0xB3, 0x1D, 0, 0xDD, 1, 6, 0x62, 0xDA}};

TEST(CmGuid, KeepsTheFormThatItCameInOrWasAssigned) {
    const CGUID lower(kLower), upper(kUpper), binary(kValue), copy(upper), made, other;
    EXPECT_EQ(copy.GetString(), kUpper);
    EXPECT_EQ(binary.GetString(), kLower);
    EXPECT_EQ(upper.GetStringBraced(), TEXT("{") + kUpper + TEXT("}"));
    EXPECT_EQ(CGUID(made.GetString()) == made.GetGUID(), 1);
    EXPECT_EQ((lower == kValue) + (upper == kValue) + (binary == kValue) + (copy == kValue), 4);
    EXPECT_EQ((made == other) + (made == kValue) + (lower == upper) + (upper == kLower), 0);
    EXPECT_EQ((upper == copy) + (lower == binary) + (upper == kUpper), 3);
    EXPECT_TRUE(lower < upper);  // texts descend: 'b' is behind 'B'
    EXPECT_FALSE(upper < lower || lower < lower);

    CGUID guid;
    const CGUID &same = guid;
    EXPECT_EQ(&(guid = kUpper), &guid);
    EXPECT_EQ(guid == kValue, 1);
    guid = guid.GetString();
    EXPECT_EQ(guid.GetString(), kUpper);
    guid = guid.GetGUID();
    EXPECT_EQ(guid.GetString(), kLower);
    guid = other;
    guid = same;
    EXPECT_EQ((guid == other) + (guid == other.GetGUID()), 2);
}

TEST(CmGuid, OfAnotherTextThrowsTheLastErrorAndKeepsTheText) {
    CGUID guid(kLower);
    for (const OS::x_wstring &text : {OS::x_wstring(), kLower + TEXT(" "), kLower + kLower}) {
        const TraceCapture trace;
        SetLastError(4321);
        try {
            guid = text;
            ADD_FAILURE() << PrintToString(text);
        } catch (const OS::CSystemException &failure) {
            EXPECT_EQ(failure.GetErrorCode(), 4321);
        }
        EXPECT_EQ(guid.GetString(), text);
        EXPECT_EQ(trace.Lines(),
                  "4097 .\\cm_guid.cpp RPC_STATUS status = 1705, last error = 4321\n");
    }
}

}  // namespace
