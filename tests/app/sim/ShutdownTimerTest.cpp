// The shutdown timer's state machine, stepped through with virtual time. Host only: Windows' own
// timers do not follow the test clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/MainWindowFixture.h"

namespace halvern::test {
namespace {

int countPrefix(const std::vector<std::string>& messages, const std::string& prefix)
{
    return static_cast<int>(
        std::count_if(messages.begin(), messages.end(), [&](const std::string& m) { return m.rfind(prefix, 0) == 0; }));
}

class ShutdownTimerTest : public MainWindowTest {
protected:
    // The application answers `answer` during the second second of the close handler's wait.
    void answerDuringPasses(std::int32_t answer)
    {
        m_clock.onSleep = [answer](int sleepNumber) {
            if (sleepNumber == 2) SysManagerC::Instance()->SetAppShutdownAnswer(answer);
        };
    }
};

TEST_F(ShutdownTimerTest, NotStartedGetsSixtyMoreSeconds)
{
    auto application = startApplication();
    answerDuringPasses(APP_SHUTDOWN_NOT_STARTED);
    const std::uint64_t start = m_clock.tickCount64();
    EXPECT_EQ(closeAndRun(), 0);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages, {"WM_CLOSE - SHUTDOWN: 13", "Change to AppShutdownRequestState::SHUTDOWN_NOT_STARTED state",
                   "WM_TIMER - SHUTDOWN_TIMER1: 60", "WM_TIMER - SHUTDOWN_TIMER1: 0", "[2] DestroyLocalComponents",
                   "++ WM_DESTROY received"}));
    EXPECT_EQ(countPrefix(messages, "WM_TIMER - SHUTDOWN_TIMER1: "), 61);
    EXPECT_EQ(m_clock.tickCount64() - start, 2000u + 61u * 1000u + 400u) << "with the LED pauses of the quit";
}

TEST_F(ShutdownTimerTest, StartedApplicationGetsFifteenSecondsToEnd)
{
    auto application = startApplication();
    answerDuringPasses(APP_SHUTDOWN_STARTED);
    EXPECT_EQ(closeAndRun(), 0);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages, {"Change to AppShutdownRequestState::SHUTDOWN_STARTED state", "WM_TIMER - SHUTDOWN_TIMER1: 15",
                   "WM_TIMER - SHUTDOWN_TIMER1: 1", "[2] DestroyLocalComponents"}));
    EXPECT_EQ(countPrefix(messages, "WM_TIMER - SHUTDOWN_TIMER1: "), 15);
}

TEST_F(ShutdownTimerTest, StartedApplicationThatEndsCutsTheWaitShort)
{
    auto application = startApplication();
    answerDuringPasses(APP_SHUTDOWN_STARTED);
    platform::postMessage(m_window, platform::wm::Close, 0, 0);
    platform::Message message;
    int timerTicks = 0;
    while (platform::getMessage(message) > 0) {
        if (message.message == platform::wm::Timer && ++timerTicks == 4) platform::setEvent(application.get());
        platform::dispatchMessage(message);
    }
    m_quitSeen = true;
    EXPECT_EQ(timerTicks, 4);
    EXPECT_TRUE(containsInOrder(logMessages(), {"WM_TIMER - SHUTDOWN_TIMER1: 12", "[2] DestroyLocalComponents"}));
}

TEST_F(ShutdownTimerTest, AnswerChangesMoveBetweenTheWaitingStates)
{
    auto application = startApplication();
    answerDuringPasses(APP_SHUTDOWN_STARTED);
    platform::postMessage(m_window, platform::wm::Close, 0, 0);
    platform::Message message;
    int timerTicks = 0;
    while (platform::getMessage(message) > 0) {
        if (message.message == platform::wm::Timer) {
            ++timerTicks;
            if (timerTicks == 3) SysManagerC::Instance()->SetAppShutdownAnswer(APP_SHUTDOWN_NOT_STARTED);
            if (timerTicks == 10) SysManagerC::Instance()->SetAppShutdownAnswer(APP_SHUTDOWN_STARTED);
        }
        platform::dispatchMessage(message);
        if (timerTicks == 3) {
            EXPECT_EQ(GetAppShutdownRequestState(), AppShutdownRequestState::SHUTDOWN_NOT_STARTED);
        }
    }
    m_quitSeen = true;
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages, {"Change to AppShutdownRequestState::SHUTDOWN_STARTED state",
                   "Change to AppShutdownRequestState::SHUTDOWN_NOT_STARTED state",
                   "Change to AppShutdownRequestState::SHUTDOWN_STARTED state", "[2] DestroyLocalComponents"}));
    // Back in the started state the application gets fifteen seconds from then on.
    EXPECT_EQ(timerTicks, 10 + 15);
}

}  // namespace
}  // namespace halvern::test
