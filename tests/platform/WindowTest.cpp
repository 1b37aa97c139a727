#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "app/resource.h"
#include "platform/Clock.h"
#include "platform/WinError.h"
#include "platform/Window.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

std::vector<platform::Message> g_received;

platform::LResult recordingProc(platform::WindowHandle window, std::uint32_t message, platform::WParam wParam,
                                platform::LParam lParam)
{
    // Windows sends a window messages of its own (activation, non-client): only these are the test's.
    if (message >= platform::wm::User || message == platform::wm::Close || message == platform::wm::Destroy ||
        message == platform::wm::NcDestroy || message == platform::wm::DeviceChange) {
        g_received.push_back(platform::Message{window, message, wParam, lParam});
    }
    if (message == platform::wm::Destroy) platform::postQuitMessage(7);
    return platform::defWindowProc(window, message, wParam, lParam);
}

class WindowTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        g_received.clear();
        platform::WindowClassDesc desc;
        desc.className = L"HalvernWindowTest";
        desc.procedure = recordingProc;
        platform::registerWindowClass(desc);  // once per process
        m_window = platform::createWindow(L"HalvernWindowTest", L"test", platform::kStyleOverlappedWindow);
        ASSERT_TRUE(m_window);
    }
    void TearDown() override
    {
        // Destroying posts the quit message; pumping it here leaves the queue empty for the next test.
        if (platform::isWindow(m_window)) {
            platform::destroyWindow(m_window);
            pump();
        }
        InstrumentTest::TearDown();
    }
    int pump(std::vector<std::uint32_t>* seen = nullptr)
    {
        platform::Message message;
        while (platform::getMessage(message) > 0) {
            if (seen != nullptr) seen->push_back(message.message);
            platform::dispatchMessage(message);
        }
        return static_cast<int>(message.wParam);
    }
    platform::WindowHandle m_window;
};

TEST_F(WindowTest, MessagesPostedFromOtherThreadsArriveInOrderBeforeQuit)
{
    std::thread poster([this] {
        for (int i = 0; i < 100; ++i)
            platform::postMessage(m_window, platform::wm::User + 1, i, -i);
        platform::postMessage(m_window, platform::wm::Close, 0, 0);
    });
    poster.join();
    // A quit posted while messages wait comes after them, with its code.
    EXPECT_EQ(pump(), 7);
    // The user messages, then WM_CLOSE, which the default handling turns into WM_DESTROY and WM_NCDESTROY.
    ASSERT_EQ(g_received.size(), 100u + 3u);
    EXPECT_EQ(g_received[100].message, platform::wm::Close);
    EXPECT_EQ(g_received[101].message, platform::wm::Destroy);
    EXPECT_EQ(g_received[102].message, platform::wm::NcDestroy);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(g_received[static_cast<std::size_t>(i)].wParam, static_cast<platform::WParam>(i));
        EXPECT_EQ(g_received[static_cast<std::size_t>(i)].lParam, -i);
    }
}

TEST_F(WindowTest, DefaultCloseDestroysAndLaterPostsFail)
{
    EXPECT_EQ(platform::defWindowProc(m_window, platform::wm::Close, 0, 0), 0);
    EXPECT_FALSE(platform::isWindow(m_window));
    ASSERT_EQ(g_received.size(), 2u);
    EXPECT_EQ(g_received[0].message, platform::wm::Destroy);
    EXPECT_EQ(g_received[1].message, platform::wm::NcDestroy);
    EXPECT_FALSE(platform::postMessage(m_window, platform::wm::User, 0, 0));
    EXPECT_EQ(platform::lastError(), platform::kErrorInvalidWindowHandle);
    EXPECT_EQ(pump(), 7);
}

TEST_F(WindowTest, ResourceStringsAreCutToTheBuffer)
{
    EXPECT_EQ(platform::loadString(IDS_APP_TITLE, 100), HALVERN_TEXT_APP_TITLE);
    EXPECT_EQ(platform::loadString(IDC_HALVERN, 100), HALVERN_TEXT_WINDOW_CLASS);
    EXPECT_EQ(platform::loadString(IDS_APP_TITLE, 4), std::wstring(HALVERN_TEXT_APP_TITLE).substr(0, 3));
    EXPECT_EQ(platform::loadString(4711, 100), L"");
}

TEST_F(WindowTest, WindowsAreFoundByTheirClass)
{
    EXPECT_EQ(platform::findWindow(L"halvernwindowtest"), m_window);
    EXPECT_FALSE(platform::findWindow(L"NoSuchHalvernClass"));
}

TEST_F(WindowTest, AWindowRegisteredForUsbDevicesHearsThemComeAndGo)
{
    platform::UniqueDeviceNotification registration = platform::registerUsbDeviceNotification(m_window);
    ASSERT_TRUE(registration) << platform::lastError();
    EXPECT_TRUE(platform::sendUsbDeviceChange(m_window, platform::kDbtDeviceArrival, 5000)) << platform::lastError();
    EXPECT_TRUE(platform::sendUsbDeviceChange(m_window, platform::kDbtDeviceRemoveComplete, 5000));
    platform::setLastError(platform::kErrorPipeBusy);
    registration.reset();
    EXPECT_EQ(platform::lastError(), platform::kErrorPipeBusy) << "unregistering keeps the caller's last error";
    // The close comes after the device changes, wherever they wait.
    platform::postMessage(m_window, platform::wm::Close, 0, 0);
    pump();
    std::vector<platform::WParam> events;
    for (const auto& received : g_received)
        if (received.message == platform::wm::DeviceChange) events.push_back(received.wParam);
    EXPECT_EQ(events, (std::vector<platform::WParam>{platform::kDbtDeviceArrival, platform::kDbtDeviceRemoveComplete}));
    EXPECT_FALSE(platform::registerUsbDeviceNotification(platform::WindowHandle{}));
}

TEST_F(WindowTest, CreatingAWindowOfAnUnknownClassFails)
{
    EXPECT_FALSE(platform::createWindow(L"NoSuchHalvernClass", L"x", 0));
    EXPECT_EQ(platform::lastError(), platform::kErrorCannotFindWndClass);
}

}  // namespace
}  // namespace halvern::test
