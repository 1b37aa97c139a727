// Command lines run through the command server on this computer, serial transactions, calibration
// results and the sensor board test commands, against the simulated instrument.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/Sync.h"
#include "platform/sim/SimRoot.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
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

TEST_F(LinkCommandsTest, FortyCommandLinesInOneAsciiWriteGetFortyRepliesInOrder)
{
    // Each reply carries the 4096-byte output field, twice that in ASCII: together far more than one send
    // buffer holds.
    installScriptProgram("C:\\Tools\\say.exe", "echo \"line $1\"");
    std::vector<std::uint8_t> batch;
    for (int i = 0; i < 40; ++i) {
        auto request = here("C:\\Tools\\say.exe " + std::to_string(i));
        const auto frame = SEP::encodeFrame(SEP::CodingE::Ascii, 1025, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                            [&](SEP::DataWriterI& w) { return SEP::encodeRecord(w, request); });
        batch.insert(batch.end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(port->client().sendBytes(batch));
    for (int i = 0; i < 40; ++i) {
        std::vector<std::uint8_t> bytes;
        ASSERT_TRUE(port->client().receiveFrame(bytes, 20000)) << "reply " << i << " of 40 never came";
        SEP::DecodedFrameT reply;
        ASSERT_TRUE(SEP::decodeFrame(bytes, reply));
        ASSERT_EQ(reply.messageId, 1025);
        std::int32_t code = 0, facility = 0;
        std::uint16_t level = 0;
        ASSERT_TRUE(reply.coder->readI32(code) && reply.coder->readI32(facility) && reply.coder->readU16(level));
        ASSERT_EQ(code, 1097);
        REC::ExeCmdReply result;
        ASSERT_EQ(SEP::decodeRecord(*reply.coder, result), SEP::DecodeResultE::Ok);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(result.output)), "line " + std::to_string(i) + "\n");
    }
}

// Replies to commands sent together leave together, but never wait behind a command that waits for
// something outside: a quick command pipelined before a slow one is answered at once.
TEST_F(LinkCommandsTest, AQuickCommandPipelinedBeforeASlowOneIsAnsweredWithoutWaitingForIt)
{
    installScriptProgram("C:\\Tools\\slow.exe", "sleep 3\necho done");
    auto request = here("C:\\Tools\\slow.exe");
    request.runnerValue = 10000;
    std::vector<std::uint8_t> batch = SEP::encodeFrame(SEP::CodingE::Binary, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, {});
    const auto slow = SEP::encodeFrame(SEP::CodingE::Binary, 1025, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                       [&](SEP::DataWriterI& w) { return SEP::encodeRecord(w, request); });
    batch.insert(batch.end(), slow.begin(), slow.end());
    ASSERT_TRUE(port->client().sendBytes(batch));

    std::vector<std::uint8_t> bytes;
    ASSERT_TRUE(port->client().receiveFrame(bytes, 1500)) << "the quick reply waited for the slow command";
    SEP::DecodedFrameT reply;
    ASSERT_TRUE(SEP::decodeFrame(bytes, reply));
    EXPECT_EQ(reply.messageId, 1001);
    ASSERT_TRUE(port->client().receiveFrame(bytes, 10000)) << "the slow command's reply never came";
    ASSERT_TRUE(SEP::decodeFrame(bytes, reply));
    EXPECT_EQ(reply.messageId, 1025);
}

TEST_F(LinkCommandsTest, ALineFeedInAClientsStringStartsNoLineOfItsOwnInTheLog)
{
    auto request = here("C:\\Tools\\missing.exe\n2026-11-25 12:00:00\tInitiate Shutdown sequence");
    auto reply = port->askRecord(1025, request);
    ASSERT_TRUE(reply.received);
    const std::string content = readWholeFile("D:\\logs\\Halvern.log");
    EXPECT_EQ(content.find("\n2026-11-25 12:00:00"), std::string::npos) << "a forged line";
    EXPECT_NE(content.find("cmd: C:\\Tools\\missing.exe\\n2026-11-25 12:00:00\tInitiate Shutdown sequence, dir: "),
              std::string::npos)
        << content;
}

TEST_F(LinkCommandsTest, ACommandThatNeverEndsHoldsOnlyItsConnectionAndStoppingThePortCancelsIt)
{
    installScriptProgram("C:\\Tools\\forever.exe", "echo $$ > \"$HALVERN_ROOT/forever.pid\"\nexec sleep 1000");
    // Wait 0: the longest wait, a minute.
    auto request = here("C:\\Tools\\forever.exe");
    ASSERT_TRUE(
        port->client().sendBytes(SEP::encodeFrame(SEP::CodingE::Binary, 1025, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                                  [&](SEP::DataWriterI& w) { return SEP::encodeRecord(w, request); })));
    const std::string pidFile = platform::sim::root() + "/forever.pid";
    for (int i = 0; i < 1000 && !std::ifstream(pidFile).good(); ++i)
        platform::sleepMs(10);
    ASSERT_TRUE(std::ifstream(pidFile).good()) << "the program never started";

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    ASSERT_TRUE(second.sendBytes(SEP::encodeFrame(SEP::CodingE::Ascii, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, {})));
    std::vector<std::uint8_t> bytes;
    ASSERT_TRUE(second.receiveFrame(bytes, 10000)) << "the port's other client waits for the stalled one";
    SEP::DecodedFrameT reply;
    ASSERT_TRUE(SEP::decodeFrame(bytes, reply));
    EXPECT_EQ(reply.messageId, 1001);

    // Stopping the port cancels the command: the program is terminated and the stop ends within its bound.
    EXPECT_TRUE(port->server().stop());
    EXPECT_GE(findMessage(logMessages(), "[ERROR]: Failed to wait for the process to terminate!"), 0);
    int pid = 0;
    std::ifstream(pidFile) >> pid;
    ASSERT_GT(pid, 0);
    // Gone, or a zombie that only waits to be reaped.
    std::string stat;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat);
    const std::size_t state = stat.rfind(')');
    EXPECT_TRUE(stat.empty() || (state != std::string::npos && stat.compare(state, 3, ") Z") == 0)) << stat;
}

TEST_F(LinkCommandsTest, WaitsAboveAMinuteAreRefusedAsOutOfRange)
{
    auto request = here("C:\\Tools\\missing.exe");
    request.runnerValue = 60001;
    auto reply = port->askRecord(1025, request);
    EXPECT_EQ(reply.errorText, "Value out of range ( timeout above 60000 ms)");
    REC::UartTransCmd uart;
    std::string("MORA").copy(uart.uartName, 4);
    uart.a = 60001;
    reply = port->askRecord(1036, uart);
    EXPECT_EQ(reply.errorText, "Value out of range ( timeout above 60000 ms)");
    EXPECT_EQ(findMessage(logMessages(), "Got UART MORA transaction "), -1) << "nothing ran";
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
