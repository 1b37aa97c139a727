// The sensor board checks that rest on the power controller's hardware status: whether its FPGA and
// processor are up and whether the controller runs its normal firmware, which every wait asks first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "links/MoraManagerC.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using links::MoraManagerC;
using ::testing::ElementsAre;

class MoraManagerTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        ASSERT_TRUE(m_service.start());
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        m_service.stop();
        InstrumentTest::TearDown();
    }
    void reportStatus(const wchar_t* text)
    {
        sim::EfiHwStatusState status;
        status.rawText = text;
        m_model.setHwStatus(status);
    }
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
};

TEST_F(MoraManagerTest, OnlyTheLowByteOfADigitsOnlyRunningModeTellsRunware)
{
    const struct {
        const wchar_t* status;
        bool runware;
    } cases[] = {
        {L"EFIRunningMode:0,FPGAReady:1,HPSReady:1,TELOReady:1,", true},
        {L"EFIRunningMode:1,FPGAReady:1,HPSReady:1,TELOReady:1,", false},
        {L"EFIRunningMode:x1,FPGAReady:1,HPSReady:1,TELOReady:1,", false},
        {L"EFIRunningMode:,FPGAReady:1,HPSReady:1,TELOReady:1,", true},
        {L"EFIRunningMode:256,FPGAReady:1,HPSReady:1,TELOReady:1,", true},
        {L"EFIRunningMode:-1,FPGAReady:1,HPSReady:1,TELOReady:1,", false},
        {L"FPGAReady:1,HPSReady:1,TELOReady:1,", false},
    };
    for (const auto& c : cases) {
        reportStatus(c.status);
        EXPECT_EQ(MoraManagerC::verifyEFIMode(), c.runware) << std::wstring(c.status).c_str();
    }
}

TEST_F(MoraManagerTest, TheBoardIsUpOnlyWithFpgaAndProcessorReady)
{
    reportStatus(L"EFIRunningMode:0,FPGAReady:1,HPSReady:1,TELOReady:0,");
    EXPECT_TRUE(MoraManagerC::verifyMoraSignals()) << "the TELO flag is not the board's";
    reportStatus(L"EFIRunningMode:0,FPGAReady:1,HPSReady:0,TELOReady:1,");
    EXPECT_FALSE(MoraManagerC::verifyMoraSignals());
    reportStatus(L"EFIRunningMode:0,FPGAReady:1,HPSReady:1");
    EXPECT_FALSE(MoraManagerC::verifyMoraSignals());
    EXPECT_THAT(logMessages(),
                ElementsAre("Got EFI service HW status: EFIRunningMode:0,FPGAReady:1,HPSReady:1,TELOReady:0,",
                            "Got EFI service HW status: EFIRunningMode:0,FPGAReady:1,HPSReady:0,TELOReady:1,",
                            "[MoraManagerC::verifyMoraSignals] [ERROR]: FPGA or HPS not ready: 1, 0",
                            "Got EFI service HW status: EFIRunningMode:0,FPGAReady:1,HPSReady:1",
                            "[parseHwStatus] [ERROR]: Failed to parse Hw status reply from EFI!",
                            "[MoraManagerC::verifyMoraSignals] [ERROR]: Failed to parse EFI's HW status"));
}

TEST_F(MoraManagerTest, OutsideRunwareNoWaitTouchesTheConsoleTheNetworkOrTheAdapter)
{
    reportStatus(L"EFIRunningMode:1,FPGAReady:1,HPSReady:1,TELOReady:1,");
    EXPECT_FALSE(MoraManagerC::verifyEth(7500, 16000));
    EXPECT_THAT(logMessages(),
                ElementsAre("Attempting to verify MORA Ethernet, timeouts: verify: 7500, fix: 16000",
                            "Waiting for MORA Ethernet, timeout: 7500",
                            "[MoraManagerC::waitForEth] [ERROR]: waitForEth(): EFI not started in runware mode!",
                            "MORA Eth verification: connection failed, attempting to fix",
                            "Attempting to fix MORA Ethernet, timeout: 16000",
                            "[MoraManagerC::waitForBootUart] [ERROR]: waitForBootUart(): EFI not started in runware "
                            "mode!",
                            "[MoraManagerC::fixEth] [ERROR]: Failed to wait for MORA's boot (UART) while trying to "
                            "fix Ethernet"));
}

TEST_F(MoraManagerTest, WithoutTheControllerServiceTheBoardCountsAsDown)
{
    SysManagerC::DestroyInstance();
    m_service.stop();
    EXPECT_FALSE(MoraManagerC::waitForBootUart(15000));
    EXPECT_FALSE(MoraManagerC::verifyMoraSignals());
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages, {"[MoraManagerC::verifyEFIMode] [ERROR]: Failed to execute HW status EFI command",
                   "[MoraManagerC::waitForBootUart] [ERROR]: waitForBootUart(): EFI not started in runware mode!",
                   "[MoraManagerC::verifyMoraSignals] [ERROR]: Failed to execute HW status EFI command"}));
}

}  // namespace
}  // namespace halvern::test
