// Commands that reach through the board links: a command line run here or on the sensor board, one
// serial-port transaction, the HMI board's calibration results and the sensor board test commands.
#include <cstring>
#include <string>

#include "app/Log.h"
#include "links/DivoManagerC.h"
#include "links/MoraManagerC.h"
#include "links/ProcRunner.h"
#include "links/SerialPortC.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;
using halvern::links::DivoManagerC;
using halvern::links::MoraManagerC;

constexpr std::uint32_t kDefaultUartWaitMs = 100;
// The longest wait a client may ask of these commands: each holds its connection's queue that long, and a
// shutdown cancels it. A longer one is refused with code 7.
constexpr std::uint32_t kLongestCommandWaitMs = 60000;
constexpr const char* kWaitAboveLongest = "timeout above 60000 ms";

// What fits a reply buffer of `capacity` bytes with its NUL: the end of `text`, the newest part of an
// output; the number of characters dropped from the front.
template <typename Char, std::size_t capacity>
std::size_t copyTail(const std::string& text, Char (&buffer)[capacity])
{
    const std::size_t dropped = text.size() > capacity - 1 ? text.size() - (capacity - 1) : 0;
    std::memset(buffer, 0, capacity);
    std::memcpy(buffer, text.data() + dropped, text.size() - dropped);
    return dropped;
}

void handleExecuteCommand(SEP::ReceivedCommandC& command)
{
    REC::ExeCmdRequest request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"command line", "directory for cmd"})) return;
    if (request.runnerValue > kLongestCommandWaitMs) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE, kWaitAboveLongest);
        return;
    }
    const std::string line = request.commandLine;
    const std::string directory = request.directory;
    WriteLog("Got request to execute command. VantNotMora: %d, cmd: %s, dir: %s", request.vantNotMora ? 1 : 0,
             line.c_str(), directory.c_str());
    std::string output;
    std::int32_t returnCode = 0;
    bool ran = false;
    std::size_t droppedByRunner = 0;
    // A local command that fails still ran and reports its exit code; a remote one with a non-zero status
    // counts as not executed. Service tools rely on both.
    if (request.vantNotMora) {
        std::uint32_t exitCode = 0;
        // 0 is the longest wait, not for ever: a program that does not end is terminated then.
        ran = halvern::links::runVantCommand(
            line, output, exitCode, request.runnerValue != 0 ? request.runnerValue : kLongestCommandWaitMs, directory);
        returnCode = static_cast<std::int32_t>(exitCode);
    } else {
        int status = 0;
        ran = halvern::links::runMoraCommand(line, output, status, request.runnerValue, directory, &droppedByRunner);
        returnCode = status;
    }
    if (!ran) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to execute command");
        return;
    }
    WriteLog("Command's return code: %d, output:\n%s\n", returnCode, output.c_str());
    REC::ExeCmdReply reply;
    const std::size_t dropped = droppedByRunner + copyTail(output, reply.output);
    if (dropped > 0)
        WriteLog("Truncated command by %d to %d", static_cast<int>(dropped),
                 static_cast<int>(droppedByRunner + output.size() - dropped));
    reply.returnCode = returnCode;
    reply.truncated = static_cast<std::uint32_t>(dropped);
    HalvernSepImpl::SendSuccess(command, &reply);
}

// The request names the port by its board ("MORA", "DIVO", "EFI"); the configuration text, when given,
// is the terminator the reply is cut at; the first number is how long to collect the reply (0: 100 ms).
// The reply carries what came back and, in the second number, how many characters did not fit.
void handleUartTransaction(SEP::ReceivedCommandC& command)
{
    REC::UartTransCmd request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"UART name", "UART input", "UART cfg", "UART reply"})) return;
    if (request.a > kLongestCommandWaitMs) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE, kWaitAboveLongest);
        return;
    }
    WriteLog("Got UART %s transaction %s", request.uartName, request.input);
    std::string reply;
    if (!halvern::links::comPortTransaction(request.uartName, request.config, request.input, reply,
                                            request.a != 0 ? request.a : kDefaultUartWaitMs)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "UART transaction failed");
        return;
    }
    REC::UartTransCmd answer = request;
    const std::size_t dropped = copyTail(reply, answer.reply);
    WriteLog("Got UART reply (truncated %d): %s", static_cast<int>(dropped), reinterpret_cast<char*>(answer.reply));
    // A reply cut at its front would read as a whole one to a tool that parses it.
    if (dropped > 0) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "UART reply too long to return");
        return;
    }
    answer.b = 0;
    HalvernSepImpl::SendSuccess(command, &answer);
}

