#include "ostrel/platform/system.h"

#include <map>

#include "support/file_calls.h"

namespace {

TEST(System, TellsItsVersion) {
    OSVERSIONINFOW version;
    version.dwOSVersionInfoSize = 276;
    EXPECT_EQ(GetVersionExW(&version) ? version.dwMajorVersion : 0, 6u);
}

TEST(System, ComparesNamesOfVariablesWithoutRegardToCase) {
    setenv("Ostrel_Test_A", "first", 1);
    setenv("ostrel_test_a", "sp\xC3\xA4ter", 1);
    setenv("OSTREL_TEST_\xC3\x84", "umlaut", 1);
    const std::map<std::u16string, std::u16string> values = {{u"ostrel_test_a", u"sp\u00E4ter"},
                                                             {u"Ostrel_Test_A", u"first"},
                                                             {u"ostrel_test_\u00C4", u"umlaut"},
                                                             {u"ostrel_test_\u00E4", u"-"},
                                                             {u"Ostrel_Test_A=first", u"-"}};
    for (const auto &[name, value] : values) {
        const WCHAR *const found = _wgetenv(name.c_str());
        EXPECT_EQ(found != nullptr ? found : u"-", value) << fs::path(name);
    }
    const WCHAR *const first = _wgetenv(u"Ostrel_Test_A");
    unsetenv("Ostrel_Test_A");
    EXPECT_NE(_wgetenv(u"Ostrel_Test_A"), first);
    EXPECT_EQ(std::u16string(first), u"first");  // stays in place
}

}  // namespace
