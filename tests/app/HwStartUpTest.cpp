// The start-up's hardware steps against the simulated EFI service: opening the link and the hardware
// check that reads the sensor board's readiness from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "app/StartUpSteps.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

const char* const kRule = "[HW Status] *****************************";
const char* const kSpbFailed = "Halvern [HwRelatedInit] [ERROR]: enableSpbDevices Failed";
const char* const kSpbDone = "enableSpbDevices done!";

// The component lines of a customer-mode check whose EFI part reads `fpga`, `hps` and `telo`; the
// components of subsystems this build lacks are never ready. These instruments have no I2C devices: the
// BIOS does not count as flashed, and an RTC that cannot be asked keeps its flag.
std::vector<std::string> componentLines(bool fpga, bool hps, bool telo, bool usbUpdate)
{
    auto line = [](const char* label, bool ready) {
        return std::string("[HW Status] ") + label + (ready ? " OK" : " NOT OK");
    };
    std::vector<std::string> lines{line("FPGA Ready\t:", fpga),      line("MORA (HPS) Ready\t:", hps),
                                   line("TELO (S5) Ready\t:", telo), line("ETH MORA Ready\t:", false),
                                   line("ETH Lemo Ready\t:", false), line("WLAN Ready\t:", false),
                                   line("UART MORA Ready\t:", false)};
    if (!usbUpdate) {
        lines.push_back(line("Quillo Ready\t:", false));
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

// HwRelatedInit ends with the time steps, whose lines depend on the time service and clock of the machine
// (they have tests of their own); these tests look at the rest.
std::vector<std::string> withoutTimeSteps(std::vector<std::string> messages)
{
    const char* const timeSteps[] = {"W32Time", "Windows Time Service", "[SysManagerC::GetI2cRtcTime]",
                                     "[SysManagerC::GetRtcSystemTime]", "SetRtcSystemTime Failed"};
    messages.erase(std::remove_if(messages.begin(), messages.end(),
                                  [&timeSteps](const std::string& message) {
                                      for (const char* step : timeSteps)
                                          if (message.find(step) != std::string::npos) return true;
                                      return false;
                                  }),
                   messages.end());
    return messages;
}

class HwStartUpTest : public InstrumentTest {
protected:
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        m_service.stop();
        InstrumentTest::TearDown();
    }
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
};

TEST_F(HwStartUpTest, WithTheServiceTheCheckReportsWhatItSaysAndStartUpGoesOn)
{
    ASSERT_TRUE(m_service.start());
    sim::EfiHwStatusState status;
    status.runningMode = 2;
    status.hpsReady = 0;
    m_model.setHwStatus(status);

    HwRelatedInit();
    EXPECT_THAT(withoutTimeSteps(logMessages()), ::testing::ElementsAre(kSpbFailed, kSpbDone))
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
                      concat(componentLines(true, false, true, true),
                             {"[ERROR] Result Hardware Components Check FAILED!", kRule})));
    EXPECT_THAT(withoutTimeSteps(logMessages()), ::testing::ElementsAreArray(expected));
}

TEST_F(HwStartUpTest, AMalformedStatusCountsAsNotReady)
{
    ASSERT_TRUE(m_service.start());
    sim::EfiHwStatusState status;
    status.rawText = L"EFIRunningMode:1,FPGAReady:1";
    m_model.setHwStatus(status);
    HwRelatedInit();
    EXPECT_FALSE(isHwErrorDetected(false));
    EXPECT_THAT(withoutTimeSteps(logMessages()),
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
    EXPECT_THAT(withoutTimeSteps(logMessages()),
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
