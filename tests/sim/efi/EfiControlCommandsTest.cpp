// The simulated EFI service as a person or a script drives it through halvern-sim's control commands,
// seen from Halvern's side of the pipes.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "efi/EFIServiceIPC.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "platform/NamedPipe.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/efi/EfiControlCommands.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class EfiControlCommandsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addEfiControlCommands(m_commands, m_model, m_service);
        ASSERT_TRUE(m_service.start());
    }
    void TearDown() override
    {
        m_client.ShutdownEFICommunication();
        m_service.stop();
        InstrumentTest::TearDown();
    }
    std::int32_t battery(int id, int item)
    {
        auto reply = m_client.ExecuteBatteryCommand(id, item, true);
        return reply ? reply->GetValue() : -1;
    }
    std::int32_t statusControl(int item)
    {
        auto reply = m_client.ExecuteStatusControlCommand(item, EFI_SC_GET, 0, true);
        return reply ? reply->GetValue() : -1;
    }
    // Reads the next notification the service pushes, as Halvern's reader does.
    std::wstring nextNotification(platform::UniqueHandle& pipe)
    {
        std::vector<char16_t> buffer(64);
        std::uint32_t got = 0;
        if (!platform::readPipe(pipe.get(), buffer.data(), 128, got)) return L"<none>";
        return efi::fromWire(buffer.data(), got / 2);
    }

    sim::ControlCommandsC m_commands;
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    EFIServiceIPC m_client;
};

TEST_F(EfiControlCommandsTest, StateSetFromOutsideIsWhatHalvernReads)
{
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    EXPECT_EQ(m_commands.execute("efi battery H rsoc 12"), "OK battery H rsoc 12");
    EXPECT_EQ(m_commands.execute("efi battery l temp 2931"), "OK battery l temp 2931");
    EXPECT_EQ(battery(EFI_BATTERY_H, EFI_BATTERY_RSOC), 12);
    EXPECT_EQ(battery(EFI_BATTERY_L, EFI_BATTERY_TEMP), 2931);

    EXPECT_EQ(statusControl(EFI_SC_PWRSOURCE), sim::kPowerSourceMains);
    EXPECT_EQ(m_commands.execute("efi power battery").rfind("OK on battery", 0), 0u);
    EXPECT_EQ(statusControl(EFI_SC_PWRSOURCE), sim::kPowerSourceBattery);
    auto ext = m_client.ExecuteExtSupplyCommand(EFI_EXT_VOLTAGE, true);
    ASSERT_TRUE(ext);
    EXPECT_EQ(ext->GetReplyText(), L"0");

    // Values Halvern sets stay set: autorun, power selection, the battery type offsets.
    m_client.ExecuteStatusControlCommand(EFI_SC_AUTORUN, EFI_SC_SET, 1, false);
    m_client.ExecuteStatusControlCommand(EFI_SC_PWRSELECT, EFI_SC_SET, 0x1a, false);
    EXPECT_EQ(statusControl(EFI_SC_AUTORUN), 1);
    EXPECT_EQ(statusControl(EFI_SC_PWRSELECT), 0x1a);
    EFIServiceIPCDirectCommand set(L"REG:SET:75:300");
    EXPECT_TRUE(m_client.ExecuteCommandTransaction(set));
    EFIServiceIPCDirectCommand get(L"REG:GET:75");
    ASSERT_TRUE(m_client.ExecuteCommandTransaction(get));
    EXPECT_EQ(get.GetReplyText(), L"300");
    // The battery type bytes are read-only.
    EFIServiceIPCDirectCommand setType(L"REG:SET:76:1");
    EXPECT_FALSE(m_client.ExecuteCommandTransaction(setType));

    EXPECT_EQ(m_commands.execute("efi hwstatus 3 1 0 1"), "OK hwstatus 3 1 0 1");
    auto status = m_client.ExecuteBasicCommand(EFI_BASIC_HWSTATUS, true);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->GetReplyText(), L"EFIRunningMode:3,FPGAReady:1,HPSReady:0,TELOReady:1,");

    EXPECT_EQ(m_commands.execute("efi battery X rsoc 1").rfind("ERROR", 0), 0u);
    EXPECT_EQ(m_commands.execute("efi battery L rsoc lots").rfind("ERROR", 0), 0u);
    EXPECT_EQ(m_commands.execute("radar"), "ERROR unknown command radar");
}

TEST_F(EfiControlCommandsTest, EveryRequestTheControllerReceivesIsRecordedInOrder)
{
    const std::string file = platform::sim::root() + "/sim/efi/commands";
    m_model.recordCommandsTo(file);
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    EXPECT_EQ(m_commands.execute("efi history"), "OK ");
    m_client.ExecuteBasicCommand(EFI_BASIC_REBOOT, false);
    m_client.ExecuteBasicCommand(EFI_BASIC_CLOSE, true);
    EFIServiceIPCDirectCommand unknown(L"NO:SUCH");
    m_client.ExecuteCommandTransaction(unknown);
    // Also what it answers "OK" without acting on it, and what it does not know.
    EXPECT_EQ(m_commands.execute("efi history"), "OK BASIC:REBOOT; BASIC:CLOSE; NO:SUCH");
    std::ifstream in(file);
    const std::string recorded((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(recorded, "BASIC:REBOOT\nBASIC:CLOSE\nNO:SUCH\n");
}

TEST_F(EfiControlCommandsTest, ButtonSupplyAndErrorsArePushedAsNotifications)
{
    platform::UniqueHandle reader = platform::openPipe(L"\\\\.\\pipe\\EFIServiceNotify");
    ASSERT_TRUE(reader);
    // The service registers the reader once it has accepted it.
    std::string reply;
    for (int i = 0; i < 5000 && (reply = m_commands.execute("efi button press")) != "OK pressed (1 reader)"; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_EQ(reply, "OK pressed (1 reader)");
    EXPECT_EQ(m_commands.execute("efi button hold 0"), "OK held 0 ms (1 reader)");
    EXPECT_EQ(m_commands.execute("efi power mains"), "OK on mains (1 reader)");
    EXPECT_EQ(m_commands.execute("efi supervisor"), "OK supervisor intervention (1 reader)");
    EXPECT_EQ(m_commands.execute("efi error 12"), "OK error 12 (1 reader)");

    for (const wchar_t* expected : {L"#1", L"#1", L"#2", L"#5", L"#4", L"!12"})
        EXPECT_EQ(nextNotification(reader), expected);
}

TEST_F(EfiControlCommandsTest, AStoppedServiceBreaksThePipesAndARestartedOneServesNewClients)
{
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    EXPECT_EQ(m_commands.execute("efi service stop"), "OK service stopped");
    EXPECT_EQ(m_commands.execute("efi button press"), "ERROR the EFI service is stopped");
    EXPECT_EQ(battery(EFI_BATTERY_L, EFI_BATTERY_RSOC), -1);
    m_client.ShutdownEFICommunication();

    EXPECT_EQ(m_commands.execute("efi service start"), "OK service started");
    ASSERT_TRUE(m_client.InitializeEFICommunication());
    EXPECT_EQ(battery(EFI_BATTERY_L, EFI_BATTERY_RSOC), 85);
}

}  // namespace
}  // namespace halvern::test
