// The sensor board and HMI board links against the simulated boards: start-up's boot wait and kernel log
// marker, the Ethernet check and its repair through the device tool, the board checks and commands of the
// command server, and the calibration results.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>

#include "app/LogText.h"
#include "app/StartUpSteps.h"
#include "links/DivoManagerC.h"
#include "links/MoraManagerC.h"
#include "platform/sim/SimRoot.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/board/CalibrationMutexesC.h"
#include "sim/board/HmiBoardModelC.h"
#include "sim/board/SensorBoardModelC.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"
#include "support/Eventually.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {
namespace {

using links::MoraManagerC;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
namespace REC = Varda::SEP::HALVERN;

constexpr int kQuickBootMs = 250;

class BoardLinksTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        const std::string root = platform::sim::root();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(root, HALVERN_STANDIN_PROGRAM, error)) << error;
        // The I2C devices with the WLAN module powered, as at power-on: start-up has no module to wait for.
        ASSERT_TRUE(m_i2c.start(error)) << error;
        sim::EfiHwStatusState runware;
        runware.runningMode = 0;
        m_efiModel.setHwStatus(runware);
        ASSERT_TRUE(m_efiService.start());
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
        m_board.setBootDelay(kQuickBootMs);
        ASSERT_TRUE(m_board.start(root, error)) << error;
        ASSERT_TRUE(m_hmi.start(root, error)) << error;
        SysManagerC::Instance()->ApplySensorBoardEndpoint();
        moraUartReadyFlag() = true;
    }
    void TearDown() override
    {
        port.reset();
        SysManagerC::DestroyInstance();
        m_hmi.stop();
        m_board.stop();
        m_efiService.stop();
        InstrumentTest::TearDown();
        m_i2c.stop();
    }
    bool booted()
    {
        return eventually([this] { return m_board.stage() == sim::SensorBoardModelC::StageE::Login; });
    }
    bool kernelLogHas(const std::string& text)
    {
        const auto lines = m_board.kernelLog();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
    template <typename Record>
    CommandReplyT ask(std::uint16_t id, Record& request)
    {
        if (!port) port = std::make_unique<SepCommandPort>();
        return port->askRecord(id, request);
    }
    static std::size_t count(const std::vector<std::string>& messages, const std::string& prefix)
    {
        return static_cast<std::size_t>(std::count_if(messages.begin(), messages.end(),
                                                      [&](const std::string& m) { return m.rfind(prefix, 0) == 0; }));
    }

    sim::EfiControllerModelC m_efiModel;
    sim::EfiServiceSimC m_efiService{m_efiModel};
    sim::SensorBoardModelC m_board;
    sim::HmiBoardModelC m_hmi;
    ServedI2cDevicesC m_i2c;
    std::unique_ptr<SepCommandPort> port;
};

TEST_F(BoardLinksTest, StartUpWaitsForTheBootMarksTheKernelLogAndFindsTheLink)
{
    ASSERT_TRUE(booted());
    // Start-up opens the controller link itself, on a fresh system manager.
    SysManagerC::DestroyInstance();
    HwRelatedInit();
    VerifyMoraEthernet();
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"MORA boot OK (UART)", "Halvern [wWinMain]: MORA Ethernet link OK"}));
    EXPECT_EQ(count(messages, "Waiting for MORA boot (UART), login: "), 1u) << "the user name is sent once";
    EXPECT_TRUE(kernelLogHas("VANT: Halvern started"));
    EXPECT_TRUE(moraUartReadyFlag());
    EXPECT_THAT(messages, Not(Contains(HasSubstr("devcon")))) << "a link that works is not repaired";
}

TEST_F(BoardLinksTest, AnUnpluggedLinkIsRepairedByRestartingTheAdapter)
{
    ASSERT_TRUE(booted());
    m_board.setEthernetPlugged(false);
    ASSERT_TRUE(eventually([this] { return !m_board.linkUp(); }));
    EXPECT_FALSE(MoraManagerC::waitForEth(300));
    EXPECT_TRUE(MoraManagerC::verifyEth(300, 10000));
    EXPECT_TRUE(m_board.linkUp());
    EXPECT_TRUE(kernelLogHas("VANT: Restarting VANT Ethernet adapter"));
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"MORA Eth verification: connection failed, attempting to fix", "Executing command to restart VANT Ethernet",
         "Executing command to enable/disable MORA Ethernet: C:\\vexarBatches\\FirmwareUpdater\\devcon.exe disable "
         "@PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1",
         "Executing command to enable/disable MORA Ethernet: C:\\vexarBatches\\FirmwareUpdater\\devcon.exe enable "
         "@PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1",
         "MORA Ethernet connection successful."}));
}

