// The whole start-up and close path in-process, ended the way Ctrl-C ends it on the host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include "app/StartUp.h"
#include "platform/Sync.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimUsbBus.h"
#include "sim/standin/StandInInstall.h"
#include "support/FirmwareUpdaterSupport.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace platform::sim {
void requestClose();
}

namespace halvern::test {
namespace {

// The instrument's I2C devices with the WLAN module powered, as at power-on: start-up has no module to wait for.
// It is a customer's instrument (its write filter protects it): without the EFI service its hardware check
// fails, and the start goes on all the same.
class WinMainTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(m_i2c.start(error)) << error;
        ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine,
                                              "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                              {platform::kRegDword, "1"}));
    }
    void TearDown() override
    {
        InstrumentTest::TearDown();
        m_i2c.stop();
    }
    ServedI2cDevicesC m_i2c;
};

TEST_F(WinMainTest, StartsRefusesASecondInstanceAndEndsOnCloseRequest)
{
    auto response = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownResponse");
    auto first = std::async(std::launch::async, [] { return wWinMain({L"halvern", L"-noupdate"}); });
    bool running = false;
    for (int wait = 0; wait < 6000 && !running; ++wait) {
        const auto lines = logMessages();
        running = std::find(lines.begin(), lines.end(), "InitInstance done!") != lines.end();
        if (!running) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(running);

    // A second start while the first runs quits at once, and neither ends the first nor says it has ended.
    EXPECT_EQ(wWinMain({L"halvern"}), 0);
    EXPECT_EQ(first.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    EXPECT_EQ(platform::waitForSingleObject(response.get(), 0), platform::kWaitTimeout);

    platform::sim::requestClose();
    ASSERT_EQ(first.wait_for(std::chrono::seconds(120)), std::future_status::ready);
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(platform::waitForSingleObject(response.get(), 0), platform::kWaitObject0);

    const auto messages = logMessages();
    const std::string text = "======= Halvern Application started, version: 4.0.0.0 =======";
    const std::string rule(text.size(), '=');
    EXPECT_TRUE(containsInOrder(
        messages,
        {"starting halvern with option -noupdate", rule, text, rule, "InitInstance done!",
         "[ERROR]: Another Halvern instance detected, quitting.", "++ WM_CLOSE received",
         "WM_CLOSE - SHUTDOWN: 15", "[2] DestroyLocalComponents", "[SysManagerC::DestroyInstance]",
         "++ WM_DESTROY received", "Halvern [wWinMain]: Main Message loop terminated, exiting Halvern application",
         "[1] DestroyLocalComponents"}))
        << ::testing::PrintToString(messages);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "[SysManagerC::DestroyInstance]"), 1)
        << "the instance is torn down once";
}

