// The main window as a frontend sees it: the controller's notifications reach the main window, every
// client of both ports hears the button and the coming shutdown, and the instrument goes down.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "app/MainWindowFixture.h"
#include "app/StartUpSteps.h"
#include "platform/sim/SimRoot.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/server/SepServer.h"
#include "sim/ControlCommands.h"
#include "sim/WindowsControlCommands.h"
#include "sim/efi/EfiControlCommands.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

class MainWindowOverSepTest : public MainWindowTest {
protected:
    void SetUp() override
    {
        MainWindowTest::SetUp();
        // The hold is measured by the window against the clock the controller's notifications arrive by.
        platform::setClock(nullptr);
        sim::addEfiControlCommands(m_commands, m_model, m_service);
        sim::addWindowsControlCommands(m_commands);
        ASSERT_TRUE(m_service.start());
        SysManagerC::Instance()->SetMainWindow(m_window);
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
        ASSERT_TRUE(StartSepServer());
        m_clients = connectToEveryPort();
        ASSERT_EQ(m_clients.size(), 2u);
    }
    void TearDown() override
    {
        if (m_hold.joinable()) m_hold.join();
        m_clients.clear();
        StopSepServer();
        MainWindowTest::TearDown();
        m_service.stop();
    }

    // The events a client received until its connection closed: (id, first value of the record).
    static std::vector<std::pair<int, std::int64_t>> eventsOf(SEP::SepClientC& client)
    {
        std::vector<std::pair<int, std::int64_t>> events;
        std::vector<std::uint8_t> frame;
        while (client.receiveFrame(frame, 5000)) {
            SEP::DecodedFrameT event;
            std::int32_t code = 0, facility = 0;
            std::uint16_t level = 0;
            if (!SEP::decodeFrame(frame, event) || event.kind != SEP::MESSAGE_KIND_EVENT ||
                !event.coder->readI32(code) || !event.coder->readI32(facility) || !event.coder->readU16(level))
                continue;
            std::int32_t button = 0;
            std::uint32_t timeout = 0;
            if (event.messageId == 1000 && event.coder->readI32(button)) events.emplace_back(1000, button);
            if (event.messageId == 1003 && event.coder->readU32(timeout)) events.emplace_back(1003, timeout);
        }
        return events;
    }

    sim::ControlCommandsC m_commands;
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    std::vector<std::unique_ptr<SEP::SepClientC>> m_clients;
    std::thread m_hold;
};

TEST_F(MainWindowOverSepTest, HoldingTheButtonTellsEveryClientAndShutsDown)
{
    // Halvern's notification reader connects on a thread of its own; a press before that would be lost.
    for (int wait = 0; wait < 500 && m_service.readers() == 0; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(m_service.readers(), 1);
    m_hold = std::thread([this] { m_commands.execute("efi button hold 600"); });
    EXPECT_EQ(runUntilQuit(), 0);
    m_quitSeen = true;
    // The close sequence announces the shutdown with the applications' time to react, the power cycle
    // again with Windows' own delay.
    const std::vector<std::pair<int, std::int64_t>> expected = {{1000, 1}, {1000, 2}, {1003, 16000}, {1003, 0}};
    for (auto& client : m_clients)
        EXPECT_EQ(eventsOf(*client), expected);
    EXPECT_TRUE(containsInOrder(
        logMessages(), {">>> Initiate System Shutdown >>>", "++ WM_CLOSE received", "Initiate Shutdown sequence",
                        "[2] DestroyLocalComponents", "++ WM_DESTROY received"}));
    // The controller went as far as the blinking red LED and was never asked to restart the instrument.
    const auto told = m_model.commandHistory();
    EXPECT_THAT(told, Contains(L"LED:BLINK:OFF:OFF"));
    EXPECT_THAT(told, Not(Contains(L"BASIC:REBOOT")));
}

// The instrument comes back only when its controller is told so, after the LED blinks red.
TEST_F(MainWindowOverSepTest, ARebootTellsTheControllerToRestartAfterTheBlinkingLed)
{
    SysManagerC::Instance()->ConfigurePowerCycleRequest(POWER_REQUEST_REBOOT, true, 0);
    EXPECT_EQ(closeAndRun(), 0);
    EXPECT_TRUE(containsInOrder(logMessages(), {"Initiate Reboot sequence", "Set power LED to blinking RED"}));
    const auto told = m_model.commandHistory();
    const auto blink = std::find(told.begin(), told.end(), L"LED:BLINK:OFF:OFF");
    const auto reboot = std::find(told.begin(), told.end(), L"BASIC:REBOOT");
    ASSERT_NE(reboot, told.end());
    EXPECT_LT(blink, reboot) << "the LED blinks before the restart";
    EXPECT_EQ(std::count(told.begin(), told.end(), L"BASIC:REBOOT"), 1);
}

// The ids of the next `count` events a client receives.
std::vector<int> eventIds(SEP::SepClientC& client, std::size_t count)
{
    std::vector<int> ids;
    std::vector<std::uint8_t> frame;
    while (ids.size() < count && client.receiveFrame(frame, 5000)) {
        SEP::DecodedFrameT event;
        if (SEP::decodeFrame(frame, event) && event.kind == SEP::MESSAGE_KIND_EVENT) ids.push_back(event.messageId);
    }
    return ids;
}

// What each of the controller's notifications tells a connected client, through the window procedure: the
// button going down and up, the power source (1001) for code 5, the supervisor's intervention (1002) for
// code 4; code 3, errors and unknown categories nothing.
TEST_F(MainWindowOverSepTest, EachNotificationCodeRaisesItsOwnEventAndCodeThreeNone)
{
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 1);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 2);  // at once: too short to shut down
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 3);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 4);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 3);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 5);
    WndProc(m_window, WM_EFI_NOTIFICATION, 0, 3);
    WndProc(m_window, WM_EFI_NOTIFICATION, 7, 4);
    // A last press marks the end: anything raised before it is in the list.
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 1);
    const std::vector<int> expected = {1000, 1000, 1002, 1001, 1000};
    for (auto& client : m_clients)
        EXPECT_EQ(eventIds(*client, expected.size()), expected);
    EXPECT_NE(findMessage(logMessages(), "++WM_EFI_NOTIFICATION : Notification 3 received"), -1);
}

