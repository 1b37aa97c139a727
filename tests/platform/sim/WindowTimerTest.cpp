// Timers of the simulation platform follow the installed clock; Windows' own timers run on real time.
#include <gtest/gtest.h>

#include "platform/Clock.h"
#include "platform/Window.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

platform::LResult quitOnDestroy(platform::WindowHandle window, std::uint32_t message, platform::WParam wParam,
                                platform::LParam lParam)
{
    if (message == platform::wm::Destroy) platform::postQuitMessage(0);
    return platform::defWindowProc(window, message, wParam, lParam);
}

class WindowTimerTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        platform::WindowClassDesc desc;
        desc.className = L"HalvernTimerTest";
        desc.procedure = quitOnDestroy;
        platform::registerWindowClass(desc);  // once per process
        m_window = platform::createWindow(L"HalvernTimerTest", L"test", platform::kStyleOverlappedWindow);
        ASSERT_TRUE(m_window);
    }
    platform::WindowHandle m_window;
};

TEST_F(WindowTimerTest, TimerRepeatsUntilKilledAndFollowsTheClock)
{
    platform::ManualClockC clock;
    platform::setClock(&clock);
    const std::uint64_t start = clock.tickCount64();
    ASSERT_TRUE(platform::setTimer(m_window, 1, 1000));
    ASSERT_TRUE(platform::setTimer(m_window, 2, 250));
    int ticksOfOne = 0;
    int ticksOfTwo = 0;
    platform::Message message;
    while (platform::getMessage(message) > 0) {
        if (message.message != platform::wm::Timer) continue;
        if (message.wParam == 1 && ++ticksOfOne == 3) {
            EXPECT_TRUE(platform::killTimer(m_window, 1));
            EXPECT_TRUE(platform::killTimer(m_window, 2));
            platform::destroyWindow(m_window);
        }
        if (message.wParam == 2) ++ticksOfTwo;
    }
    EXPECT_EQ(clock.tickCount64() - start, 3000u);
    EXPECT_EQ(ticksOfTwo, 11);  // at 3000 ms the older timer comes first and ends the loop
    EXPECT_FALSE(platform::killTimer(m_window, 1));
}

}  // namespace
}  // namespace halvern::test
