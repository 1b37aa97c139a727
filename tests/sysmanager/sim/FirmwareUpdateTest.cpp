// The firmware update on the simulated instrument: the controller's power rules, the WLAN module, the
// updater stand-in's three outcomes and a client's request over SEP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "app/StartUpSteps.h"
#include "platform/FileSystem.h"
#include "platform/Sync.h"
#include "platform/sim/SimRoot.h"
#include "sim/WindowsControlCommands.h"
#include "sim/board/SensorBoardModelC.h"
#include "sim/i2c/I2cDeviceServer.h"
#include "sim/standin/StandInInstall.h"
#include "spb/SpbApi.h"
#include "spb/SpbDevices.h"
#include "support/EfiInstrumentTest.h"
#include "support/Eventually.h"
#include "support/FirmwareUpdaterSupport.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

class FirmwareUpdateTest : public EfiInstrumentTest {
protected:
    void SetUp() override
    {
        EfiInstrumentTest::SetUp();
        sim::addWindowsControlCommands(m_commands);
        m_devices.add("IOExpander", m_expander);
        m_devices.add("RTClock", m_rtc);
        m_devices.add("EEPROM", m_eeprom);
        std::string error;
        ASSERT_TRUE(m_devices.start(platform::sim::root(), error)) << error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
        // A booted sensor board answers the update's Ethernet check at once.
        m_board.setBootDelay(0);
        ASSERT_TRUE(m_board.start(platform::sim::root(), error)) << error;
        platform::setClock(&m_clock);
        manager = SysManagerC::Instance();
        manager->ApplySensorBoardEndpoint();
    }
    void TearDown() override
    {
        endFirmwareUpdater();
        platform::setClock(nullptr);
        SPB_deinit();
        forgetSpbDevices();
        m_devices.stop();
        m_board.stop();
        EfiInstrumentTest::TearDown();
    }

    bool updaterStarted() { return !simLines("apps/log").empty(); }

    struct OutcomeT {
        bool result = false;
        bool shutdownRequired = true;
    };
    OutcomeT update(bool batteryCheck = true, const std::wstring& extra = L"-force")
    {
        OutcomeT outcome;
        outcome.result =
            manager->startFirmwareUpdate(L"f:\\system\\software.img", extra, outcome.shutdownRequired, batteryCheck);
        return outcome;
    }

