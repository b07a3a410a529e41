#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "ostrel/platform/codepage.h"

namespace {

// The code page is read once for the process, so each case has one of its own.
unsigned code_page_under(const char *all, const char *ctype, const char *lang) {
    const auto set = [](const char *name, const char *value) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    };
    int code_page[2];
    EXPECT_EQ(pipe(code_page), 0);
    const pid_t child = fork();
    if (child == 0) {
        set("LC_ALL", all);
        set("LC_CTYPE", ctype);
        set("LANG", lang);
        const unsigned number = GetACP();
        _exit(write(code_page[1], &number, sizeof number) == sizeof number ? 0 : 1);
    }
    unsigned number = 0;
    EXPECT_EQ(read(code_page[0], &number, sizeof number), ssize_t{sizeof number});
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    close(code_page[0]);
    close(code_page[1]);
    return number;
}

TEST(CodePageEnvironment, DecidesInItsOrder) {
    const struct {
        const char *all, *ctype, *lang;
        unsigned code_page;
    } cases[] = {
        {nullptr, nullptr, nullptr, 65001},
        {"ja_JP.SJIS", "de_DE.ISO-8859-15", "C", 932},
        {"", "de_DE.ISO-8859-15@euro", "ja_JP.SJIS", 28605},
        {nullptr, "", "ru_RU.KOI8-R", 20866},
        {"C", nullptr, "ja_JP.SJIS", 65001},
        {"C.UTF-8", nullptr, nullptr, 65001},
        {"ja_JP.ISO-2022-JP", nullptr, nullptr, 65001},
        {"ja_JP.eucJP", nullptr, nullptr, 51932},
        {"zh_CN.GB18030", nullptr, nullptr, 54936},
        {"xx_XX.no-such-charset", nullptr, nullptr, 65001},
        {"de_DE.UTF-16LE", nullptr, nullptr, 65001},
        {"de_DE.IBM-037", nullptr, nullptr, 65001},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(code_page_under(c.all, c.ctype, c.lang), c.code_page) << c.code_page;
    }
}

// A destructor that runs after the thread's own converter is gone may still convert.
TEST(CodePageEnvironment, ConvertsToTheEndOfAThread) {
    struct Last {
        ~Last() {
            char bytes[2];
            done = WideCharToMultiByte(CP_ACP, 0, TEXT("\u30BD"), 1, bytes, 2, nullptr, nullptr);
        }
        int done = 0;
        void Use() { done = 1; }
    };
    const auto run = [] {
        setenv("LC_ALL", "ja_JP.SJIS", 1);
        std::thread([] {
            thread_local Last last;
            last.Use();
            char bytes[2];
            WideCharToMultiByte(CP_ACP, 0, TEXT("\u6F22"), 1, bytes, 2, nullptr, nullptr);
        }).join();
        _exit(0);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
