// The start-up's hardware steps against the simulated EFI service: opening the link and the hardware
// check that reads the sensor board's readiness from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "app/StartUpSteps.h"
#include "platform/Registry.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

const char* const kRule = "[HW Status] *****************************";
const char* const kSpbFailed = "Halvern [HwRelatedInit] [ERROR]: enableSpbDevices Failed";
const char* const kSpbDone = "enableSpbDevices done!";
const wchar_t* const kFilterHelperKey = L"SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status";

// Whether the machine's PCI bus has the component: the simulated instrument has all four, a Wine
// prefix none. The check must report what the query finds.
bool pciReady(std::uint32_t componentId)
{
    std::uint16_t state = 0;
    std::string description;
    return SysManagerC::Instance()->GetHwComponentInfo(componentId, state, description) &&
           state == SysManagerC::kHwComponentWorking;
}

// The component lines of a customer-mode check whose EFI part reads `fpga`, `hps` and `telo`. These
// instruments have no I2C devices: the BIOS does not count as flashed, and an RTC that cannot be asked
// keeps its flag.
std::vector<std::string> componentLines(bool fpga, bool hps, bool telo, bool usbUpdate)
{
    auto line = [](const char* label, bool ready) {
        return std::string("[HW Status] ") + label + (ready ? " OK" : " NOT OK");
    };
    std::vector<std::string> lines{line("FPGA Ready\t:", fpga),
                                   line("MORA (HPS) Ready\t:", hps),
                                   line("TELO (S5) Ready\t:", telo),
                                   line("ETH MORA Ready\t:", pciReady(SysManagerC::kHwComponentMoraEthernet)),
                                   line("ETH Lemo Ready\t:", pciReady(SysManagerC::kHwComponentLemoEthernet)),
                                   line("WLAN Ready\t:", pciReady(SysManagerC::kHwComponentWlan)),
                                   line("UART MORA Ready\t:", false)};
    if (!usbUpdate) {
        lines.push_back(line("Quillo Ready\t:", pciReady(SysManagerC::kHwComponentDma)));
        lines.push_back(line("Vexar Bios flashed\t:", false));
        lines.push_back(line("RTC Configured\t:", true));
    }
    return lines;
}

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A USB update needs the second Ethernet port and the WLAN module only.
const char* usbUpdateResult()
{
    return pciReady(SysManagerC::kHwComponentLemoEthernet) && pciReady(SysManagerC::kHwComponentWlan)
               ? "[INFO] Result Hardware Components Check SUCCESSFULLY"
               : "[ERROR] Result Hardware Components Check FAILED!";
}

// HwRelatedInit also reads the wired adapter's speed and, after the SPB devices, waits for the sensor
// board and sets the time; those steps depend on the machine's devices and clock and on the board (they
// have tests of their own). These tests look at the rest: the EFI link, the SPB devices and the hardware
// check, which starts with its rule line.
std::vector<std::string> withoutBoardAndTimeSteps(std::vector<std::string> messages)
{
    const auto spbDone = std::find(messages.begin(), messages.end(), kSpbDone);
    if (spbDone == messages.end()) return messages;
    messages.erase(spbDone + 1, std::find(spbDone, messages.end(), kRule));
    // The write filter's state and the PCI devices are read the platform's way; their lines are not
    // what these tests look at.
    const auto speedStep = [](const std::string& message) {
        return message.find("Ethernet adapter speed") != std::string::npos ||
               message.find("Ethernet Adapter Speed") != std::string::npos ||
               message.find("NetManagerC::") != std::string::npos || message.find("UWF") != std::string::npos ||
               message.find("SysManagerC::GetHwComponentInfo") != std::string::npos;
    };
    messages.erase(std::remove_if(messages.begin(), messages.end(), speedStep), messages.end());
    return messages;
}