    BriskClockC m_clock;
    sim::I2cDeviceServerC m_devices;
    sim::IoExpanderModelC m_expander;
    sim::RtcModelC m_rtc{[] { return std::int64_t{1'700'000'000}; }, 1'700'000'000};
    sim::EepromModelC m_eeprom;
    sim::SensorBoardModelC m_board;
    SysManagerC* manager = nullptr;
};

TEST_F(FirmwareUpdateTest, OnBatteryBothBatteriesNeedHalfTheirCharge)
{
    simulate("efi power battery");
    simulate("efi battery L rsoc 50");
    simulate("efi battery H rsoc 50");
    EXPECT_TRUE(update().result);
    EXPECT_THAT(simLines("apps/log"), Contains("firmware-updater arguments -i f:\\system\\software.img -force"));
    EXPECT_THAT(logMessages(), Contains("starting C:\\vexarBatches\\FirmwareUpdater\\FirmwareUpgrader.exe -i "
                                        "f:\\system\\software.img -force."));

    for (const char* low : {"L", "H"}) {
        std::remove(simFile("apps/log").c_str());
        simulate("efi battery L rsoc 50");
        simulate("efi battery H rsoc 50");
        simulate(std::string("efi battery ") + low + " rsoc 49");
        EXPECT_FALSE(update().result) << low;
        EXPECT_FALSE(updaterStarted()) << low;
        const std::string expected = std::string(
                                         "[SysManagerC::startFirmwareUpdate] [ERROR]: Update process was not "
                                         "allowed due to low Battery state: L:") +
                                     (low[0] == 'L' ? "49 %,H:50 %" : "50 %,H:49 %");
        EXPECT_EQ(logMessages().back(), expected);
    }

    // On mains the charge does not matter; without the check neither does the supply.
    simulate("efi power mains");
    EXPECT_TRUE(update().result);
    simulate("efi power battery");
    EXPECT_TRUE(update(false).result);
}

TEST_F(FirmwareUpdateTest, AnUnknownSupplyOrAControllerOutsideItsRunwareRefusesTheUpdate)
{
    simulate("efi register PWRSOURCE 3");
    EXPECT_FALSE(update().result);
    EXPECT_EQ(logMessages().back(),
              "[SysManagerC::startFirmwareUpdate] [ERROR]: System Main Power Source in "
              "unidentified, Update cannot be performed!");

    simulate("efi power mains");
    simulate("efi hwstatus 1 1 1 1");
    EXPECT_FALSE(update().result);
    EXPECT_EQ(logMessages().back(),
              "[ERROR]: startFirmwareUpdate(): EFI not started in runware mode! Installation "
              "of EFI runware neccessary!");
    EXPECT_FALSE(updaterStarted());
}

TEST_F(FirmwareUpdateTest, TheUpdaterEndsFailsOrAsksHalvernToEnd)
{
    OutcomeT outcome = update();
    EXPECT_TRUE(outcome.result);
    EXPECT_FALSE(outcome.shutdownRequired);
    EXPECT_THAT(logMessages(), Contains("FirmwareUpdater finished."));

    firmwareUpdaterBehaves("exit-code=3\n");
    outcome = update();
    EXPECT_FALSE(outcome.result) << "a failing updater fails the update";
    EXPECT_FALSE(outcome.shutdownRequired);

    firmwareUpdaterBehaves("shutdown-request=yes\n");
    outcome = update();
    EXPECT_TRUE(outcome.result);
    EXPECT_TRUE(outcome.shutdownRequired);
    EXPECT_THAT(logMessages(), Contains("updates must be installed."));
    endFirmwareUpdater();

    // The event is reset for the next start: an updater that simply ends is not taken for a request.
    firmwareUpdaterBehaves("");
    outcome = update();
    EXPECT_TRUE(outcome.result);
    EXPECT_FALSE(outcome.shutdownRequired);
}

TEST_F(FirmwareUpdateTest, AnUpdaterStillRunningAfterFifteenSecondsIsLeftToItsWork)
{
    platform::ManualClockC clock;
    platform::setClock(&clock);
    firmwareUpdaterBehaves("exit-after-ms=never\n");
    const OutcomeT outcome = update();
    EXPECT_TRUE(outcome.result);
    EXPECT_FALSE(outcome.shutdownRequired);
    const auto messages = logMessages();
    EXPECT_THAT(messages, Not(Contains("FirmwareUpdater finished.")));
    EXPECT_THAT(messages, Not(Contains("updates must be installed.")));
}

TEST_F(FirmwareUpdateTest, TheWlanModuleIsPoweredForTheUpdater)
{
    ASSERT_TRUE(SPB_init());
    ASSERT_TRUE(SPB_setDevPower(spb::kWlanPowerDevice, false));
    EXPECT_TRUE(update().result);
    EXPECT_TRUE(containsInOrder(logMessages(), {"WLAN is disabled and must be enabled",
                                                "WLAN is now enabled and ready for update process...."}));
    bool on = false;
    ASSERT_TRUE(SPB_getDevPower(spb::kWlanPowerDevice, &on));
    EXPECT_TRUE(on);

    EXPECT_TRUE(update().result);
    EXPECT_THAT(logMessages(), Contains("WLAN is enabled and ready for update process...."));
}

TEST_F(FirmwareUpdateTest, AClientsImageIsCopiedInsideBeforeTheUpdaterGetsIt)
{
    ASSERT_TRUE(writeWholeFile("D:\\new.fw", "image 4.1"));
    bool shutdownRequired = true;
    EXPECT_TRUE(manager->startUpdater(L"D:\\new.fw", true, shutdownRequired));
    EXPECT_FALSE(shutdownRequired);
    EXPECT_EQ(readWholeFile("C:\\vexarBatches\\Unprotected\\Zentor.fw"), "image 4.1");
    EXPECT_THAT(simLines("apps/log"),
                Contains("firmware-updater arguments -i C:\\vexarBatches\\Unprotected\\Zentor.fw -force"));

    const std::wstring tooLong = L"D:\\" + std::wstring(1020, L'a');
    EXPECT_FALSE(manager->startUpdater(tooLong, false, shutdownRequired));
    EXPECT_THAT(logMessages().back(),
                HasSubstr("[SysManagerC::startUpdater] [ERROR] Halvern: Firmware directory path is too long."));
    EXPECT_FALSE(manager->startUpdater(tooLong + L"a", false, shutdownRequired));
    EXPECT_THAT(logMessages().back(), HasSubstr("The StringCchLength failed to count the length"));
    EXPECT_FALSE(manager->startUpdater(L"D:\\updates\\", false, shutdownRequired));
    EXPECT_THAT(logMessages().back(), HasSubstr("The full path or the name of the given firmware file are invalid!"));
}

TEST_F(FirmwareUpdateTest, TheHardwareFailureScreenGetsTheFailedComponentsAsOneArgument)
{
    EXPECT_TRUE(manager->showFirmwareUpdaterErrorMsg(L"FPGA#Ready:#OK,WLAN#Ready:#NOT#OK"));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[INFO]: showFirmwareUpdaterErrorMsg cause of detected Hardware "
                                                "Failure(s)",
                                                "starting FwUpdater to show error msg."}));
    for (int wait = 0; wait < 500 && simLines("apps/log").size() < 2; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_THAT(simLines("apps/log"), Contains("firmware-updater arguments -error FPGA#Ready:#OK,WLAN#Ready:#NOT#OK"));
}

