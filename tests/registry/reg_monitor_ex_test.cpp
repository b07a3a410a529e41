// The change notifier over a registry. How its threads meet is in reg_monitor_ex_races_test.cpp.

#include "ostrel/registry/reg_monitor_ex.h"

#include "support/notifier.h"
#include "support/signals.h"

namespace {

class RegMonitorEx : public testing::Test {
protected:
    RegMonitorEx() { Calls::All().count = 0; }
    ~RegMonitorEx() override {
        Calls::All().Set(0, nullptr);
        Calls::All().Take();
    }
    // Changes a key until that is seen: its unit may not be armed yet.
    template <class Condition>
    static void ChangeUntil(HKEY key, Condition is_seen) {
        for (DWORD i = 0; !is_seen(); ++i) {
            EXPECT_EQ(set_number(key, TEXT("n"), i), 0);
        }
    }

    const RegistryFolder &m_folder = RegistryFolder::OfProcess();
    const TestKey m_key = created(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Ex");
};

TEST_F(RegMonitorEx, TellsWhatOtherProcessesChange) {
    for (const bool has_subtree : {false, true}) {
        static OS::x_wstring name;
        name = has_subtree ? TEXT("SOFTWARE") : TEXT("SOFTWARE\\Ex");
        Calls::All().Set(0, [](const OS::x_wstring &told) { EXPECT_EQ(told, name); });
        ASSERT_TRUE(monitor().RegisterRegNotify(name, has_subtree, callback<0>, false));
        int before = Calls::All().count;
        ChangeUntil(m_key, [before] { return Calls::All().count != before; });
        before = Calls::All().count;
        EXPECT_TRUE(holds_in_child([&] { EXPECT_EQ(set_number(m_key, TEXT("n"), 1000000), 0); }));
        until([&] { return Calls::All().count > before; });
        monitor().Unregister(name, has_subtree, callback<0>);
    }
}

TEST_F(RegMonitorEx, HasAThousandUnits) {
    std::vector<TestKey> keys;
    const auto name = [](std::size_t i) {
        OS::x_wstring text;
        text.Format(TEXT("SOFTWARE\\Ex\\%d"), static_cast<int>(i));
        return text;
    };
    for (std::size_t i = 0; i < 1000; ++i) {
        keys.push_back(created(HKEY_LOCAL_MACHINE, name(i)));
        ASSERT_TRUE(monitor().RegisterRegNotify(name(i), false, callback<0>, false));
    }
    for (std::size_t i = 0; i < 1000; ++i) {
        const std::string call = "\\" + std::to_string(i) + ' ';
        ChangeUntil(keys[i], [&] { return Calls::All().Take().find(call) != call.npos; });
        monitor().Unregister(name(i), false, callback<0>);
    }
}

TEST_F(RegMonitorEx, RegistersAndUnregistersWhileChangesCome) {
    static std::atomic<bool> is_registered{false};
    Calls::All().Set(0, [](const OS::x_wstring &) { EXPECT_TRUE(is_registered); });
    std::atomic<bool> ends{false};
    std::thread others([&] {
        on_threads(3, [&](std::size_t number) {
            const Callback other = number == 1 ? callback<1> : callback<2>;
            for (DWORD i = 0; !ends; ++i) {
                if (number == 0) {
                    set_number(m_key, TEXT("n"), i);
                } else {
                    monitor().RegisterRegNotify(TEXT("SOFTWARE\\Ex"), false, other, true);
                    monitor().Unregister(TEXT("SOFTWARE\\Ex"), false, other);
                }
            }
        });
    });
    for (int i = 0; i < 300; ++i) {
        is_registered = true;
        EXPECT_TRUE(monitor().RegisterRegNotify(TEXT("SOFTWARE\\Ex"), false, callback<0>, false));
        until([calls = Calls::All().count.load()] { return Calls::All().count != calls; });
        monitor().Unregister(TEXT("SOFTWARE\\Ex"), false, callback<0>);
        is_registered = false;  // no call runs any more
    }
    ends = true;
    others.join();
}

}  // namespace
