#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/MainWindowFixture.h"

namespace halvern::test {
namespace {

// With no power request configured the power sequence quits: LEDs off, blinking green, each step
// followed by a 200 ms pause.
constexpr int kPowerSequenceSleeps = 2;
constexpr std::uint64_t kPowerSequenceMs = 400;

std::vector<std::string> closeTail()
{
    return {"Initiate Quit sequence", "Set power LED to blinking GREEN", "[2] DestroyLocalComponents",
            "[SysManagerC::DestroyInstance]", "++ WM_DESTROY received"};
}

TEST_F(MainWindowTest, CloseWithoutRunningApplicationShutsDownAtOnce)
{
    EXPECT_EQ(closeAndRun(), 0);
    const auto messages = logMessages();
    EXPECT_TRUE(
        containsInOrder(messages, {"++ WM_CLOSE received", "Set AppShutdownRequestState::WAIT_SHUTDOWN_CALL state",
                                   "WM_CLOSE - SHUTDOWN: 15", "Initiate Quit sequence", "[2] DestroyLocalComponents",
                                   "[SysManagerC::DestroyInstance]", "++ WM_DESTROY received"}));
    EXPECT_EQ(findMessage(messages, "WM_CLOSE - SHUTDOWN: 14"), -1);
    EXPECT_EQ(m_clock.sleeps(), kPowerSequenceSleeps);
    EXPECT_FALSE(platform::isWindow(m_window));
}

TEST_F(MainWindowTest, SilentApplicationIsWaitedForFifteenSecondsInTheCloseHandler)
{
    auto application = startApplication();
    const std::uint64_t start = m_clock.tickCount64();
    EXPECT_EQ(closeAndRun(), 0);
    EXPECT_EQ(m_clock.tickCount64() - start, 15000u + kPowerSequenceMs);
    const auto messages = logMessages();
    std::vector<std::string> expected;
    for (int pass = 15; pass >= 1; --pass)
        expected.push_back("WM_CLOSE - SHUTDOWN: " + std::to_string(pass));
    for (const auto& line : closeTail())
        expected.push_back(line);
    EXPECT_TRUE(containsInOrder(messages, expected));
}

TEST_F(MainWindowTest, ApplicationThatExitsDuringThePassesSkipsTheRemainingWait)
{
    auto application = startApplication();
    m_clock.onSleep = [&](int sleepNumber) {
        if (sleepNumber == 3) platform::setEvent(application.get());
    };
    EXPECT_EQ(closeAndRun(), 0);
    EXPECT_EQ(m_clock.sleeps(), 3 + kPowerSequenceSleeps);
    const auto messages = logMessages();
    EXPECT_NE(findMessage(messages, "WM_CLOSE - SHUTDOWN: 12"), -1);
    EXPECT_EQ(findMessage(messages, "WM_CLOSE - SHUTDOWN: 11"), -1);
    EXPECT_TRUE(containsInOrder(messages, closeTail()));
}

TEST_F(MainWindowTest, UnknownAnswerEndsTheWaitAtOnce)
{
    auto application = startApplication();
    m_clock.onSleep = [](int) { SysManagerC::Instance()->SetAppShutdownAnswer(7); };
    EXPECT_EQ(closeAndRun(), 0);
    EXPECT_EQ(m_clock.sleeps(), 1 + kPowerSequenceSleeps);
    EXPECT_TRUE(containsInOrder(logMessages(), {"WM_CLOSE - SHUTDOWN: 14", "[2] DestroyLocalComponents"}));
}

TEST_F(MainWindowTest, SessionAndPowerMessagesAreAnsweredAsWindowsExpects)
{
    SysManagerC::Instance()->SetMainWindow(m_window);  // as the start-up leaves it
    EXPECT_EQ(WndProc(m_window, platform::wm::QueryEndSession, 0, 0x80000000), 1);
    EXPECT_EQ(WndProc(m_window, platform::wm::QueryOpen, 0, 0), 0);
    EXPECT_EQ(WndProc(m_window, platform::wm::Power, 0, 0), 0);
    EXPECT_EQ(WndProc(m_window, platform::wm::EndSession, 1, 0), 0);
    // The instance is gone; a second teardown path must not run it again.
    SysManagerC::DestroyInstance();
    EXPECT_THAT(logMessages(),
                ::testing::ElementsAre("-----------------WM_QUERYENDSESSION (0x80000000)",
                                       "-----------------WM_QUERYOPEN", "-----------------WM_POWER",
                                       "-----------------WM_ENDSESSION", "[3] DestroyLocalComponents",
                                       "[SysManagerC::DestroyInstance]", "-----------------WM_ENDSESSION Handled"));
}

TEST_F(MainWindowTest, ExitCommandDestroysTheWindowWithoutTheCloseSequence)
{
    platform::postMessage(m_window, platform::wm::Command, IDM_EXIT, 0);
    EXPECT_EQ(runUntilQuit(), 0);
    m_quitSeen = true;
    EXPECT_THAT(logMessages(), ::testing::ElementsAre("++ WM_DESTROY received"));
}

}  // namespace
}  // namespace halvern::test
