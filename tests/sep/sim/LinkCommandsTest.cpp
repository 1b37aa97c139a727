// Command lines run through the command server on this computer, serial transactions, calibration
// results and the sensor board test commands, against the simulated instrument.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/Sync.h"
#include "platform/sim/SimRoot.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/server/HalvernSepRecords.h"
#include "support/ScriptProgram.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;

class LinkCommandsTest : public SepPortTest {
protected:
    static REC::ExeCmdRequest here(const std::string& line)
    {
        REC::ExeCmdRequest request;
        request.vantNotMora = true;
        line.copy(request.commandLine, sizeof request.commandLine - 1);
        return request;
    }
};

TEST_F(LinkCommandsTest, ALocalCommandReportsItsCodeAndBothStreamsAndKeepsTheEndOfLongOutput)
{
    installScriptProgram("C:\\Tools\\check.exe", "echo \"out $1\"\necho \"err\" >&2\nexit 3");
    auto request = here("C:\\Tools\\check.exe one");
    auto reply = port->askRecord(1025, request);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::ExeCmdReply result;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, result), SEP::DecodeResultE::Ok);
    EXPECT_EQ(result.returnCode, 3) << "a failing local command still ran";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(result.output)), "out one\nerr\n");
    EXPECT_EQ(result.truncated, 0u);

    // 4999 characters and a line feed: the last 4095 stay, with the number of those dropped in front.
    installScriptProgram("C:\\Tools\\chatty.exe", "printf 'a%.0s' $(seq 1 4000)\nprintf 'b%.0s' $(seq 1 999)\necho");
    request = here("C:\\Tools\\chatty.exe");
    reply = port->askRecord(1025, request);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, result), SEP::DecodeResultE::Ok);
    const std::string output(reinterpret_cast<const char*>(result.output));
    EXPECT_EQ(result.truncated, 905u);
    EXPECT_EQ(output, std::string(3095, 'a') + std::string(999, 'b') + "\n");
    EXPECT_TRUE(containsInOrder(logMessages(), {"Truncated command by 905 to 4095"}));

    request = here("C:\\Tools\\missing.exe");
    reply = port->askRecord(1025, request);
    EXPECT_EQ(reply.errorText, "General failure ( failed to execute command)");
}

// The fields as a client that ignores the buffer sizes sends them: a string that fills its buffer has no
// room for its terminator.
std::function<bool(SEP::DataWriterI&)> commandFields(const std::string& line, const std::string& directory)
{
    return [line, directory](SEP::DataWriterI& w) {
        return w.writeBool(true) && w.writeString(line.c_str()) && w.writeString(directory.c_str()) && w.writeU32(0);
    };
}

TEST_F(LinkCommandsTest, UnterminatedFieldsAreNamedAndNothingRuns)
{
    installScriptProgram("C:\\Tools\\mark.exe", "touch \"$HALVERN_ROOT/ran\"");
    auto reply = port->ask(1025, commandFields("C:\\Tools\\mark.exe", std::string(1024, 'd')));
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( directory for cmd)");
    reply = port->ask(1025, commandFields(std::string(1024, 'c'), ""));
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( command line)");
    EXPECT_FALSE(std::ifstream(platform::sim::root() + "/ran").good());

    reply = port->ask(1036, [](SEP::DataWriterI& w) {
        return w.writeString("MORA") && w.writeString(std::string(256, 'x').c_str()) && w.writeString("") &&
               w.writeString("") && w.writeU32(0) && w.writeU32(0);
    });
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( UART input)");
}

TEST_F(LinkCommandsTest, WithoutTheBoardsTheirCommandsSayTheyFailed)
{
    REC::UartTransCmd uart;
    std::string("MORA").copy(uart.uartName, 4);
    std::string("uname -o\r\n").copy(uart.input, 10);
    auto reply = port->askRecord(1036, uart);
    EXPECT_EQ(reply.errorText, "General failure ( UART transaction failed)");
    std::string("TELO").copy(uart.uartName, 4);
    reply = port->askRecord(1036, uart);
    EXPECT_EQ(reply.errorText, "General failure ( UART transaction failed)") << "an unknown port is no port";

    reply = port->ask(1043);
    EXPECT_EQ(reply.errorText,
              "General failure ( Failed to communicate with DIVO COM5 to get status for the last "
              "execution of the Touch Calibration App.)");

    REC::TestCmd test;
    test.a = 7;
    reply = port->askRecord(1046, test);
    EXPECT_EQ(reply.errorText, "General failure ( failed to execute test command)");
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"Got request to execute test command 7", "Test command: invalid command requsted."}));

    // A repair that a client asks to go on for hours would hold every client of the port as long.
    test.a = 1;
    test.b = 16777003;
    reply = port->askRecord(1046, test);
    EXPECT_EQ(reply.errorText, "Value out of range ( timeout above 60000 ms)");
    EXPECT_EQ(findMessage(logMessages(), "Test command: verify/fix MORA eth, timeout: 16777003"), -1);
}

TEST_F(LinkCommandsTest, ARunningCalibrationApplicationIsReportedWithoutAskingTheBoard)
{
    auto running = platform::createMutex(nullptr, true, L"Global\\VLTGSCRAPP");
    ASSERT_TRUE(running);
    auto reply = port->ask(1044);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::CurScreenAppExecInfo result;
    result.status = 9;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, result), SEP::DecodeResultE::Ok);
    EXPECT_EQ(result.status, 0u);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"Screen Voltage Calibration Application is running."}));
    for (const auto& message : messages)
        EXPECT_EQ(message.find("COM5"), std::string::npos) << "the board was asked: " << message;
}

}  // namespace
}  // namespace halvern::test