TEST_F(BoardLinksTest, ABoardInItsBootLoaderStillCountsAsReachableAMissingConsoleDoesNot)
{
    m_board.setUBootOnly(true);
    m_board.powerOff();
    m_board.powerOn();
    EXPECT_FALSE(MoraManagerC::waitForBootUart(600));
    EXPECT_TRUE(MoraManagerC::verifyMoraUBootState());

    // Without its console port, and with the controller outside its normal firmware so that the boot
    // wait ends at once.
    m_board.stop();
    sim::EfiHwStatusState loader;
    loader.runningMode = 1;
    m_efiModel.setHwStatus(loader);
    SysManagerC::DestroyInstance();
    HwRelatedInit();
    EXPECT_FALSE(moraUartReadyFlag());
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"Halvern [HwRelatedInit] [ERROR]: failed to verify MORA's boot over UART",
                                        "[MoraManagerC::verifyMoraUBootState] [ERROR]: Failed to execute MORA "
                                        "UART transaction"}));
}

TEST_F(BoardLinksTest, CommandsOnTheBoardsShellFailWithTheirStatusAndTheConsoleAnswersOverSep)
{
    ASSERT_TRUE(booted());
    REC::ExeCmdRequest remote;
    std::string("false").copy(remote.commandLine, 5);
    auto reply = ask(1025, remote);
    EXPECT_EQ(reply.errorText, "General failure ( failed to execute command)") << "a failing remote command";
    remote = REC::ExeCmdRequest{};
    std::string("echo $PWD").copy(remote.commandLine, 9);
    std::string("/tmp").copy(remote.directory, 4);
    reply = ask(1025, remote);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::ExeCmdReply result;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, result), SEP::DecodeResultE::Ok);
    EXPECT_THAT(std::string(reinterpret_cast<const char*>(result.output)), HasSubstr("/tmp"));

    // The console waits at its login prompt: a technician logs in first.
    REC::UartTransCmd uart;
    std::string("MORA").copy(uart.uartName, 4);
    std::string("root\r\n").copy(uart.input, 6);
    reply = ask(1036, uart);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    uart = REC::UartTransCmd{};
    std::string("MORA").copy(uart.uartName, 4);
    std::string("uname -o\r\n").copy(uart.input, 10);
    reply = ask(1036, uart);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, uart), SEP::DecodeResultE::Ok);
    EXPECT_THAT(std::string(uart.reply), HasSubstr("GNU/Linux"));

    REC::TestCmd test;
    test.a = 3;
    test.b = 500;
    reply = ask(1046, test);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_TRUE(containsInOrder(
        logMessages(), {"Got request to execute test command 3", "Test command: wait for MORA eth, timeout: 500",
                        "MORA Ethernet connection successful."}));
}

TEST_F(BoardLinksTest, TwoClientsTransactionsOnTheBoardsConsoleAtOnceBothGetTheBoardsAnswer)
{
    ASSERT_TRUE(booted());
    const auto transaction = [](const std::string& input) {
        REC::UartTransCmd uart;
        std::string("MORA").copy(uart.uartName, 4);
        input.copy(uart.input, input.size());
        uart.a = 400;
        return uart;
    };
    auto login = transaction("root\r\n");
    ASSERT_EQ(ask(1036, login).returnCode, 1097);

    // Two service tools on the two ports: the console's port opens for one owner at a time, so the second
    // transaction waits for the first instead of failing to open it.
    SepCommandPort first;
    SepCommandPort second;
    const auto run = [&transaction](SepCommandPort& client) {
        auto uart = transaction("uname -o\r\n");
        const CommandReplyT reply = client.askRecord(1036, uart);
        if (reply.returnCode != 1097) return "error: " + reply.errorText;
        if (SEP::decodeRecord(*reply.frame.coder, uart) != SEP::DecodeResultE::Ok) return std::string("undecodable");
        return std::string(uart.reply);
    };
    auto one = std::async(std::launch::async, run, std::ref(first));
    auto two = std::async(std::launch::async, run, std::ref(second));
    EXPECT_THAT(one.get(), HasSubstr("GNU/Linux"));
    EXPECT_THAT(two.get(), HasSubstr("GNU/Linux"));
}

