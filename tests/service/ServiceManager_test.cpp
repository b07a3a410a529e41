#include "ostrel/service/ServiceManager.h"

#include "support/processes.h"
#include "support/trace_capture.h"

namespace {

std::string lines_of(const std::string &command, const std::string &end) {
    const std::string head = " .\\ServiceManager.cpp ";
    return "272" + head + "KillProcess\n258" + head + "Command line: " + command + '\n' +
           (end.empty() ? "" : end.substr(0, 4) + head.substr(1) + end.substr(4) + '\n') + "273" +
           head + "KillProcess\n";
}

TEST(ServiceManager, KillsTheProcessesOfANameAndNoOthers) {
    const TempDir dir;
    const std::tuple<const char *, std::u16string, bool> cases[] = {
        {"victim", u"VICTIM", true},
        {"victim", u"victim.EXE", true},
        {"victim.exe", u"victim.exe", true},
        {"victim.exe", u"victim", false},
        {"a \"b\" & | % ^ ' $(c) `d`", u"a \"b\" & | % ^ ' $(c) `d`", true},
        {"x\" \"y", u"x\" \"y", true},
        {"victim", u"victim\" /im \"victim", false},
        {"victim", u"victim\" \"x", false},
        {"victim", u"\"victim\"", false},
        {"line\nbreak", u"line\nbreak", true},
        {"back\\", u"back\xDC5C", true},
        {"back\\", u"back\\", true},
        {" victim ", u" victim ", true},
        {"victim", u" victim ", false},
        {"*", u"*", true},
        {"\xFF\xE3\x81\x82", u"\xDCFF\u3042", true},
    };
    for (const auto &[file, name, killed] : cases) {
        NamedProcess victim(std::string("./") + file), second(std::string("./") + file);
        const NamedProcess bystander("./victims");
        ASSERT_EQ(KillProcess(name.c_str()), killed) << PrintToString(name);
        EXPECT_EQ(
            killed ? victim.WasKilled() && second.WasKilled() : !victim.Runs() || !second.Runs(),
            killed)
            << PrintToString(name);
        EXPECT_TRUE(bystander.Runs()) << PrintToString(name);
    }
}

TEST(ServiceManager, KillsWhenNobodyReadsWhatTheCommandPrints) {
    const TempDir dir;
    const NamedProcess process("./unread");
    EXPECT_TRUE(holds_in_child([] {
        int pipe[2];
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        ASSERT_TRUE(close(pipe[0]) == 0 && dup2(pipe[1], 1) == 1);
        signal(SIGPIPE, SIG_IGN);
        EXPECT_TRUE(KillProcess(u"unread"));
    }));
}

TEST(ServiceManager, TellsByItsTraceWhatWasDone) {
    const TempDir dir;
    const NamedProcess process("./traced");
    const std::pair<std::u16string, std::string> cases[] = {
        {u"traced", "258 Process exit code: 0"},
        {u"no such process", "258 Process exit code: 128"},
        {u"", "258 Process exit code: 1"},
    };
    for (const auto &[name, end] : cases) {
        const TraceCapture capture;
        EXPECT_EQ(KillProcess(name.c_str()), end.back() == '0');
        EXPECT_EQ(capture.Lines(), lines_of("CMD.exe /C \"taskkill /im \"" +
                                                std::string(name.begin(), name.end()) + "\" /F \"",
                                            end));
    }
}

TEST(ServiceManager, CutsALongCommandLineWhichThenKillsNothing) {
    const TempDir dir;
    const NamedProcess process("./spared");
    for (const char *const begin : {"x", "spared\" /F \""}) {
        const std::string text = begin + std::string(20'000, ' ');
        const TraceCapture capture;
        EXPECT_FALSE(KillProcess(std::u16string(text.begin(), text.end()).c_str()));
        EXPECT_EQ(capture.Lines(),
                  lines_of(("CMD.exe /C \"taskkill /im \"" + text).substr(0, 16383),
                           "258 Process exit code: 1"));
    }
    EXPECT_TRUE(process.Runs());
}

}  // namespace
