// Runs the program ostrel-reg.

#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>

#include "support/registry.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

const std::string kDone = "The operation completed successfully.\n";
const std::string kMissing =
    "ERROR: The system was unable to find the specified registry key or value.\nexit 1";
const std::string kSyntax = "ERROR: Invalid syntax. Type \"ostrel-reg --help\" for usage.\nexit 1";
const std::string kCancelled = "ERROR: The operation was cancelled.\nexit 1";

// Each test has a registry and a folder of its own.
class OstrelReg : public testing::Test {
protected:
    // Runs commands of the shell in order. Each is followed by what it prints, with its exit code
    // when that is not 0.
    static void Expect(const std::vector<std::pair<std::string, std::string>> &rows) {
        for (const auto &[command, output] : rows) {
            const std::string whole = "reg() { " OSTREL_REG " \"$@\"; }\n{ " + command + "\n} 2>&1";
            std::FILE *const pipe = popen(whole.c_str(), "r");
            std::string text;
            for (int c; (c = std::getc(pipe)) != EOF;) {
                text += static_cast<char>(c);
            }
            const int status = pclose(pipe);
            text += status != 0 ? "exit " + std::to_string(WEXITSTATUS(status)) : "";
            EXPECT_EQ(text, output) << command;
        }
    }

    const TempDir m_dir;
    const RegistryFolder m_folder;
};

TEST_F(OstrelReg, AddsAndShowsEachType) {
    const std::string key = "\nHKEY_CURRENT_USER\\A\n";
    const char *const kRows[][3] = {
        // options of add, options of query, what is shown
        {R"(/v s /d 'a "b"')", "/v S", R"(s    REG_SZ    a "b")"},
        {"/v m /t REG_MULTI_SZ /s , /d x,y /f", "/v m /se +", "m    REG_MULTI_SZ    x+y"},
        {"/v d /t REG_DWORD /d 0xFFFFFFFF", "/v d /z", "d    REG_DWORD (4)    0xffffffff"},
        {"/v q /t 11 /d 18446744073709551615", "/v q", "q    REG_QWORD    0xffffffffffffffff"},
        {"/v b /t 0x1234 /d 00fF", "/v b", "b    0x1234    00FF"},
    };
    for (const auto &[add, query, shown] : kRows) {
        Expect({{std::string("reg add HKCU/A ") + add + " && reg query 'HKCU\\A' " + query,
                 kDone + key + "    " + shown + '\n'}});
    }
    Expect({
        {"reg query HKCU/A --json", R"([
  {"key": "HKEY_CURRENT_USER\\A", "values": [
    {"name": "s", "type": "REG_SZ", "data": "a \"b\""},
    {"name": "m", "type": "REG_MULTI_SZ", "data": ["x", "y"]},
    {"name": "d", "type": "REG_DWORD", "data": 4294967295},
    {"name": "q", "type": "REG_QWORD", "data": 18446744073709551615},
    {"name": "b", "type": "0x1234", "hex": "00FF"}], "subkeys": []}
]
)"},
    });
}

TEST_F(OstrelReg, QuotesNamesThatNeedIt) {
    Expect({
        {R"~(reg add 'HKCU\a/b' /v ' x' /d "$(printf 'l\nm\033')" && reg query 'HKCU\a/b')~",
         kDone + "\nHKEY_CURRENT_USER\\a/b\n    \" x\"    REG_SZ    \"l\\nm\\u001b\"\n"},
        {R"~(reg add 'HKCU\a/b' /v "$(printf '\355\240\200\360\237\230\200')" /f; reg query 'HKCU\a/b' /f '*' /t REG_SZ /v -e | tail -3)~",
         kDone + "    \"\\ud800\xF0\x9F\x98\x80\"    REG_SZ    \n\nEnd of search: 2 match(es) "
                 "found.\n"},
        {R"~(reg query "$(printf 'HKCU\\\377')")~", "ERROR: An argument is no UTF-8.\nexit 1"},
    });
}

TEST_F(OstrelReg, Searches) {
    const std::string a = "\nHKEY_CURRENT_USER\\A\n", b = "\nHKEY_CURRENT_USER\\A\\Blue\n";
    const std::string x = "    x    REG_SZ    blue sky\n", n = "    Bluex    REG_DWORD    0x7\n";
    const auto found = [](int count) {
        return "\nEnd of search: " + std::to_string(count) + " match(es) found.\n" +
               (count == 0 ? "exit 1" : "");
    };
    Expect({
        {"reg add HKCU/A /v x /d 'blue sky'; reg add HKCU/A/Blue /v Bluex /t 4 /d 7",
         kDone + kDone},
        {"reg query HKCU/A", a + x + b},
        {"reg query HKCU/A /s", a + x + b + n},
        {"reg query HKCU/A /s /f blue /k", b + found(1)},
        {"reg query HKCU/A /s /f 'b?u*y' /e", a + x + found(1)},
        {"reg query HKCU/A /s /f green", found(0)},
        {"reg query HKCU/A /s /v bluex", b + n + found(1)},
        {"reg query HKCU/A /s /t REG_DWORD,REG_QWORD", b + n + found(1)},
        {"reg query HKCU/A /k", "ERROR: /k, /d, /c and /e need /f.\nexit 1"},
    });
}

