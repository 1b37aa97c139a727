// The system manager's overlay watch on the simulated write filter: its states, one announcement per
// change, and an end that comes cleanly also while a reading is under way. The pause between readings
// is the test's: each reading happens when the test lets it.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <vector>

#include "platform/Sync.h"
#include "platform/WriteFilterOverlay.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/WindowsControlCommands.h"
#include "support/TestEnvironment.h"
#include "sysmanager/OverlayWatchC.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

// A hang guard, never a measure: every wait here ends as soon as the watch has done its step.
constexpr auto kGuard = std::chrono::seconds(20);

TEST(OverlayStateTest, TheShareOfTheOverlayInUseGivesTheState)
{
    EXPECT_EQ(OverlayWatchC::stateOf(0, 0), OverlayWatchC::kStateNormal);
    EXPECT_EQ(OverlayWatchC::stateOf(49, 51), OverlayWatchC::kStateNormal);
    EXPECT_EQ(OverlayWatchC::stateOf(50, 50), OverlayWatchC::kStateWarning);
    EXPECT_EQ(OverlayWatchC::stateOf(79, 21), OverlayWatchC::kStateWarning);
    EXPECT_EQ(OverlayWatchC::stateOf(80, 20), OverlayWatchC::kStateCritical);
    EXPECT_EQ(OverlayWatchC::stateOf(4000000000u, 0), OverlayWatchC::kStateCritical) << "no overflow";
    EXPECT_EQ(OverlayWatchC::stateOf(0, 4000000000u), OverlayWatchC::kStateNormal);
}

class OverlayWatchTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addWindowsControlCommands(m_commands);
        m_tick = platform::createEvent(nullptr, false, false, L"");
        ASSERT_TRUE(m_tick);
    }

    void overlay(const std::string& figures) { ASSERT_EQ(m_commands.execute("uwf overlay " + figures), "OK"); }

    // Between readings the watch waits for the test's tick or its stop.
    OverlayWatchC::PauseFn pause()
    {
        return [this](platform::HandleValue stopEvent) {
            {
                std::lock_guard<std::mutex> guard(m_lock);
                ++m_readings;
            }
            m_changed.notify_all();
            return platform::waitForAnyObject({stopEvent, m_tick.get()}, platform::kInfinite) !=
                   platform::kWaitObject0 + 1;
        };
    }
    OverlayWatchC::NotifyFn notify()
    {
        return [this](std::int32_t state) {
            std::lock_guard<std::mutex> guard(m_lock);
            m_states.push_back(state);
        };
    }

    // Lets the watch read once more and waits until that reading is done.
    bool readingsDone(int readings)
    {
        std::unique_lock<std::mutex> lock(m_lock);
        return m_changed.wait_for(lock, kGuard, [&] { return m_readings >= readings; });
    }
    bool nextReading()
    {
        int next = 0;
        {
            std::lock_guard<std::mutex> guard(m_lock);
            next = m_readings + 1;
        }
        platform::setEvent(m_tick.get());
        return readingsDone(next);
    }
    std::vector<std::int32_t> states()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_states;
    }

    sim::ControlCommandsC m_commands;
    platform::UniqueHandle m_tick;
    std::mutex m_lock;
    std::condition_variable m_changed;
    int m_readings = 0;
    std::vector<std::int32_t> m_states;
};

