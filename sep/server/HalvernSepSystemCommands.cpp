// Commands of the system manager: API level, the power cycle requests, the application's shutdown answer,
// the instrument name, the calibration applications and the desktop.
#include "app/Log.h"
#include "platform/Process.h"
#include "platform/Text.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

// The longest power-cycle delay: the close sequence announces it with 16 s more, in milliseconds, as a
// 32-bit number.
constexpr std::uint32_t kMaxPowerCycleTimeoutSeconds = 0xFFFFFFFFu / 1000u - 16u;

void handleApiLevel(SEP::ReceivedCommandC& command)
{
    REC::ApiLvl reply;
    reply.level = HalvernSepImpl::kApiLevel;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handlePowerCycle(SEP::ReceivedCommandC& command)
{
    std::int32_t type = 0;
    bool force = false;
    std::int32_t timeout = 0;
    if (command.messageId() == 1008) {
        REC::DoPowerOff request;
        if (!HalvernSepImpl::DecodeRequest(command, request)) return;
        WriteLog("Received power cycle request in legacy mode.");
        type = request.type;
    } else {
        REC::DoPowerOffExt request;
        if (!HalvernSepImpl::DecodeRequest(command, request)) return;
        WriteLog("Received power cycle request in standard mode.");
        type = request.type;
        force = request.force;
        timeout = request.timeout;
    }
    std::int32_t powerRequest = 0;
    if (type == 1) {
        powerRequest = POWER_REQUEST_SHUTDOWN;
    } else if (type == 2) {
        powerRequest = POWER_REQUEST_REBOOT;
    } else {
        HalvernSepImpl::SendText(command, "Invalid poweroff type: " + std::to_string(type));
        return;
    }
    // A negative or huge delay would reach Windows' shutdown call only after the applications were closed,
    // and Windows would refuse it there.
    if (timeout < 0 || static_cast<std::uint32_t>(timeout) > kMaxPowerCycleTimeoutSeconds) {
        HalvernSepImpl::SendText(command, "Invalid poweroff timeout: " + std::to_string(timeout));
        return;
    }
    // The request is in place once the client hears the answer (another connection's command may ask for it
    // right after), and the answer leaves before the close sequence can take the connection away.
    SysManagerC* manager = SysManagerC::Instance();
    manager->ConfigurePowerCycleRequest(powerRequest, force, static_cast<std::uint32_t>(timeout));
    WriteLog("Configured power cycle request: %d, force: %d, timeout: %d", powerRequest, force ? 1 : 0, timeout);
    HalvernSepImpl::SendSuccess(command, nullptr);
    manager->SendCloseEvent();
}

void handleShutdownState(SEP::ReceivedCommandC& command)
{
    REC::ShutdownStateHandle request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request %s Shutdown process.", request.start ? "to start" : "not to start");
    SysManagerC::Instance()->SetAppShutdownAnswer(request.start ? APP_SHUTDOWN_STARTED : APP_SHUTDOWN_NOT_STARTED);
    WriteLog(request.start ? "Configured shutdown state request: START"
                           : "Configured shutdown state request: NO START");
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleNameGet(SEP::ReceivedCommandC& command)
{
    REC::InstrumentNameCfg reply;
    std::wstring name;
    if (platform::getComputerName(platform::ComputerNameE::DnsHostname, name)) {
        const std::string narrowName = platform::narrow(name).value_or(std::string());
        narrowName.copy(reply.name, sizeof reply.name - 1);
    }
    HalvernSepImpl::SendSuccess(command, &reply);
}

// A name Windows takes for both the DNS host name and the NetBIOS name: letters, digits and hyphens,
// at most 15 characters, not only digits, no hyphen at either end.
bool isValidInstrumentName(const std::string& name)
{
    if (name.empty() || name.size() > 15 || name.front() == '-' || name.back() == '-') return false;
    bool letter = false;
    for (char c : name) {
        const bool alpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!alpha && !(c >= '0' && c <= '9') && c != '-') return false;
        letter = letter || alpha || c == '-';
    }
    return letter;
}

void handleNameSet(SEP::ReceivedCommandC& command)
{
    REC::InstrumentNameCfg request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"new name"})) return;
    const std::string name(request.name);
    if (!isValidInstrumentName(name) || !SysManagerC::Instance()->SetInstrumentName(platform::widen(name))) {
        WriteLog("Invalid set of the instrument's name.");
        HalvernSepImpl::SendText(command, "Invalid set of the instrument's name.");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

// The calibration applications show their own screens: they run on the interactive desktop.
void startCalibration(SEP::ReceivedCommandC& command, const char* line, const wchar_t* application, const char* failure)
{
    WriteLog("%s", line);
    platform::ProcessInformationT started;
    if (!SysManagerC::Instance()->CreateChildProcess(application, {}, 0, platform::StartupInfoT{}, &started, true)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, failure);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleTouchCalibration(SEP::ReceivedCommandC& command)
{
    startCalibration(command, "Received request to start calibration of the touch screen.",
                     L"D:\\ZentorTools\\TouchCalibrationApp.exe", "Touch Calibration Application Startup");
}

void handleVoltageCalibration(SEP::ReceivedCommandC& command)
{
    startCalibration(command, "Received request to start the screen voltage calibration application.",
                     L"D:\\ZentorTools\\ScreenVoltageCalibrationApp.exe",
                     "Screen Voltage Calibration Application Startup");
}

void handleShowDesktop(SEP::ReceivedCommandC& command)
{
    WriteLog("Received request to show desktop.");
    if (!SysManagerC::Instance()->ShowDesktop()) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "show desktop");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> systemHandlers()
{
    return {
        {1001, handleApiLevel},
        {1008, handlePowerCycle},
        {1013, handleTouchCalibration},
        {1020, handleNameGet},
        {1021, handleNameSet},
        {1028, handleShowDesktop},
        {1042, handleVoltageCalibration},
        {1027, handlePowerCycle},
        {1055, handleShutdownState},
    };
}

}  // namespace HalvernSepHandlers
