// The hardware and system information of the simulated computer module: its PCI components, as the
// instrument's control command takes them away, the board data, the Windows release, and the two
// registry settings start-up repairs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/Text.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/HardwareSim.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

constexpr const char* kDiskKey =
    "SYSTEM\\CurrentControlSet\\Enum\\SCSI\\Disk&Ven_NVMe&Prod_VX_SSD_256GB\\5&1a2b3c4d&0&000000\\Device "
    "Parameters\\Disk";

class HardwareInformationTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addHardwareControlCommands(m_commands);
        manager = SysManagerC::Instance();
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    std::string control(const std::string& line) { return m_commands.execute(line); }

    struct ComponentT {
        bool answered = false;
        std::uint16_t state = 99;
        std::string description;
    };
    ComponentT component(std::uint32_t id)
    {
        ComponentT result;
        result.answered = manager->GetHwComponentInfo(id, result.state, result.description);
        return result;
    }
    static std::optional<platform::sim::RegValueC> value(const std::string& key, const std::string& name)
    {
        return platform::sim::readValue(platform::sim::keyFolder(platform::RegHive::LocalMachine, key), name);
    }
    static void setValue(const std::string& key, const std::string& name, std::uint32_t type, const std::string& data)
    {
        ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, key, name, {type, data}));
    }
    static void removeValue(const std::string& key, const std::string& name)
    {
        std::remove((platform::sim::keyFolder(platform::RegHive::LocalMachine, key) + "/" + name).c_str());
    }

    SysManagerC* manager = nullptr;

private:
    sim::ControlCommandsC m_commands;
};

TEST_F(HardwareInformationTest, EveryComponentOfTheModuleIsFoundWithItsDeviceText)
{
    const auto wlan = component(SysManagerC::kHwComponentWlan);
    EXPECT_TRUE(wlan.answered);
    EXPECT_EQ(wlan.state, SysManagerC::kHwComponentWorking);
    EXPECT_EQ(wlan.description, "Qualcomm Atheros AR9485WB-EG Wireless Network Adapter");
    const auto mora = component(SysManagerC::kHwComponentMoraEthernet);
    EXPECT_EQ(mora.state, SysManagerC::kHwComponentWorking);
    EXPECT_EQ(mora.description, "Intel(R) I210 Gigabit Network Connection");
    const auto lemo = component(SysManagerC::kHwComponentLemoEthernet);
    EXPECT_EQ(lemo.state, SysManagerC::kHwComponentWorking);
    EXPECT_EQ(lemo.description, "Intel(R) I210 Gigabit Network Connection #2");
    const auto dma = component(SysManagerC::kHwComponentDma);
    EXPECT_EQ(dma.state, SysManagerC::kHwComponentWorking);
    EXPECT_EQ(dma.description, "Quillo DMA Controller");
    for (std::uint32_t unknown : {0u, 5u, 0xFFFFFFFFu})
        EXPECT_FALSE(component(unknown).answered) << unknown;
}

TEST_F(HardwareInformationTest, ARemovedOrBrokenComponentIsNotReadyAndTheTwinPortsAreToldApart)
{
    // The two I210 ports share their hardware ids: only the slot tells the sensor board's from the Lemo's.
    ASSERT_EQ(control("hw remove eth-mora"), "OK");
    auto mora = component(SysManagerC::kHwComponentMoraEthernet);
    EXPECT_TRUE(mora.answered);
    EXPECT_EQ(mora.state, SysManagerC::kHwComponentMissing);
    EXPECT_EQ(mora.description, "MORA Ethernet adapter");
    EXPECT_EQ(component(SysManagerC::kHwComponentLemoEthernet).state, SysManagerC::kHwComponentWorking);
    ASSERT_EQ(control("hw restore eth-mora"), "OK");
    ASSERT_EQ(control("hw remove eth-lemo"), "OK");
    EXPECT_EQ(component(SysManagerC::kHwComponentMoraEthernet).state, SysManagerC::kHwComponentWorking);
    EXPECT_EQ(component(SysManagerC::kHwComponentLemoEthernet).state, SysManagerC::kHwComponentMissing);

    ASSERT_EQ(control("hw remove dma"), "OK");
    EXPECT_EQ(component(SysManagerC::kHwComponentDma).state, SysManagerC::kHwComponentMissing);
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetHwComponentInfo] [WARN]: Quillo DMA device not found"));

    // A driver that failed to start (problem code 10) leaves the device there but not working.
    ASSERT_EQ(control("hw problem wlan 10"), "OK");
    const auto wlan = component(SysManagerC::kHwComponentWlan);
    EXPECT_EQ(wlan.state, SysManagerC::kHwComponentFailing);
    EXPECT_EQ(wlan.description, "Qualcomm Atheros AR9485WB-EG Wireless Network Adapter");
    ASSERT_EQ(control("hw problem wlan 0"), "OK");
    EXPECT_EQ(component(SysManagerC::kHwComponentWlan).state, SysManagerC::kHwComponentWorking);

    EXPECT_EQ(control("hw remove printer").rfind("ERROR usage", 0), 0u);
    EXPECT_EQ(control("hw unplug wlan").rfind("ERROR usage", 0), 0u);
}