TEST_F(OverlayWatchTest, EachChangeOfStateIsAnnouncedOnce)
{
    overlay("100 900");
    OverlayWatchC watch(platform::readWriteFilterOverlay, notify(), pause());
    ASSERT_TRUE(watch.start());
    ASSERT_TRUE(readingsDone(1));
    EXPECT_TRUE(states().empty()) << "a normal overlay is not news";

    overlay("600 400");
    ASSERT_TRUE(nextReading());
    ASSERT_TRUE(nextReading());
    EXPECT_EQ(states(), std::vector<std::int32_t>{2});
    overlay("850 150");
    ASSERT_TRUE(nextReading());
    overlay("900 100");
    ASSERT_TRUE(nextReading());
    EXPECT_EQ(states(), (std::vector<std::int32_t>{2, 3}));

    // Figures that cannot be read change nothing; the state is the last one read.
    std::remove((platform::sim::root() + "/sim/uwf/overlay").c_str());
    ASSERT_TRUE(nextReading());
    ASSERT_TRUE(nextReading());
    EXPECT_EQ(watch.lastState(), OverlayWatchC::kStateCritical);
    overlay("100 900");
    ASSERT_TRUE(nextReading());
    EXPECT_EQ(states(), (std::vector<std::int32_t>{2, 3, 1}));
    EXPECT_TRUE(watch.stop());

    int failures = 0;
    for (const auto& message : logMessages())
        if (message.rfind("[OverlayWatchC] [ERROR]: reading the write filter's overlay failed", 0) == 0) ++failures;
    EXPECT_EQ(failures, 1) << "a failing reading is logged once, not at every poll";
}

// Without the write filter an unreadable overlay is how things are, not an error: an error line in a normal
// start is to mean something.
TEST_F(OverlayWatchTest, AnUnreadableOverlayWhileTheFilterIsOffIsLoggedOnceAndNotAsAnError)
{
    // A fresh simulated instrument has its overlay, as a real one has.
    std::uint32_t used = 1, available = 0;
    ASSERT_TRUE(platform::readWriteFilterOverlay(used, available));
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(available, 1024u);

    // Its write filter is off (production and service mode); without the overlay's figures:
    std::remove((platform::sim::root() + "/sim/uwf/overlay").c_str());
    SysManagerC* manager = SysManagerC::Instance();
    ASSERT_TRUE(manager->startOverlayWatch(pause()));
    ASSERT_TRUE(readingsDone(1));
    ASSERT_TRUE(nextReading());
    EXPECT_TRUE(manager->stopOverlayWatch());
    SysManagerC::DestroyInstance();
    const auto messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(),
                         "[OverlayWatchC] the write filter is off and its overlay cannot be read, GLE=1168"),
              1);
    for (const auto& message : messages)
        EXPECT_EQ(message.find("[ERROR]"), std::string::npos) << message;

    // With the filter on, the same is an error.
    ASSERT_EQ(m_commands.execute("uwf on").rfind("OK", 0), 0u);
    manager = SysManagerC::Instance();
    ASSERT_TRUE(manager->startOverlayWatch(pause()));
    ASSERT_TRUE(nextReading());
    EXPECT_TRUE(manager->stopOverlayWatch());
    SysManagerC::DestroyInstance();
    EXPECT_NE(findMessage(logMessages(), "[OverlayWatchC] [ERROR]: reading the write filter's overlay failed, GLE=1168"),
              -1);
}

TEST_F(OverlayWatchTest, StoppingDuringAReadingEndsCleanlyWithoutAnnouncingIt)
{
    overlay("900 100");
    std::mutex gateLock;
    std::condition_variable gate;
    bool reading = false;
    bool released = false;
    OverlayWatchC watch(
        [&](std::uint32_t& consumption, std::uint32_t& available) {
            std::unique_lock<std::mutex> lock(gateLock);
            reading = true;
            gate.notify_all();
            gate.wait(lock, [&] { return released; });
            return platform::readWriteFilterOverlay(consumption, available);
        },
        notify(), pause());
    ASSERT_TRUE(watch.start());
    {
        std::unique_lock<std::mutex> lock(gateLock);
        ASSERT_TRUE(gate.wait_for(lock, kGuard, [&] { return reading; }));
    }
    watch.requestStop();
    {
        std::lock_guard<std::mutex> lock(gateLock);
        released = true;
    }
    gate.notify_all();
    EXPECT_TRUE(watch.stop());
    EXPECT_TRUE(states().empty());
    std::lock_guard<std::mutex> guard(m_lock);
    EXPECT_EQ(m_readings, 0) << "the watch ended instead of pausing";
}

}  // namespace
}  // namespace halvern::test
