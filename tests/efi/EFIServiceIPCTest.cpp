#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "app/MainWindow.h"
#include "efi/EFIServiceIPC.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "platform/Clock.h"
#include "platform/Window.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

std::vector<platform::Message> g_notifications;

platform::LResult notificationProc(platform::WindowHandle window, std::uint32_t message, platform::WParam wParam,
                                   platform::LParam lParam)
{
    if (message == WM_EFI_NOTIFICATION) g_notifications.push_back(platform::Message{window, message, wParam, lParam});
    if (message == platform::wm::Destroy) platform::postQuitMessage(0);
    return platform::defWindowProc(window, message, wParam, lParam);
}

int count(const std::vector<std::string>& messages, const std::string& text)
{
    return static_cast<int>(std::count(messages.begin(), messages.end(), text));
}

// Waits (in real time, a few seconds at most) until the log holds `text` `times` times.
bool waitForLog(const std::string& text, int times = 1)
{
    for (int i = 0; i < 5000; ++i) {
        if (count(logMessages(), text) >= times) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// Halvern's EFI client against the simulated EFI service, through real pipes.
class EFIServiceIPCTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        ASSERT_TRUE(m_service.start());
    }
    void TearDown() override
    {
        platform::setClock(nullptr);
        m_client.ShutdownEFICommunication();
        m_service.stop();
        if (platform::isWindow(m_window)) {
            platform::destroyWindow(m_window);
            platform::Message message;
            while (platform::getMessage(message) > 0)
                platform::dispatchMessage(message);
        }
        InstrumentTest::TearDown();
    }
    void createWindow()
    {
        platform::WindowClassDesc desc;
        desc.className = L"HalvernEfiNotificationTest";
        desc.procedure = notificationProc;
        platform::registerWindowClass(desc);  // once per process
        m_window = platform::createWindow(desc.className, L"test", platform::kStyleOverlappedWindow);
        ASSERT_TRUE(m_window);
        g_notifications.clear();
    }
    // Dispatches until a notification with this code has arrived.
    void pumpUntilCode(platform::LParam code)
    {
        platform::Message message;
        while (platform::getMessage(message) > 0) {
            platform::dispatchMessage(message);
            if (message.message == WM_EFI_NOTIFICATION && message.lParam == code) return;
        }
    }

    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    EFIServiceIPC m_client;
    platform::WindowHandle m_window;
};

TEST_F(EFIServiceIPCTest, CommandsRoundTripThroughTheService)
{
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    m_model.setBattery("L", "rsoc", 42);
    m_model.setBattery("H", "voltage", 15800);

    auto rsoc = m_client.ExecuteBatteryCommand(EFI_BATTERY_L, EFI_BATTERY_RSOC, true);
    ASSERT_TRUE(rsoc);
    EXPECT_EQ(rsoc->GetValue(), 42);
    auto voltage = m_client.ExecuteBatteryCommand(EFI_BATTERY_H, EFI_BATTERY_VOLTAGE, true);
    ASSERT_TRUE(voltage);
    EXPECT_EQ(voltage->GetValue(), 15800);
    // Without asking for the reply the caller gets nothing back, but the command is carried out.
    EXPECT_FALSE(m_client.ExecuteLEDCommand(EFI_LED_BLINK, EFI_LED_OFF, EFI_LED_OFF, false));
    EXPECT_EQ(m_model.leds(), L"BLINK:OFF:OFF");
    EXPECT_FALSE(m_client.ExecuteStatusControlCommand(EFI_SC_WAKEUPTIMER, EFI_SC_SET, 60, false));
    EXPECT_EQ(m_model.statusControl(L"WAKEUPTIMER"), 60);
    auto source = m_client.ExecuteStatusControlCommand(EFI_SC_PWRSOURCE, EFI_SC_GET, 0, true);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->GetValue(), sim::kPowerSourceMains);
    EFIServiceIPCDirectCommand setRegister(L"REG:SET:78:12");
    EXPECT_TRUE(m_client.ExecuteCommandTransaction(setRegister));
    EFIServiceIPCDirectCommand getRegister(L"REG:GET:78");
    ASSERT_TRUE(m_client.ExecuteCommandTransaction(getRegister));
    EXPECT_EQ(getRegister.GetReplyText(), L"12");
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(EFIServiceIPCTest, FailedCommandsAreLoggedWithRequestAndReply)
{
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    // Unknown to the client: never sent.
    EXPECT_FALSE(m_client.ExecuteBatteryCommand(EFI_BATTERY_L, 9, true));
    // Unknown to the service, and a reply that starts "[ERROR]" although the transaction went through.
    sim::EfiHwStatusState status;
    status.rawText = L"[ERROR] controller busy";
    m_model.setHwStatus(status);
    EXPECT_FALSE(m_client.ExecuteBasicCommand(EFI_BASIC_HWSTATUS, true));
    EFIServiceIPCDirectCommand unknown(L"REG:GET:99");
    EXPECT_FALSE(m_client.ExecuteCommandTransaction(unknown));
    EXPECT_EQ(unknown.GetReplyText().rfind(L"[ERROR]", 0), 0u);

    const auto messages = logMessages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].rfind("[EFIServiceIPCBatteryCommand::EFIServiceIPCBatteryCommand] [ERROR]: Battery command "
                                "ID 0:9 not found (",
                                0),
              0u);
    EXPECT_EQ(messages[1],
              "[EFIServiceIPC::ExecuteBatteryCommand] [ERROR]: Failed to execute BATTERY command: , Reply: !");
    EXPECT_EQ(messages[2],
              "[EFIServiceIPC::ExecuteBasicCommand] [ERROR]: Failed to execute BASIC command: "
              "BASIC:HWSTATUS, Reply: [ERROR] controller busy!");
}

