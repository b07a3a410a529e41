#include "ostrel/registry/reg_monitor.h"

#include "ostrel/platform/sync.h"
#include "support/registry.h"

namespace {

using OS::CRegMonitor;

class RegMonitor : public testing::Test {
protected:
    RegMonitor() { m_monitor.RegisterMonitorKey(m_key, TEXT(""), KEY_READ); }
    void Change() { EXPECT_EQ(set_number(m_key, TEXT("n"), ++m_number), 0); }
    DWORD Wait(DWORD milliseconds) {
        return WaitForSingleObject(m_monitor.GetNotifyEvent(), milliseconds);
    }
    // Whether the event is not signalled: a later change of another key has been told.
    bool IsQuiet() {
        CRegMonitor other;
        other.RegisterMonitorKey(m_key, TEXT("Sub"), KEY_READ);
        set_number(created(m_key, u"Sub"), TEXT("n"), 1);
        return WaitForSingleObject(other.GetNotifyEvent(), INFINITE) == WAIT_OBJECT_0 &&
               Wait(0) == WAIT_TIMEOUT;
    }

    const TestKey m_key = emptied(u"Software\\Watched");
    CRegMonitor m_monitor;
    DWORD m_number = 0;
};

TEST_F(RegMonitor, SignalsValuesOfTheKeyOncePerArming) {
    created(m_key, u"Sub");
    EXPECT_TRUE(IsQuiet());  // subkeys and their values
    Change();
    EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0);
    Change();
    EXPECT_TRUE(IsQuiet());
    m_monitor.ContinueToMonitor();
    EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0);  // the change before
    m_monitor.ContinueToMonitor();
    EXPECT_TRUE(IsQuiet());
}

TEST_F(RegMonitor, HasNoEventWithoutAKey) {
    CRegMonitor none;
    EXPECT_EQ(none.GetNotifyEvent(), nullptr);
    none.RegisterMonitorKey(m_key, TEXT("None"), KEY_READ);
    EXPECT_EQ(none.GetNotifyEvent(), nullptr);
    m_monitor.RegisterMonitorKey(m_key, TEXT("None"), KEY_READ);  // has no effect
    void *const event = m_monitor.GetNotifyEvent();
    Change();
    EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0);
    m_monitor.RegisterMonitorKey(m_key, TEXT(""), KEY_READ);
    EXPECT_FALSE(SetEvent(event));  // closed for the new one
    Change();
    EXPECT_EQ(Wait(INFINITE), WAIT_OBJECT_0);
}

TEST_F(RegMonitor, SharesItsHandlesWithCopies) {
    void *event = nullptr;
    {
        const CRegMonitor first(m_monitor);
        CRegMonitor second;
        EXPECT_EQ(&(second = first), &second);
        event = second.GetNotifyEvent();
        EXPECT_EQ(event, m_monitor.GetNotifyEvent());
        EXPECT_TRUE(SetEvent(event));
    }
    EXPECT_FALSE(SetEvent(event));
}

}  // namespace