TEST_F(FirmwareUpdateTest, TheUpdateCommandAnswersAndALowBatteryIsAnError)
{
    const auto request = [](bool force, const char* path) {
        return [force, path](SEP::DataWriterI& w) { return w.writeBool(force) && w.writeString(path); };
    };
    ASSERT_TRUE(writeWholeFile("D:\\new.fw", "image"));
    // The client waits on the same virtual clock as the update's link waits, which take their minute.
    constexpr std::uint32_t kReplyWaitMs = 600000;
    auto reply = port->ask(1035, request(false, "D:\\new.fw"), SEP::CodingE::Binary, kReplyWaitMs);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, HalvernRpc::kReturnCodeSuccess);
    EXPECT_TRUE(containsInOrder(logMessages(), {"Got start update request, msg id: 1035",
                                                "Start update request in regular mode, force: 0, path: D:\\new.fw"}));

    simulate("efi power battery");
    simulate("efi battery H rsoc 20");
    reply = port->ask(1011, request(true, "D:\\new.fw"), SEP::CodingE::Binary, kReplyWaitMs);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to start Firmware Upgrader)");
    EXPECT_THAT(logMessages(), Contains("Start update request in legacy mode, force: 1, path: D:\\new.fw"));
}

TEST_F(FirmwareUpdateTest, AnUpdateAskedWhileAnotherClientsUpdateStartsIsRefusedAndTheFirstImageStays)
{
    const auto request = [](const char* path) {
        return [path](SEP::DataWriterI& w) { return w.writeBool(false) && w.writeString(path); };
    };
    ASSERT_TRUE(writeWholeFile("D:\\first.fw", "image 4.1"));
    ASSERT_TRUE(writeWholeFile("D:\\second.fw", "image 3.9"));
    // The first updater works until the test ends it: its start is under way when the second request comes.
    firmwareUpdaterBehaves("exit-after-ms=5000\n");
    const auto updatersStarted = [] {
        const auto lines = simLines("apps/log");
        return std::count(lines.begin(), lines.end(), "firmware-updater started");
    };
    ASSERT_TRUE(port->client().sendBytes(commandFrame(1035, request("D:\\first.fw"))));
    ASSERT_TRUE(eventually([&] { return updatersStarted() == 1; }));

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    ASSERT_TRUE(second.sendBytes(commandFrame(1011, request("D:\\second.fw"))));
    const CommandReplyT refused = readReply(second, 1011, 20000);
    EXPECT_TRUE(refused.received);
    EXPECT_EQ(refused.errorText,
              "General failure ( Failed to start Firmware Upgrader, an update is already being started)");
    EXPECT_EQ(readWholeFile("C:\\vexarBatches\\Unprotected\\Zentor.fw"), "image 4.1")
        << "the first updater's image was replaced under it";
    EXPECT_EQ(updatersStarted(), 1) << "a second updater was started";
    EXPECT_THAT(logMessages(),
                Contains("[SysManagerC::startUpdater] [ERROR]: The start of a firmware update is already in progress"));

    endFirmwareUpdater(false);
    EXPECT_TRUE(readReply(port->client(), 1035, 600000).received);
}

// The start-up's update paths: a pending update, the production drive, the leftover image.
class UpdateStartUpTest : public FirmwareUpdateTest {
protected:
    void plugStick(const std::string& label, bool withImage)
    {
        simulate("usb plug " + label);
        if (withImage) simulate("usb image");
    }
};