TEST_F(EFIServiceIPCTest, NotificationsReachTheMainWindowOnceItIsHandedOver)
{
    createWindow();
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    // The service takes a moment to see the reader connect; it counts the readers it reached.
    for (int i = 0; i < 5000 && m_service.notify(L"7") == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    // Read before the window exists: dropped. The reader handles one notification at a time, so once
    // the next is logged, the first is done with.
    m_service.notify(L"8");
    ASSERT_TRUE(waitForLog("[EFIServiceIPC::ReadResponseFromEFI]: ReadResponseFromEFI [8]"));
    m_client.SetTargetWindow(m_window);

    m_service.notify(L"!3");
    m_service.notify(L"x12");
    m_service.notify(L"N1e");  // "e" is a base-15 digit: 1 * 15 + 14
    pumpUntilCode(29);
    std::vector<std::pair<platform::WParam, platform::LParam>> received;
    for (const auto& message : g_notifications) {
        EXPECT_EQ(message.window, m_window);
        if (message.lParam != 8) received.emplace_back(message.wParam, message.lParam);
    }
    EXPECT_EQ(received, (std::vector<std::pair<platform::WParam, platform::LParam>>{{0, 3}, {1, 17}, {1, 29}}));
}

// Sleeps are counted and take a millisecond of real time each, so that a loop that sleeps shows up as
// a loop that waits.
class CountingClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override
    {
        m_now += milliseconds;
        if (milliseconds == 100)
            ++m_hundredMsSleeps;
        else
            ++m_otherSleeps;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(0);
    }
    std::atomic<int> m_hundredMsSleeps{0};
    std::atomic<int> m_otherSleeps{0};

private:
    std::atomic<std::uint64_t> m_now{1'000'000};
};

TEST_F(EFIServiceIPCTest, AStoppedServiceFailsCommandsAndTheReaderWaitsBetweenRetries)
{
    CountingClockC clock;
    platform::setClock(&clock);
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    m_service.stop();

    const std::string broken = "[EFIServiceIPC::ReadResponseFromEFI] [WARN]: Notification pipe has been broken";
    ASSERT_TRUE(waitForLog(broken, 3));
    EXPECT_GE(clock.m_hundredMsSleeps.load(), 2);
    EXPECT_EQ(clock.m_otherSleeps.load(), 0);

    EXPECT_FALSE(m_client.ExecuteBatteryCommand(EFI_BATTERY_L, EFI_BATTERY_RSOC, true));
    const auto messages = logMessages();
    const auto failed = std::find_if(messages.begin(), messages.end(), [](const std::string& m) {
        return m.rfind("[EFIServiceIPC::ExecuteCommandTransaction] [ERROR]: WriteFile to pipe failed. GLE=", 0) == 0;
    });
    ASSERT_NE(failed, messages.end());
    EXPECT_EQ(count(messages,
                    "[EFIServiceIPC::ExecuteBatteryCommand] [ERROR]: Failed to execute BATTERY command: "
                    "BAT:L:RSOC, Reply: !"),
              1);

    // Shutdown still ends the reader, which the broken pipe keeps busy.
    platform::setClock(nullptr);
    m_client.ShutdownEFICommunication();
    for (const auto& message : logMessages())
        EXPECT_EQ(message.find("TerminateThread"), std::string::npos) << message;
}

TEST_F(EFIServiceIPCTest, ShutdownEndsAReaderBlockedInItsReadAndClosesTheLink)
{
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    m_client.ShutdownEFICommunication();
    m_client.ShutdownEFICommunication();
    EXPECT_FALSE(m_client.ExecuteBasicCommand(EFI_BASIC_PING, true));
    const auto messages = logMessages();
    for (const auto& message : messages)
        EXPECT_EQ(message.find("TerminateThread"), std::string::npos) << message;
    EXPECT_EQ(count(messages, "[EFIServiceIPC::ShutdownEFICommunication] Tried to deinitialize, but not initialized"),
              1);
    EXPECT_EQ(count(messages,
                    "[EFIServiceIPC::ExecuteBasicCommand] [ERROR]: Failed to execute BASIC command: "
                    "BASIC:PING, Reply: !"),
              1);
}

TEST(EFIServiceIPCAbsent, WithoutTheServiceInitialisationFailsAndSaysWhy)
{
    prepareInstrument();
    {
        EFIServiceIPC client;
        EXPECT_FALSE(client.InitializeEFICommunication());
    }
    EXPECT_EQ(logMessages(), (std::vector<std::string>{
                                 "[EFIServiceIPC::OpenEFINamedPipe] [ERROR]: Could not open pipe. GLE=2",
                                 "[EFIServiceIPC::InitializeEFICommunication] [ERROR]: Cannot open EFI Main "
                                 "Communication pipe!",
                             }));
    releaseInstrument();
}

}  // namespace
}  // namespace halvern::test