TEST_F(OstrelReg, AsksBeforeItDestroys) {
    const std::string exists = "Value v exists, overwrite(Yes/No)? ";
    const std::string key = "Permanently delete the registry key HKEY_CURRENT_USER\\A (Yes/No)? ";
    Expect({
        {"reg add HKCU/A/B /v v /d 1; reg add HKCU/A/B /d 1 && reg add HKCU/A /v v /d 1",
         kDone + kDone + kDone},
        {"echo NO | reg add HKCU/A /v v /d 2", exists + kCancelled},
        {"printf 'x\\nyes\\n' | reg add HKCU/A /v v /d 2", exists + exists + kDone},
        {"echo n | reg delete HKCU/A", key + kCancelled},
        {"reg delete HKCU/A /f && reg query HKCU/A", kDone + kMissing},
        {"reg add HKCU/C/D /v v /d 1; reg copy HKCU/C HKCU/E /s && reg query HKCU/E /s",
         kDone + kDone +
             "\nHKEY_CURRENT_USER\\E\n\nHKEY_CURRENT_USER\\E\\D\n"
             "    v    REG_SZ    1\n"},
        {"reg copy HKCU/C HKCU/c", "ERROR: The registry key cannot be copied onto itself.\nexit 1"},
    });
}

TEST_F(OstrelReg, ExportsAndImports) {
    m_dir.Write("bad.reg", "REGEDIT4\n[HKEY_CURRENT_USER\\A\\New]\n@=x\n");
    m_dir.Write("old.reg", R"(REGEDIT4
[HKEY_CURRENT_USER\A]
"m"=hex(7):61,00,00
"v"=-
[-HKEY_CURRENT_USER\a\b]
[HKEY_CLASSES_ROOT\.x]
@="x")");
    Expect({
        {"reg add HKCU/A/B; reg add HKCU/A /v v /d '\\ä'; reg add HKCU/A /t 4 /d 42",
         kDone + kDone + kDone},
        {"reg export HKCU/A a.reg && iconv -f UTF-16 -t UTF-8 a.reg | tr -d '\\r'",
         kDone + "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\A]\n"
                 "\"v\"=\"\\\\ä\"\n@=dword:0000002a\n\n[HKEY_CURRENT_USER\\A\\B]\n\n"},
        {"reg export HKCU/A - | cmp - a.reg && stat -c %a a.reg", "600\n"},
        {"echo n | reg export HKCU/A a.reg",
         "File a.reg already exists. Overwrite (Yes/No)? " + kCancelled},
        {"reg import bad.reg; reg query HKCU/A/New",
         "ERROR: bad.reg, line 3: a value's data begins with none of \" dword: hex: hex( "
         "-. Nothing was imported.\n" +
             kMissing},
        {"reg import old.reg && reg query HKCU/A && reg query HKLM/Software/Classes/.x",
         kDone + "\nHKEY_CURRENT_USER\\A\n    (Default)    REG_DWORD    0x2a\n"
                 "    m    REG_MULTI_SZ    a\n"
                 "\nHKEY_LOCAL_MACHINE\\Software\\Classes\\.x\n    (Default)    REG_SZ    x\n"},
        {"reg delete HKCU/A /f >b && iconv -f UTF-16 -t UTF-8 a.reg | reg import - && "
         "reg export HKCU/A - | cmp - a.reg",
         kDone},
    });
}

TEST_F(OstrelReg, ChecksTheStores) {
    const std::string machine = "machine    " + m_folder.Path("machine.db");
    const std::string user = "user    " + m_folder.Path("user.db");
    Expect({
        {"reg where", machine + '\n' + user + '\n'},
        {"reg check", machine + "    none yet\n" + user + "    none yet\n"},
        {"reg add HKCU/A && reg check", kDone + machine + "    none yet\n" + user + "    sound\n"},
        {"echo rubbish >\"$OSTREL_REGISTRY/machine.db\"; reg check",
         machine + "    damaged\n    file is not a database\n" + user + "    sound\nexit 1"},
    });
}

TEST_F(OstrelReg, CompactsTheStores) {
    Expect({
        {"reg add HKCU/A /v n /d 1 && reg add HKCU/B /v l /t REG_BINARY /d "
         "$(printf '%0100000d' 0) && reg delete HKCU/B /f",
         kDone + kDone + kDone},
        {"reg compact | sed -n 's/.*user.db    //p' | while read -r before _ _ now _; do "
         "[ \"$before\" -ge 50000 ] && [ \"$now\" -lt 50000 ] && echo smaller; done",
         "smaller\n"},
        {"reg query HKCU/A && reg add HKCU/A /v n /d 2 /f && reg check | grep -c sound",
         "\nHKEY_CURRENT_USER\\A\n    n    REG_SZ    1\n" + kDone + "1\n"},
    });
}

// Each change is made when the one before has been printed.
TEST_F(OstrelReg, WatchesAKey) {
    const std::string key = "    HKEY_CURRENT_USER\\A";
    Expect({{R"(
reg add HKCU/A/B /v gone && mkfifo told seen && { reg watch HKCU/A /s 2>told >seen & } &&
exec 3<told 4<seen && show() { read -r line <&$1 && echo "$line"; } && show 3 &&
reg add HKCU/A /v n /t REG_DWORD /d 1 && show 4 && reg delete HKCU/A/B /v gone /f && show 4 &&
reg add HKCU/A/C && show 4 && reg delete HKCU/A/C /f && show 4 && reg delete HKCU/A /f && show 4 &&
wait $!)",
             kDone + "Watching HKEY_CURRENT_USER\\A\n" + kDone + "set" + key +
                 "    n    REG_DWORD    0x1\n" + kDone + "unset" + key + "\\B    gone\n" + kDone +
                 "created" + key + "\\C\n" + kDone + "deleted" + key + "\\C\n" + kDone + "deleted" +
                 key + '\n'}});
}

}  // namespace
