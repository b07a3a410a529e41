// Operations on trees of which another user exchanges a name with a link to what lies outside.

#include <fcntl.h>

#include <atomic>
#include <thread>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

using namespace NS_FileUtils;

// Exchanges a name with that of the link `evil`, as often as the host can, while the object lives,
// and once before.
class Exchange {
public:
    explicit Exchange(const char *victim)
        : m_thread([this, victim] {
              while (!m_ends) {
                  renameat2(AT_FDCWD, victim, AT_FDCWD, "evil", RENAME_EXCHANGE);
                  if (!m_runs.exchange(true)) {
                      m_runs.notify_one();
                  }
              }
          }) {
        m_runs.wait(false);
    }
    ~Exchange() {
        m_ends = true;
        m_thread.join();
    }
    Exchange &operator=(Exchange &&) = delete;  // nor copied

private:
    std::atomic<bool> m_runs{false}, m_ends{false};
    std::thread m_thread;
};

void set_often(const WCHAR *path) {
    for (int i = 0; i < 200; ++i) {
        SetFileAttributesW(path, i % 2 != 0 ? kHidden | kReadOnly : kNormal);
    }
}

// The files of a directory with what a change of them would change.
std::string state_of(const fs::path &directory) {
    std::string state;
    for (const std::string &line : lines_of(directory)) {
        const fs::path file = directory / line.substr(0, line.find('='));
        const auto time = fs::last_write_time(file).time_since_epoch().count();
        state += line + ' ' + std::to_string(time) + ' ' +
                 std::to_string(GetFileAttributesW(file.u16string().c_str())) + '\n';
    }
    return state;
}

// For a longer run: ctest --repeat-until-fail.
TEST(ExchangedNames, NothingOutsideChanges) {
    constexpr char kTree[] =
        "s/d0/f0=x s/d1/f0=x s/d1/f1=x s/d1/f2=x s/d1/f3=x s/d1/f4=x s/d2/f=x ";
    constexpr char kTarget[] = "t/d0/f= t/d1/f0=y t/d1/f1=y t/d1/f4=y ";
    static constexpr auto copy = [] { copyDirectory(TEXT("s"), TEXT("t"), 1, 1, 0); };
    static constexpr auto move = [] { moveDirectory(TEXT("s"), TEXT("t"), 1, 0); };
    using Text = const char *;
    const std::tuple<Text, void (*)(), Text, Text, Text> cases[] = {
        {CALL(deleteTree(TEXT("s"), nullptr, nullptr, 1, 1, TEXT("*.*"))), "s/d1", "", "out"},
        {CALL(copy()), "t/d1", kTarget, "out"},
        {CALL(copy()), "s/d1", "", "out"},
        {CALL(copy()), "t/d1/f1", kTarget, "out/f1"},
        {CALL(move()), "s/d1", "", "out"},
        {CALL(move()), "t/d1", kTarget, "out"},
        {CALL(set_often(TEXT("s\\d1\\f1"))), "s/d1/f1", "", "out/f1"}};
    for (const auto &[text, change, victim, target, outside] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(text, victim)));
        const Planted dir("out/f0=o out/f1=o out/f2=o out/f3=o out/f9=o");
        const std::string before = state_of("out");
        bool changed = false, mixed = false;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        do {
            for (const char *name : {"s", "t", "evil"}) {
                fs::remove_all(name);
            }
            plant(std::string(kTree) + target);
            fs::create_symlink(dir.Path() / outside, "evil");
            ASSERT_EQ(renameat2(AT_FDCWD, victim, AT_FDCWD, "evil", RENAME_EXCHANGE), 0);
            {
                const Exchange exchange(victim);
                change();
            }
            changed = state_of("out") != before;
            // A directory is copied as it was found: all of what is outside, or none.
            const bool is_there = fs::is_directory(fs::symlink_status("t/d1"));
            const std::string copied = is_there ? tree("t/d1") : "";
            mixed = copied.find("=x") != copied.npos && copied.find("=o") != copied.npos;
        } while (!changed && !mixed && std::chrono::steady_clock::now() < end);
        EXPECT_FALSE(changed) << state_of("out");
        EXPECT_FALSE(mixed) << tree("t");
    }
}

}  // namespace