TEST_F(BoardLinksTest, ATestCommandWhoseReplyCannotBeEncodedIsAnsweredWithAnErrorThatSaysWhy)
{
    ASSERT_TRUE(booted());
    if (!port) port = std::make_unique<SepCommandPort>();
    // Test 3 (wait for the board's Ethernet, 500 ms) with the label "o\x01k": the check passes, and the
    // label comes back in the success reply, which the coding cannot carry.
    std::vector<std::uint8_t> parameters{3, 0, 0, 0, 0xF4, 0x01, 0, 0, 0x22, 'o', 0x01, 'k', 0x22};
    auto reply = port->askWire(1046, rawBinaryCommand(1046, parameters));
    ASSERT_TRUE(reply.received) << "the command was left unanswered";
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, std::string("General failure ( ") + HalvernSepImpl::kReplyNotEncodable + ")");
    EXPECT_TRUE(containsInOrder(logMessages(), {"Test command: wait for MORA eth, timeout: 500", reply.errorText}));
}

TEST_F(BoardLinksTest, TwoMegabytesOfBoardOutputLeaveNoLogLineAboveTheMaximum)
{
    ASSERT_TRUE(booted());
    // 2 MB of lines on the board, printed by its shell.
    {
        std::ofstream big(platform::sim::root() + "/sim/sensorboard/fs/tmp/big.txt");
        const std::string line(99, 'm');
        for (int i = 0; i < 20000; ++i)
            big << line << '\n';
    }
    REC::ExeCmdRequest request;
    request.vantNotMora = false;
    std::string("cat /tmp/big.txt").copy(request.commandLine, 1023);
    request.runnerValue = 30000;
    auto reply = ask(1025, request);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::ExeCmdReply result;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, result), SEP::DecodeResultE::Ok);
    const std::string output(reinterpret_cast<const char*>(result.output));
    ASSERT_EQ(output.size(), 4095u);
    EXPECT_GE(result.truncated, 2000000u - 4095u);

    const std::string content = readWholeFile("D:\\logs\\Halvern.log");
    std::size_t longest = 0;
    for (std::size_t start = 0; start < content.size();) {
        const std::size_t end = content.find('\n', start);
        const std::size_t length = (end == std::string::npos ? content.size() : end + 1) - start;
        longest = std::max(longest, length);
        start += length;
    }
    EXPECT_LE(longest, kLogLineMax);
    EXPECT_THAT(content, HasSubstr("Command's return code: 0, output:"));
}

TEST_F(BoardLinksTest, TheHmiBoardsRegistersGiveTheCalibrationResults)
{
    std::uint32_t state = 9;
    EXPECT_TRUE(links::DivoManagerC::curTouchCalExecInfo(state));
    EXPECT_EQ(state, links::DIVO_CAL_STORED);
    m_hmi.setRegister(sim::kHmiTouchRegister, 0x0011);
    m_hmi.setRegister(sim::kHmiVoltageRegister, 0x0000);
    EXPECT_TRUE(links::DivoManagerC::curTouchCalExecInfo(state));
    EXPECT_EQ(state, links::DIVO_CAL_UNDECODABLE);
    EXPECT_TRUE(links::DivoManagerC::curScrVltgCalExecInfo(state));
    EXPECT_EQ(state, links::DIVO_CAL_NOT_STORED);
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"DIVO Touch Calibration Status 0x0010", "DIVO Touch Calibration Status 0x0011",
                                        "In the last run, the user didn't save the new settings to the "
                                        "DIVO. The last successfully stored values will be used.",
                                        "DIVO Voltage Calibration Status 0x0000"}));

    m_hmi.setSilent(true);
    EXPECT_FALSE(links::DivoManagerC::curTouchCalExecInfo(state));
    CheckTouchState();
    EXPECT_TRUE(containsInOrder(logMessages(), {"[DivoManagerC::curTouchCalExecInfo] [ERROR]: Touch Calibration App "
                                                "Status: Got empty reply from DIVO.  ERROR(0)",
                                                "[ERROR]: Touch is not working!"}));
}

}  // namespace
}  // namespace halvern::test
