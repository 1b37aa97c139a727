// The shutdown timer's state machine, stepped through with virtual time, with the application's answer
// arriving over SEP. Host only: Windows' own
// timers do not follow the test clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "app/MainWindowFixture.h"
#include "sep/SepCommandTestSupport.h"

namespace halvern::test {
namespace {

int countPrefix(const std::vector<std::string>& messages, const std::string& prefix)
{
    return static_cast<int>(
        std::count_if(messages.begin(), messages.end(), [&](const std::string& m) { return m.rfind(prefix, 0) == 0; }));
}

class ShutdownTimerTest : public MainWindowTest {
protected:
    void TearDown() override
    {
        m_port.reset();
        MainWindowTest::TearDown();
    }
    // The application answers during the second second of the close handler's wait, as it does: with
    // command 1055 through a SEP port. The main thread waits in real time for the server to take it.
    void answerDuringPasses(std::int32_t answer)
    {
        m_port = std::make_unique<SepCommandPort>();
        m_clock.onSleep = [this, answer](int sleepNumber) {
            if (sleepNumber != 2) return;
            const bool start = answer == APP_SHUTDOWN_STARTED;
            ASSERT_TRUE(m_port->client().sendBytes(
                SEP::encodeFrame(SEP::CodingE::Binary, 1055, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                 [start](SEP::DataWriterI& w) { return w.writeBool(start); })));
            for (int wait = 0; wait < 1000 && SysManagerC::Instance()->GetAppShutdownAnswer() != answer; ++wait)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        };
    }
    // The client's waits run on the installed clock: its reply is read once real time is back.
    void expectAnswerAcknowledged()
    {
        platform::setClock(nullptr);
        std::vector<std::uint8_t> bytes;
        SEP::DecodedFrameT reply;
        std::int32_t code = 0;
        ASSERT_TRUE(m_port->client().receiveFrame(bytes, 10000) && SEP::decodeFrame(bytes, reply));
        EXPECT_EQ(reply.messageId, 1055);
        EXPECT_TRUE(reply.coder->readI32(code));
        EXPECT_EQ(code, HalvernRpc::kReturnCodeSuccess);
    }

    std::unique_ptr<SepCommandPort> m_port;
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
    expectAnswerAcknowledged();
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
    expectAnswerAcknowledged();
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
