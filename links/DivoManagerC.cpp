#include "links/DivoManagerC.h"

#include <cstdio>
#include <string>

#include "app/Log.h"
#include "links/SerialPortC.h"
#include "platform/Sync.h"
#include "platform/WinError.h"

namespace halvern::links {
namespace {

constexpr std::uint32_t kDivoWaitMs = 500;
constexpr unsigned kNewSettingsNotStored = 0x0000;
constexpr unsigned kNewSettingsStored = 0x0010;

// The texts and names of one of the two questions; the steps are the same.
struct CalibrationQuestionT {
    const char* tag;
    const wchar_t* runningMutex;
    const char* request;
    const char* replyKey;
    const char* runningText;
    const char* wakeFailedText;
    const char* requestFailedText;
    const char* emptyReplyText;
    const char* parseFailedText;
    const char* undecodableText;
    const char* statusText;
};

constexpr CalibrationQuestionT kTouchQuestion{
    "DivoManagerC::curTouchCalExecInfo",
    L"Global\\TOUCHSCRAPP",
    "G2B",
    "R2B",
    "Touch Calibration Application is running.",
    "[%s] [ERROR]: Failed to communicate with DIVO COM5 to get status for the Touch Calibration App. ERROR(%d)",
    "[%s] [ERROR]: Failed to send G2B command to DIVO. ERROR(%d)",
    "[%s] [ERROR]: Touch Calibration App Status: Got empty reply from DIVO.  ERROR(%d)",
    "[%s] [ERROR]: Failed to parse DIVO output for Touch Controller R2B.  ERROR(%d)",
    "The status of the touch calibration application cannot be decoded. Something went wrong during the last "
    "session run.",
    "DIVO Touch Calibration Status 0x%04X",
};

constexpr CalibrationQuestionT kVoltageQuestion{
    "DivoManagerC::curScrVltgCalExecInfo",
    L"Global\\VLTGSCRAPP",
    "G29",
    "R29",
    "Screen Voltage Calibration Application is running.",
    "[%s] [ERROR]: Failed to communicate with DIVO COM5 to get status for the Screen Voltage Calibration.  "
    "ERROR(%d)",
    "[%s] [ERROR]: Failed to send G29 command to DIVO.  ERROR(%d)",
    "[%s] [ERROR]: Screen Voltage App Status: Got empty reply from DIVO.  ERROR(%d)",
    "[%s] [ERROR]: Failed to parse DIVO output for Display Voltage Controller R29.  ERROR(%d)",
    "The status of the screen voltage calibration application cannot be decoded. Something went wrong during the "
    "last session run.",
    "DIVO Voltage Calibration Status 0x%04X",
};

int errorNumber()
{
    return static_cast<int>(platform::lastError());
}

bool askBoard(const CalibrationQuestionT& question, std::uint32_t& state)
{
    // The application holds its mutex while it runs; then the board's register is in flux.
    if (platform::UniqueHandle running = platform::openMutex(question.runningMutex)) {
        state = DIVO_CAL_APP_RUNNING;
        WriteLog("%s", question.runningText);
        return true;
    }
    // The board sleeps until a line wakes it; what it answers to that is of no interest.
    std::string wakeReply;
    if (!comPortTransaction("DIVO", "", "\r\n", wakeReply, kDivoWaitMs)) {
        WriteLog(question.wakeFailedText, question.tag, errorNumber());
        return false;
    }
    std::string reply;
    if (!comPortTransaction("DIVO", "", std::string(question.request) + "\r\n", reply, kDivoWaitMs)) {
        WriteLog(question.requestFailedText, question.tag, errorNumber());
        return false;
    }
    if (reply.empty()) {
        WriteLog(question.emptyReplyText, question.tag, errorNumber());
        return false;
    }
    unsigned value = 0;
    if (!DivoManagerC::parseRegisterReply(reply, question.replyKey, value)) {
        WriteLog(question.parseFailedText, question.tag, errorNumber());
        return false;
    }
    if (value == kNewSettingsNotStored) {
        state = DIVO_CAL_NOT_STORED;
        WriteLog(
            "In the last run, the user didn't save the new settings to the DIVO. The last successfully stored "
            "values will be used.");
    } else if (value == kNewSettingsStored) {
        state = DIVO_CAL_STORED;
        WriteLog("In the last run, the user stored the new settings to the DIVO.");
    } else {
        state = DIVO_CAL_UNDECODABLE;
        WriteLog("%s", question.undecodableText);
    }
    WriteLog(question.statusText, value);
    return true;
}

}  // namespace

bool DivoManagerC::parseRegisterReply(const std::string& reply, const char* replyKey, unsigned& value)
{
    const std::size_t key = reply.find(replyKey);
    return key != std::string::npos &&
           std::sscanf(reply.c_str() + key + std::char_traits<char>::length(replyKey), "=%04X", &value) == 1;
}

bool DivoManagerC::curTouchCalExecInfo(std::uint32_t& state)
{
    return askBoard(kTouchQuestion, state);
}

bool DivoManagerC::curScrVltgCalExecInfo(std::uint32_t& state)
{
    return askBoard(kVoltageQuestion, state);
}

}  // namespace halvern::links
