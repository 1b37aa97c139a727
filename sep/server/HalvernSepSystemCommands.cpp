// Commands of the system manager: API level, the power cycle requests and the application's shutdown answer.
#include "app/Log.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/server/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

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
    // The client hears the answer before the close sequence can take the connection away.
    HalvernSepImpl::SendSuccess(command, nullptr);
    SysManagerC* manager = SysManagerC::Instance();
    manager->ConfigurePowerCycleRequest(powerRequest, force, static_cast<std::uint32_t>(timeout));
    WriteLog("Configured power cycle request: %d, force: %d, timeout: %d", powerRequest, force ? 1 : 0, timeout);
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

}  // namespace

std::vector<HandlerEntryT> systemHandlers()
{
    return {
        {1001, handleApiLevel},
        {1008, handlePowerCycle},
        {1027, handlePowerCycle},
        {1055, handleShutdownState},
    };
}

}  // namespace HalvernSepHandlers
