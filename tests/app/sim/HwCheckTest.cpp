// The hardware check's PCI components and its verdict by device mode, and the start-up's repairs of the
// serial-mouse service and the disk's write cache, on the simulated instrument.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "app/StartUpSteps.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimWriteFilter.h"
#include "sim/ControlCommands.h"
#include "sim/HardwareSim.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "sim/standin/StandInInstall.h"
#include "support/FirmwareUpdaterSupport.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

const char* const kStartUpdater = "[INFO] Device is in Production/Service Mode. Starting FwUpdater to show ErrorMsg!";

class HwCheckTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        moraUartReadyFlag() = true;
        sim::addHardwareControlCommands(m_commands);
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    void TearDown() override
    {
        endFirmwareUpdater();
        SysManagerC::DestroyInstance();
        m_service.stop();
        m_i2c.stop();
        InstrumentTest::TearDown();
    }
    // A customer's instrument has its write filter on; a fresh simulated one is in production mode.
    static void customerMode()
    {
        ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine,
                                              "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                              {platform::kRegDword, "1"}));
    }
    // Everything the check asks besides the PCI bus answers that it is ready.
    void everythingElseReady()
    {
        std::string error;
        ASSERT_TRUE(m_i2c.start(error)) << error;
        ASSERT_TRUE(m_service.start());
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
    }
    std::string control(const std::string& line) { return m_commands.execute(line); }
    static std::vector<std::string> updaterArguments()
    {
        std::vector<std::string> arguments;
        for (int wait = 0; wait < 500 && arguments.empty(); ++wait) {
            for (const auto& line : simLines("apps/log"))
                if (line.rfind("firmware-updater arguments ", 0) == 0) arguments.push_back(line);
            if (arguments.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return arguments;
    }

private:
    sim::ControlCommandsC m_commands;
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    ServedI2cDevicesC m_i2c;
};

TEST_F(HwCheckTest, AProductionInstrumentWithEverythingPresentPassesAndStartsNoUpdater)
{
    everythingElseReady();
    EXPECT_FALSE(isHwErrorDetected(false));
    EXPECT_FALSE(isHwErrorDetected(true));
    const auto messages = logMessages();
    EXPECT_THAT(messages, Contains("[HW Status] Device is in Production/Service Mode."));
    for (const char* line : {"[HW Status] ETH MORA Ready\t: OK", "[HW Status] ETH Lemo Ready\t: OK",
                             "[HW Status] WLAN Ready\t: OK", "[HW Status] Quillo Ready\t: OK"})
        EXPECT_THAT(messages, Contains(line));
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "[INFO] Result Hardware Components Check SUCCESSFULLY"), 2);
    EXPECT_THAT(messages, Not(Contains(kStartUpdater)));
}

TEST_F(HwCheckTest, ACustomerInstrumentWithoutItsDmaComponentFailsTheCheckAndStartsAllTheSame)
{
    customerMode();
    everythingElseReady();
    ASSERT_EQ(control("hw remove dma"), "OK");
    EXPECT_FALSE(isHwErrorDetected(false));
    // A USB update does not need the DMA component.
    EXPECT_FALSE(isHwErrorDetected(true));
    const auto messages = logMessages();
    EXPECT_THAT(messages, Not(Contains("[HW Status] Device is in Production/Service Mode.")));
    EXPECT_TRUE(containsInOrder(
        messages, {"[HW Status] Quillo Ready\t: NOT OK", "[ERROR] Result Hardware Components Check FAILED!",
                   "[INFO] Result Hardware Components Check SUCCESSFULLY"}));
    EXPECT_THAT(messages, Not(Contains(kStartUpdater)));
    EXPECT_THAT(updaterArguments(), IsEmpty());
}

