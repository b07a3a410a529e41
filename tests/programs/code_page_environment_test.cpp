
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "ostrel/platform/codepage.h"
#include "support/test.h"

namespace {

// The code page is read once for the process, so each case has one of its own.
TEST(CodePageEnvironment, DecidesInItsOrder) {
    const struct {
        const char *all, *ctype, *lang;
        unsigned code_page;
    } cases[] = {{nullptr, nullptr, nullptr, 65001},
                 {"ja_JP.SJIS", "de_DE.ISO-8859-15", "C", 932},
                 {"", "de_DE.ISO-8859-15@euro", "ja_JP.SJIS", 28605},
                 {nullptr, "", "ru_RU.KOI8-R", 20866},
                 {"C", nullptr, "ja_JP.SJIS", 65001},
                 {"ja_JP.ISO-2022-JP", nullptr, nullptr, 65001},
                 {"xx_XX.no-such-charset", nullptr, nullptr, 65001},
                 {"de_DE.IBM-037", nullptr, nullptr, 65001},
                 {"zh_TW.CP950", nullptr, nullptr, 950},
                 {"ko_KR.euckr", nullptr, nullptr, 51949},
                 {"de_DE.LATIN1", nullptr, nullptr, 28591}};
    for (const auto &c : cases) {
        const auto tell = [&] {
            const std::pair<const char *, const char *> variables[] = {
                {"LC_ALL", c.all}, {"LC_CTYPE", c.ctype}, {"LANG", c.lang}};
            for (const auto &[name, value] : variables) {
                value != nullptr ? setenv(name, value, 1) : unsetenv(name);
            }
            _exit(GetACP() == c.code_page ? 0 : 1);
        };
        EXPECT_EXIT(tell(), testing::ExitedWithCode(0), "")
            << c.all << ' ' << c.ctype << ' ' << c.lang;
    }
}

bool converts(const WCHAR *text) {
    char bytes[2];
    return WideCharToMultiByte(CP_ACP, 0, text, 1, bytes, 2, nullptr, nullptr) == 2;
}

// A destructor that runs after the thread's own converter is gone may still convert.
TEST(CodePageEnvironment, ConvertsToTheEndOfAThread) {
    struct Last {
        ~Last() { _exit(used && converts(u"\u30BD") ? 0 : 1); }
        bool used = false;
    };
    const auto run = [] {
        setenv("LC_ALL", "ja_JP.SJIS", 1);
        std::thread([] {
            thread_local Last last;
            last.used = converts(u"\u6F22");
        }).join();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

}  // namespace