class HwStartUpTest : public InstrumentTest {
protected:
    // These instruments have no sensor board console: start-up finds it silent. Their WLAN power cannot be
    // read either, so start-up waits for the module as after a late power-up: that wait passes at once.
    void SetUp() override
    {
        InstrumentTest::SetUp();
        moraUartReadyFlag() = true;
        platform::setClock(&m_clock);
        // A customer's instrument, whose start goes on after a failed check. Where the write filter's helper
        // is not installed (Wine) its state cannot be read, which counts as a customer's instrument too.
        platform::UniqueRegKey helper;
        if (platform::regOpenKeyRead(platform::RegHive::LocalMachine, kFilterHelperKey, helper) == 0) {
            platform::UniqueRegKey writable;
            ASSERT_EQ(platform::regCreateKey(platform::RegHive::LocalMachine, kFilterHelperKey, writable), 0);
            ASSERT_EQ(platform::regSetDword(writable, L"FilterState", 1), 0);
        }
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        m_service.stop();
        InstrumentTest::TearDown();
    }
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    SkippedSleepClockC m_clock;
};

TEST_F(HwStartUpTest, WithTheServiceTheCheckReportsWhatItSaysAndStartUpGoesOn)
{
    ASSERT_TRUE(m_service.start());
    sim::EfiHwStatusState status;
    status.runningMode = 2;
    status.hpsReady = 0;
    m_model.setHwStatus(status);

    HwRelatedInit();
    EXPECT_THAT(withoutBoardAndTimeSteps(logMessages()), ::testing::ElementsAre(kSpbFailed, kSpbDone))
        << "opening the EFI link is silent when it works";
    EXPECT_FALSE(isHwErrorDetected(false));
    EXPECT_FALSE(isHwErrorDetected(true));

    const auto expected =
        concat(concat({kSpbFailed, kSpbDone, kRule,
                       "Got EFI service HW status: EFIRunningMode:2,FPGAReady:1,HPSReady:0,TELOReady:1,",
                       "[INFO]: isHwErrorDetected: Successfully parsed EFI's HW status"},
                      componentLines(true, false, true, false)),
               concat({"[ERROR] Result Hardware Components Check FAILED!", kRule, kRule,
                       "Got EFI service HW status: EFIRunningMode:2,FPGAReady:1,HPSReady:0,TELOReady:1,",
                       "[INFO]: isHwErrorDetected: Successfully parsed EFI's HW status"},
                      concat(componentLines(true, false, true, true), {usbUpdateResult(), kRule})));
    EXPECT_THAT(withoutBoardAndTimeSteps(logMessages()), ::testing::ElementsAreArray(expected));
}

TEST_F(HwStartUpTest, AMalformedStatusCountsAsNotReady)
{
    ASSERT_TRUE(m_service.start());
    sim::EfiHwStatusState status;
    status.rawText = L"EFIRunningMode:1,FPGAReady:1";
    m_model.setHwStatus(status);
    HwRelatedInit();
    EXPECT_FALSE(isHwErrorDetected(false));
    EXPECT_THAT(withoutBoardAndTimeSteps(logMessages()),
                ::testing::ElementsAreArray(
                    concat({kSpbFailed, kSpbDone, kRule, "Got EFI service HW status: EFIRunningMode:1,FPGAReady:1",
                            "[parseHwStatus] [ERROR]: Failed to parse Hw status reply from EFI!",
                            "[ERROR]: isHwErrorDetected: Failed to parse EFI's HW status"},
                           concat(componentLines(false, false, false, false),
                                  {"[ERROR] Result Hardware Components Check FAILED!", kRule}))));
}

TEST_F(HwStartUpTest, WithoutTheServiceStartUpSaysSoAndGoesOn)
{
    HwRelatedInit();
    EXPECT_FALSE(isHwErrorDetected(false));
    EXPECT_THAT(withoutBoardAndTimeSteps(logMessages()),
                ::testing::ElementsAreArray(concat(
                    {"[EFIServiceIPC::OpenEFINamedPipe] [ERROR]: Could not open pipe. GLE=2",
                     "[EFIServiceIPC::InitializeEFICommunication] [ERROR]: Cannot open EFI Main Communication pipe!",
                     "Halvern [HwRelatedInit] [ERROR]: Failed to initialize communication with EFI", kSpbFailed,
                     kSpbDone, kRule,
                     "[EFIServiceIPC::ExecuteBasicCommand] [ERROR]: Failed to execute BASIC command: BASIC:HWSTATUS, "
                     "Reply: !",
                     "[ERROR]: isHwErrorDetected: Failed to execute HW status EFI command"},
                    concat(componentLines(false, false, false, false),
                           {"[ERROR] Result Hardware Components Check FAILED!", kRule}))));
}

}  // namespace
}  // namespace halvern::test