TEST_F(HwCheckTest, AProductionInstrumentWithAFailedComponentShowsTheListOnTheUpdatersScreen)
{
    // No EFI service and no I2C devices either: FPGA, HPS, TELO and the BIOS are not ready; an RTC that
    // cannot be asked keeps its flag.
    ASSERT_EQ(control("hw remove eth-lemo"), "OK");
    EXPECT_TRUE(isHwErrorDetected(false));
    EXPECT_TRUE(containsInOrder(
        logMessages(), {"[HW Status] Device is in Production/Service Mode.", "[HW Status] ETH Lemo Ready\t: NOT OK",
                        "[ERROR] Result Hardware Components Check FAILED!", kStartUpdater,
                        "starting FwUpdater to show error msg.", "[HW Status] *****************************"}));
    // The list's labels keep their tabs, at which the updater's runtime splits its words; the stand-in
    // notes its words joined by blanks.
    EXPECT_THAT(updaterArguments(),
                Contains("firmware-updater arguments -error FPGA#Ready :#NOT#OK,MORA#(HPS)#Ready :#NOT#OK,"
                         "TELO#(S5)#Ready :#NOT#OK,ETH#MORA#Ready :#OK,ETH#Lemo#Ready :#NOT#OK,WLAN#Ready :#OK,"
                         "UART#MORA#Ready :#OK,Quillo#Ready :#OK,Vexar#Bios#flashed :#NOT#OK,RTC#Configured :#OK"));
}

TEST_F(HwCheckTest, AUsbUpdateInProductionStopsWithoutTheWlanModule)
{
    everythingElseReady();
    ASSERT_EQ(control("hw problem wlan 10"), "OK");
    EXPECT_TRUE(isHwErrorDetected(true));
    EXPECT_THAT(logMessages(), Contains("[HW Status] WLAN Ready\t: NOT OK"));
    EXPECT_THAT(updaterArguments(),
                Contains("firmware-updater arguments -error FPGA#Ready :#OK,MORA#(HPS)#Ready :#OK,TELO#(S5)#Ready "
                         ":#OK,ETH#MORA#Ready :#OK,ETH#Lemo#Ready :#OK,WLAN#Ready :#NOT#OK,UART#MORA#Ready :#OK"));
}

TEST_F(HwCheckTest, TheSerialMouseRepairIsCommittedOnceThroughTheWriteFilter)
{
    customerMode();
    RepairSerialMouseService();
    RepairSerialMouseService();
    EXPECT_EQ(
        platform::sim::uwfCommits(platform::sim::root()),
        std::vector<std::string>{"UwfCfgCommitRegistry HKLM\\SYSTEM\\CurrentControlSet\\Services\\sermouse\\ Start"});
    const auto start = platform::sim::readValue(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Services\\sermouse"),
        "Start");
    ASSERT_TRUE(start);
    EXPECT_EQ(start->data, "4");
}

TEST_F(HwCheckTest, TheWriteCacheRepairCommitsTheQuotedDiskKeyOnce)
{
    customerMode();
    RepairSsdWriteCache();
    RepairSsdWriteCache();
    EXPECT_EQ(platform::sim::uwfCommits(platform::sim::root()),
              std::vector<std::string>{"UwfCfgCommitRegistry \"HKLM\\SYSTEM\\CurrentControlSet\\Enum\\SCSI\\Disk&Ven_"
                                       "NVMe&Prod_VX_SSD_256GB\\5&1a2b3c4d&0&000000\\Device Parameters\\Disk\" "
                                       "UserWriteCacheSetting"});
}

TEST_F(HwCheckTest, WithoutTheKeysTheRepairsChangeAndCommitNothing)
{
    customerMode();
    std::filesystem::remove_all(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Services\\sermouse"));
    std::filesystem::remove_all(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Enum\\SCSI"));
    RepairSerialMouseService();
    RepairSsdWriteCache();
    EXPECT_THAT(platform::sim::uwfCommits(platform::sim::root()), IsEmpty());
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"[SysManagerC::DisableSerialMouseService] The sermouse service is not installed, "
                                 "nothing to do.",
                                 "[SysManagerC::DisableSsdWriteCache] No disk with device parameters found, nothing "
                                 "to do."}));
}

}  // namespace
}  // namespace halvern::test
