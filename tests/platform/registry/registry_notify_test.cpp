// RegNotifyChangeKeyValue within one process.

#include "support/registry.h"
#include "support/signals.h"

namespace {

class RegistryNotify : public testing::Test {
protected:
    ~RegistryNotify() override { CloseHandle(m_event); }
    LSTATUS Arm(HKEY key, BOOL subtree = FALSE, DWORD filter = REG_NOTIFY_CHANGE_LAST_SET) const {
        return RegNotifyChangeKeyValue(key, subtree, filter, m_event, TRUE);
    }
    bool IsTold(DWORD wait = 5000) const {
        return WaitForSingleObject(m_event, wait) == WAIT_OBJECT_0;
    }

    const HANDLE m_event = event(false);
    const TestKey m_above = emptied(u"Software\\Notify");
    const TestKey m_key = created(m_above, u"a");
};

TEST_F(RegistryNotify, TellsOfTheChangesOfItsFilter) {
    const struct {
        const char *name;
        BOOL subtree;
        DWORD filter;
        void (*change)(HKEY);
        bool is_told;
    } kRows[] = {
        {"a value is set", FALSE, 4, [](HKEY key) { set_number(key, u"v", 1); }, true},
        {"a value is deleted", FALSE, 4, [](HKEY key) { RegDeleteValueW(key, u"v"); }, true},
        {"a value, by names", FALSE, 1, [](HKEY key) { set_number(key, u"v", 1); }, false},
        {"a key is created", FALSE, 1, [](HKEY key) { created(key, u"b\\c"); }, true},
        {"a key, by values", FALSE, 4, [](HKEY key) { created(key, u"d"); }, false},
        {"an inner value", FALSE, 5, [](HKEY key) { set_number(created(key, u"b"), u"", 1); },
         false},
        {"an inner value, in the tree", TRUE, 4,
         [](HKEY key) { set_number(created(key, u"b\\c"), u"", 1); }, true},
        {"a key is deleted", FALSE, 1, [](HKEY key) { RegDeleteTreeW(key, u"b"); }, true},
        {"nothing", TRUE, 15, [](HKEY key) { RegDeleteValueW(key, u"missing"); }, false},
    };
    for (const auto &row : kRows) {
        ResetEvent(m_event);  // which the end of the last row's handle may have set
        const TestKey key = created(m_above, u"a");
        ASSERT_EQ(Arm(key, row.subtree, row.filter), 0) << row.name;
        row.change(m_key);
        // A change of another watch shows that all before it have been looked at.
        const Handles seen{event(false)};
        ASSERT_EQ(RegNotifyChangeKeyValue(m_above, FALSE, 4, seen[0], TRUE), 0);
        set_number(m_above, u"x", 1);
        EXPECT_EQ(WaitForSingleObject(seen[0], 5000), WAIT_OBJECT_0);
        EXPECT_EQ(IsTold(row.is_told ? 5000 : 0), row.is_told) << row.name;
        EXPECT_FALSE(IsTold(0)) << row.name;
    }
}

TEST_F(RegistryNotify, TellsOnceForEachArmingAndKeepsWhatComesBetween) {
    ASSERT_EQ(Arm(m_key), 0);
    set_number(m_key, u"v", 1);
    EXPECT_TRUE(IsTold());
    set_number(m_key, u"v", 2);
    set_number(m_key, u"v", 3);
    EXPECT_FALSE(IsTold(0));
    ASSERT_EQ(Arm(m_key, TRUE, 1), 0);  // other arguments have no effect
    EXPECT_TRUE(IsTold(0));
}

TEST_F(RegistryNotify, TellsOfTheEndOfKeyHandleAndThread) {
    ASSERT_EQ(Arm(m_key), 0);
    RegDeleteKeyW(m_above, u"a");
    EXPECT_TRUE(IsTold());
    EXPECT_EQ(Arm(m_key), 1018);

    ASSERT_EQ(Arm(created(HKEY_CURRENT_USER, u"Software")), 0);  // and closed
    EXPECT_TRUE(IsTold(0));

    std::thread([&] { EXPECT_EQ(Arm(m_above), 0); }).join();
    EXPECT_TRUE(IsTold(0));
    std::thread([&] { EXPECT_EQ(Arm(m_above, FALSE, 4 | REG_NOTIFY_THREAD_AGNOSTIC), 0); }).join();
    EXPECT_FALSE(IsTold(0));
}

TEST_F(RegistryNotify, BlocksWithoutAnEvent) {
    std::atomic<bool> returned{false};
    std::thread waiting([&] {
        EXPECT_EQ(RegNotifyChangeKeyValue(m_key, FALSE, 4, nullptr, FALSE), 0);
        returned = true;
    });
    for (DWORD i = 0; !returned; ++i) {
        set_number(m_key, u"v", i);
    }
    waiting.join();
}

TEST_F(RegistryNotify, ChecksItsArguments) {
    EXPECT_EQ(Arm(created(HKEY_CURRENT_USER, u"Software", KEY_QUERY_VALUE)), 5);
    EXPECT_EQ(RegNotifyChangeKeyValue(m_key, FALSE, 4, nullptr, TRUE), 87);
    EXPECT_EQ(RegNotifyChangeKeyValue(m_key, FALSE, 4, m_key, TRUE), 6);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(Arm(m_key), 0);
    }
    EXPECT_EQ(Arm(m_key), 87);
}

}  // namespace