// The overlay's state as every client hears it: (state, MB used, MB available).
std::vector<std::vector<std::int64_t>> overlayEvents(SEP::SepClientC& client, std::size_t count)
{
    std::vector<std::vector<std::int64_t>> events;
    std::vector<std::uint8_t> frame;
    while (events.size() < count && client.receiveFrame(frame, 5000)) {
        SEP::DecodedFrameT event;
        std::int32_t code = 0, facility = 0, state = 0;
        std::uint16_t level = 0;
        std::uint32_t used = 0, available = 0;
        if (!SEP::decodeFrame(frame, event) || event.messageId != 1006) continue;
        if (event.coder->readI32(code) && event.coder->readI32(facility) && event.coder->readU16(level) &&
            event.coder->readI32(state) && event.coder->readU32(used) && event.coder->readU32(available))
            events.push_back({state, used, available});
    }
    return events;
}

TEST_F(MainWindowOverSepTest, OverlayStatesReachClientsWithTheOverlaysFiguresAndUsbRecyclingRestartsThePort)
{
    ASSERT_EQ(m_commands.execute("uwf overlay 600 400"), "OK");
    ASSERT_EQ(m_commands.execute("usb device add 046D C52B 3"), "OK");
    WndProc(m_window, WM_UWF_OVERLAY_STATE_2, 0, 0);
    WndProc(m_window, WM_UWF_OVERLAY_STATE_3, 0, 0);
    WndProc(m_window, WM_USB_PORT_RECYCLE, 0x70003, 0);
    const std::vector<std::vector<std::int64_t>> expected = {{2, 600, 400}, {3, 600, 400}};
    for (auto& client : m_clients)
        EXPECT_EQ(overlayEvents(*client, 2), expected);
    EXPECT_EQ(m_commands.execute("usb resets"), "OK 3");
}

TEST_F(MainWindowOverSepTest, TheOverlayWatchsChangeReachesClientsThroughTheMainWindow)
{
    ASSERT_EQ(m_commands.execute("uwf overlay 850 150"), "OK");
    // One reading, then the watch waits for its end.
    ASSERT_TRUE(SysManagerC::Instance()->startOverlayWatch([](platform::HandleValue stopEvent) {
        return platform::waitForSingleObject(stopEvent, platform::kInfinite) == platform::kWaitObject0;
    }));
    platform::Message message;
    do {
        ASSERT_EQ(platform::getMessage(message), 1);
        platform::dispatchMessage(message);
    } while (message.message != WM_UWF_OVERLAY_STATE_3);
    const std::vector<std::vector<std::int64_t>> expected = {{3, 850, 150}};
    for (auto& client : m_clients)
        EXPECT_EQ(overlayEvents(*client, 1), expected);
    EXPECT_TRUE(SysManagerC::Instance()->stopOverlayWatch());
}

}  // namespace
}  // namespace halvern::test