template <bool (*ask)(std::uint32_t&)>
void handleCalibrationResult(SEP::ReceivedCommandC& command, const char* failure)
{
    REC::CurScreenAppExecInfo reply;
    if (!ask(reply.status)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, failure);
        return;
    }
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleTouchCalibrationResult(SEP::ReceivedCommandC& command)
{
    handleCalibrationResult<DivoManagerC::curTouchCalExecInfo>(
        command,
        "Failed to communicate with DIVO COM5 to get status for the last execution of the Touch Calibration App.");
}

void handleVoltageCalibrationResult(SEP::ReceivedCommandC& command)
{
    handleCalibrationResult<DivoManagerC::curScrVltgCalExecInfo>(
        command,
        "Failed to communicate with DIVO COM5 to get status for the last execution of the Screen Voltage "
        "Calibration App.");
}

// Sensor board checks for service: 0 wait for its boot over the UART, 1 verify and if need be fix its
// Ethernet, 2 fix its Ethernet, 3 wait for its Ethernet. A timeout below 1 takes each check's default.
bool runTestCommand(std::int32_t number, std::int32_t timeoutMs)
{
    const bool byDefault = timeoutMs < 1;
    switch (number) {
        case 0:
            if (byDefault) {
                WriteLog("Test command: wait for MORA boot, default timeout");
                return MoraManagerC::waitForBootUart(10000);
            }
            WriteLog("Test command: wait for MORA boot, timeout: %d", timeoutMs);
            return MoraManagerC::waitForBootUart(timeoutMs);
        case 1:
            if (byDefault) {
                WriteLog("Test command: verify/fix MORA eth, default timeout");
                return MoraManagerC::verifyEth(7500, 16000);
            }
            // The given time is for the repair; the first look stays short.
            WriteLog("Test command: verify/fix MORA eth, timeout: %d", timeoutMs);
            return MoraManagerC::verifyEth(2500, timeoutMs);
        case 2:
            if (byDefault) {
                WriteLog("Test command: fix MORA eth, default timeout");
                return MoraManagerC::fixEth(10000);
            }
            WriteLog("Test command: fix MORA eth, timeout: %d", timeoutMs);
            return MoraManagerC::fixEth(timeoutMs);
        case 3:
            if (byDefault) {
                WriteLog("Test command: wait for MORA eth, default timeout");
                return MoraManagerC::waitForEth(5000);
            }
            WriteLog("Test command: wait for MORA eth, timeout: %d", timeoutMs);
            return MoraManagerC::waitForEth(timeoutMs);
        default:
            WriteLog("Test command: invalid command requsted.");
            return false;
    }
}

// The reply repeats the command and its timeout; its text, behind the caller's own text if one was
// given, says that the check passed.
void handleTestCommand(SEP::ReceivedCommandC& command)
{
    REC::TestCmd request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"string parameter"})) return;
    WriteLog("Got request to execute test command %d", request.a);
    // A minute is far more than any repair takes; hours would hold the connection for hours.
    if (request.b > static_cast<std::int32_t>(kLongestCommandWaitMs)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE, kWaitAboveLongest);
        return;
    }
    if (!runTestCommand(request.a, request.b)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to execute test command");
        return;
    }
    const std::string label = request.text;
    const std::string result =
        (label.empty() ? "" : label + ": ") + "test command " + std::to_string(request.a) + " passed";
    REC::TestCmd reply = request;
    if (result.size() >= sizeof reply.text) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "reply string too long");
        return;
    }
    copyTail(result, reply.text);
    HalvernSepImpl::SendSuccess(command, &reply);
}

}  // namespace

std::vector<HandlerEntryT> linkHandlers()
{
    return {{1025, handleExecuteCommand},
            {1036, handleUartTransaction},
            {1043, handleTouchCalibrationResult},
            {1044, handleVoltageCalibrationResult},
            {1046, handleTestCommand}};
}

}  // namespace HalvernSepHandlers