TEST_F(UpdateStartUpTest, APendingUpdateWhoseUpdaterAsksForItEndsTheStart)
{
    std::string record(SysManagerC::kFwUpdateStateBytes, '\0');
    record[356] = 2;
    const std::uint32_t mark = 0xACDC0815u;
    for (int i = 0; i < 4; ++i)
        record[364 + i] = static_cast<char>((mark >> (8 * i)) & 0xFF);
    ASSERT_TRUE(writeWholeFile("C:\\vexarBatches\\Halvern\\FW_UPDATE_STATE", record));
    firmwareUpdaterBehaves("shutdown-request=yes\n");

    EXPECT_EQ(RunPendingUpdate(), StepVerdict::EndSuccess);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"Update status info: 0x2", "updates must be installed.",
                                           "shutting down halvern for pending updates..."}))
        << ::testing::PrintToString(messages);
    EXPECT_THAT(simLines("apps/log"),
                Contains("firmware-updater arguments -i C:\\vexarBatches\\Unprotected\\Zentor.fw"))
        << "a record without an image installs the internal copy, with no extra argument";
}

TEST_F(UpdateStartUpTest, OnlyAStickLabelledExactlyWimIsAProductionDrive)
{
    EXPECT_FALSE(IsProductionUsbDrive());
    EXPECT_EQ(logMessages().back(), "No USB stick found attached");
    for (const char* label : {"wim", "WIM2", "Backup"}) {
        plugStick(label, true);
        EXPECT_FALSE(IsProductionUsbDrive()) << label;
        EXPECT_EQ(logMessages().back(), std::string("Found USB stick: [") + label + "]");
    }
    plugStick("WIM", false);
    EXPECT_TRUE(IsProductionUsbDrive());

    // With "-noupdate" only the check's first line is written: no stick is looked at, no Ethernet waited for.
    ASSERT_EQ(CheckUsbUpdate(false), StepVerdict::Continue);
    EXPECT_EQ(logMessages().back(), "checking for SOFTWARE.IMG on USB...");
}

TEST_F(UpdateStartUpTest, AProductionStickWithAnImageStartsTheUpdateWithTheBatteryCheck)
{
    plugStick("WIM", true);
    firmwareUpdaterBehaves("shutdown-request=yes\n");
    EXPECT_EQ(CheckUsbUpdate(true), StepVerdict::EndSuccess);
    EXPECT_TRUE(containsInOrder(
        logMessages(), {"checking for SOFTWARE.IMG on USB...", "Found USB stick: [WIM]",
                        "Found Production USB Drive, checking for SOFTWARE.IMG...",
                        "[SysManagerC::isAutoUpdateFileAvailable]: Iteration 0: Found update file "
                        "[f:\\system\\software.img]",
                        "SOFTWARE.IMG found. start update....", "Battery-Check is needed for the update process",
                        "updates must be installed.", "shutting down halvern for pending updates..."}));
    EXPECT_THAT(simLines("apps/log"), Contains("firmware-updater arguments -i f:\\system\\software.img -force"));
    endFirmwareUpdater();

    // A stick without the image goes on with the start, and so does an updater that ends.
    firmwareUpdaterBehaves("");
    EXPECT_EQ(CheckUsbUpdate(true), StepVerdict::Continue);
    EXPECT_EQ(logMessages().back(), "no update necessary.");
    simulate("usb unplug");
    plugStick("WIM", false);
    EXPECT_EQ(CheckUsbUpdate(true), StepVerdict::Continue);
    EXPECT_THAT(logMessages().back(), HasSubstr("Iteration 10: FindFirstFile failed (2)"));
}

TEST_F(UpdateStartUpTest, TheLastUpdatesImageIsDeletedEvenWhenReadOnly)
{
    const std::wstring image = L"C:\\vexarBatches\\Unprotected\\Zentor.fw";
    DeletePreviousFirmwareFile();
    EXPECT_EQ(logMessages().back(), "No file found, nothing to do.");
    ASSERT_TRUE(writeWholeFile("C:\\vexarBatches\\Unprotected\\Zentor.fw", "image"));
    ASSERT_TRUE(platform::setFileAttributes(image, platform::kFileAttributeReadOnly));
    DeletePreviousFirmwareFile();
    EXPECT_EQ(platform::getFileAttributes(image), platform::kInvalidFileAttributes);
    EXPECT_TRUE(containsInOrder(logMessages(), {"Looking for previous fw file in unproteced folder...",
                                                "Found FW File from last update: "
                                                "C:\\vexarBatches\\Unprotected\\Zentor.fw",
                                                "Successfully deleted file C:\\vexarBatches\\Unprotected\\Zentor.fw"}));
}

}  // namespace
}  // namespace halvern::test