// Polls the log every 50 ms for at most 30 s for `line` among the messages after the first `from`.
bool logGets(const std::string& line, int from = 0)
{
    for (int step = 0; step < 600; ++step) {
        if (findMessage(logMessages(), line, from) >= 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

int logLength()
{
    return static_cast<int>(logMessages().size());
}

TEST_F(WinMainTest, TheRunningWindowHearsEveryUsbDeviceComeAndGoUntilItEnds)
{
    const std::string root = platform::sim::root();
    auto run = std::async(std::launch::async, [] { return wWinMain({L"halvern", L"-noupdate"}); });
    const bool started = logGets("InitInstance done!");
    EXPECT_TRUE(started);

    // Not a volume: Windows tells only the windows registered for the USB device interface.
    platform::sim::SimUsbDeviceT device;
    device.vendorId = 0x046D;
    device.productId = 0xC52B;
    device.port = 3;
    ASSERT_TRUE(platform::sim::saveUsbBus(root, {device}));
    int from = logLength();
    EXPECT_EQ(platform::sim::notifyUsbDeviceChange(root, true), started ? 1 : 0) << "one window registered";
    EXPECT_TRUE(logGets("[SysManagerC::RefreshUsbDevices]: 1 USB devices, 1 enumerated", from));
    ASSERT_TRUE(platform::sim::saveUsbBus(root, {}));
    from = logLength();
    platform::sim::notifyUsbDeviceChange(root, false);
    EXPECT_TRUE(logGets("[SysManagerC::RefreshUsbDevices]: 0 USB devices, 0 enumerated", from));

    platform::sim::requestClose();
    EXPECT_EQ(run.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(run.get(), 0);
    EXPECT_EQ(platform::sim::notifyUsbDeviceChange(root, true), 0) << "the registration ends with the program";
    std::error_code error;
    EXPECT_TRUE(std::filesystem::is_empty(platform::sim::usbNotifyFolder(root), error)) << error.message();
}

TEST_F(WinMainTest, AProductionInstrumentWithAFailedComponentEndsTheStartWithMinusOne)
{
    std::string error;
    ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    // The write filter is off, as in production and service mode; without the EFI service the sensor board's
    // parts are not ready.
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine,
                                          "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                          {platform::kRegDword, "0"}));
    auto response = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownResponse");
    EXPECT_EQ(wWinMain({L"halvern", L"-noupdate"}), -1);
    // The error screen is started, not waited for: it notes its words once it runs.
    std::vector<std::string> started;
    const auto updaterStarted = [&started] {
        return std::any_of(started.begin(), started.end(), [](const std::string& line) {
            return line.rfind("firmware-updater arguments -error FPGA#Ready :#NOT#OK,", 0) == 0;
        });
    };
    for (int wait = 0; wait < 500 && !updaterStarted(); ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        started = simLines("apps/log");
    }
    EXPECT_TRUE(updaterStarted()) << ::testing::PrintToString(started);
    endFirmwareUpdater();
    SysManagerC::DestroyInstance();
    EXPECT_EQ(platform::waitForSingleObject(response.get(), 0), platform::kWaitObject0);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages, {"SOFTWARE.IMG check done, starting SEP.", "[ERROR] Result Hardware Components Check FAILED!",
                   "[INFO] Device is in Production/Service Mode. Starting FwUpdater to show "
                   "ErrorMsg!"}))
        << ::testing::PrintToString(messages);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "InitInstance done!"), 0);
}

TEST_F(WinMainTest, SecondInstanceQuitsWithZeroWhileTheFirstRuns)
{
    platform::UniqueHandle first;
    ASSERT_TRUE(IsSingleInstance(first));
    EXPECT_EQ(wWinMain({L"halvern"}), 0);
    EXPECT_EQ(logMessages(), std::vector<std::string>{"[ERROR]: Another Halvern instance detected, quitting."});
}

// "-noupdate" leaves new images on the stick alone, never an update that is half way through.
TEST_F(WinMainTest, APendingUpdateWhoseUpdaterAsksForItEndsTheStartWithZeroAlsoWithNoUpdate)
{
    std::string error;
    ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    firmwareUpdaterBehaves("shutdown-request=yes\n");
    std::string record(SysManagerC::kFwUpdateStateBytes, '\0');
    record[356] = 2;
    record.replace(364, 4, "\x15\x08\xDC\xAC");
    ASSERT_TRUE(writeWholeFile("C:\\vexarBatches\\Halvern\\FW_UPDATE_STATE", record));
    BriskClockC clock;
    platform::setClock(&clock);

    auto response = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownResponse");
    auto run = std::async(std::launch::async, [] { return wWinMain({L"halvern", L"-noupdate"}); });
    // A start that went past the update would run until closed.
    const bool ended = run.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    if (!ended) platform::sim::requestClose();
    EXPECT_TRUE(ended);
    EXPECT_EQ(run.get(), 0);
    endFirmwareUpdater();
    SysManagerC::DestroyInstance();
    EXPECT_EQ(platform::waitForSingleObject(response.get(), 0), platform::kWaitObject0);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"starting halvern with option -noupdate", "Update status info: 0x2",
                                           "updates must be installed.", "shutting down halvern for pending updates..."}))
        << ::testing::PrintToString(messages);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "SOFTWARE.IMG check done, starting SEP."), 0);
}

}  // namespace
}  // namespace halvern::test