TEST_F(HardwareInformationTest, TheBoardDataComesFromTheBiosValuesAndTheSensorBoardAdapter)
{
    SysManagerC::BoardContentT content;
    ASSERT_TRUE(manager->GetBoardContent(content));
    EXPECT_EQ(content.biosRelease, 0x0107);
    EXPECT_EQ(content.biosVersion, "VX1.07.00");
    EXPECT_EQ(content.biosDate, 20250314u);
    EXPECT_EQ(content.boardVersion, "REV C");
    EXPECT_EQ(content.moraMac, (std::array<std::uint8_t, 6>{0x00, 0x0b, 0x5d, 0x1a, 0x2c, 0x3f}));
    EXPECT_EQ(content.moraIpv4, (std::array<std::uint8_t, 4>{192, 168, 2, 2}));

    // Texts longer than their fields are cut, never overrun.
    const std::string bios = "HARDWARE\\DESCRIPTION\\System\\BIOS";
    setValue(bios, "BIOSVersion", platform::kRegSz, "VX1.07.00-this-build-has-a-long-name");
    setValue(bios, "BaseBoardVersion", platform::kRegSz, "REV C with rework");
    ASSERT_TRUE(manager->GetBoardContent(content));
    EXPECT_EQ(content.biosVersion, "VX1.07.00-this-build-");
    EXPECT_EQ(content.boardVersion, "REV C wit");

    // Without its adapter the board still answers, with the address fields zero.
    std::ofstream(platform::sim::root() + "/sim/network/adapters", std::ios::trunc) << "";
    ASSERT_TRUE(manager->GetBoardContent(content));
    EXPECT_EQ(content.moraMac, (std::array<std::uint8_t, 6>{}));
    EXPECT_EQ(content.moraIpv4, (std::array<std::uint8_t, 4>{}));
    EXPECT_EQ(content.biosDate, 20250314u);

    // A BIOS that does not say its date is no answer at all.
    for (const char* date : {"2025-03-14", "13/14/2025", ""}) {
        setValue(bios, "BIOSReleaseDate", platform::kRegSz, date);
        EXPECT_FALSE(manager->GetBoardContent(content)) << date;
    }
}

TEST_F(HardwareInformationTest, TheWindowsReleaseIsReadFromTheRegistry)
{
    std::array<std::string, 6> info;
    ASSERT_TRUE(manager->GetWindowsOsInfo(info));
    EXPECT_THAT(info, ElementsAre("Windows 10 IoT Enterprise", "IoTEnterprise", "21H2", "19044.2965", "ZENTOR-1000001",
                                  "2025-03-01 08:15:00"));

    // An older release names itself by its release id and may lack the update revision.
    const std::string key = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    removeValue(key, "DisplayVersion");
    removeValue(key, "UBR");
    setValue(key, "ReleaseId", platform::kRegSz, "1809");
    ASSERT_TRUE(manager->GetWindowsOsInfo(info));
    EXPECT_EQ(info[2], "1809");
    EXPECT_EQ(info[3], "19044");

    removeValue(key, "ProductName");
    EXPECT_FALSE(manager->GetWindowsOsInfo(info));
}

TEST_F(HardwareInformationTest, TheSerialMouseServiceIsDisabledOnceAndLeftAloneAfterwards)
{
    const std::string key = "SYSTEM\\CurrentControlSet\\Services\\sermouse";
    bool changed = false;
    ASSERT_TRUE(manager->DisableSerialMouseService(changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(value(key, "Start")->data, "4");
    EXPECT_EQ(value(key, "Start")->type, platform::kRegDword);
    ASSERT_TRUE(manager->DisableSerialMouseService(changed));
    EXPECT_FALSE(changed) << "a disabled service needs no commit";

    // Windows starts a service without the value at its default: that is no disabled service.
    removeValue(key, "Start");
    ASSERT_TRUE(manager->DisableSerialMouseService(changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(value(key, "Start")->data, "4");

    std::filesystem::remove_all(platform::sim::keyFolder(platform::RegHive::LocalMachine, key));
    ASSERT_TRUE(manager->DisableSerialMouseService(changed));
    EXPECT_FALSE(changed);
    EXPECT_FALSE(value(key, "Start")) << "a missing service is not created";
}

TEST_F(HardwareInformationTest, TheSystemDisksWriteCacheIsSwitchedOffOnce)
{
    std::wstring diskKey;
    bool changed = false;
    ASSERT_TRUE(manager->DisableSsdWriteCache(diskKey, changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(diskKey, platform::widen(kDiskKey));
    EXPECT_EQ(value(kDiskKey, "UserWriteCacheSetting")->data, "0");
    ASSERT_TRUE(manager->DisableSsdWriteCache(diskKey, changed));
    EXPECT_FALSE(changed);

    // Without a disk's parameters there is nothing to switch.
    std::filesystem::remove_all(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, "SYSTEM\\CurrentControlSet\\Enum\\SCSI"));
    ASSERT_TRUE(manager->DisableSsdWriteCache(diskKey, changed));
    EXPECT_FALSE(changed);
    EXPECT_TRUE(diskKey.empty());
}

}  // namespace
}  // namespace halvern::test
