// Commands of the device modes: the switches between customer mode and production or service mode, and the
// three production features on their own.
#include "app/Log.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

// The record's eight texts in the order of the mode result, then the restart flag.
void fillModeInfo(const SysManagerC::CurDevModeInfo& info, REC::CurDevModeInfo& record)
{
    const char* const texts[8] = {info.result,        info.servicesAndPortForwarding,
                                  info.remoteDesktop, info.fileExplorer,
                                  info.firewall,      info.ethernetSpeed,
                                  info.writeFilter,   info.restart};
    for (int i = 0; i < 8; ++i)
        std::string(texts[i]).copy(record.texts[i], sizeof record.texts[i] - 1);
    record.flag = info.restartRequired;
}

// A refused or failed switch answers with the error alone: which feature failed is in the log.
template <typename Request>
void handleModeSwitch(SEP::ReceivedCommandC& command, const char* requestLine,
                      bool (SysManagerC::*modeSwitch)(bool, SysManagerC::CurDevModeInfo&), const char* failure)
{
    Request request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog(requestLine, request.enable ? "enable" : "disable");
    SysManagerC::CurDevModeInfo info;
    if (!(SysManagerC::Instance()->*modeSwitch)(request.enable, info)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, failure);
        return;
    }
    REC::CurDevModeInfo reply;
    fillModeInfo(info, reply);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleProductionMode(SEP::ReceivedCommandC& command)
{
    handleModeSwitch<REC::ProdMode>(command, "Got request to %s Production Mode", &SysManagerC::productionMode,
                                    "General Failure to set Production/Customer Mode Status!");
}

void handleServiceMode(SEP::ReceivedCommandC& command)
{
    handleModeSwitch<REC::ServMode>(command, "Got request to %s Service Mode", &SysManagerC::serviceMode,
                                    "General Failure to set Service/Customer Mode Status!");
}

void handleSetProductionFeatures(SEP::ReceivedCommandC& command)
{
    REC::EnaProdFeat request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Request to set production features, uwf: %d, remote desktop: %d, port forwarding: %d",
             request.uwf ? 1 : 0, request.remoteDesktop ? 1 : 0, request.portForwarding ? 1 : 0);
    SysManagerC* manager = SysManagerC::Instance();
    const auto modeChanges = manager->HoldModeChanges();
    if (!manager->SetUWFilter(request.uwf)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to configure UWF!");
        return;
    }
    WriteLog(request.uwf ? "UWF is set to ON!" : "UWF is set to OFF!");
    if (!manager->SetRemoteDesktopStatus(request.remoteDesktop)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to configure remote desktop status!");
        return;
    }
    WriteLog(request.remoteDesktop ? "Remote Desktop ON!" : "Remote Desktop OFF!");
    const bool forwarded =
        request.portForwarding ? manager->PortForwardingActivation() : manager->PortForwardingDeactivation();
    if (!forwarded) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to configure port forwarding status!");
        return;
    }
    WriteLog(request.portForwarding ? "Port Forwarding Activation!" : "Port Forwarding Deactivation!");
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleGetProductionFeatures(SEP::ReceivedCommandC& command)
{
    WriteLog("Request to get production features");
    SysManagerC* manager = SysManagerC::Instance();
    bool uwf = true;
    bool remoteDesktop = false;
    bool portForwarding = false;
    if (!manager->GetUWFilter(uwf) || !manager->GetRemoteDesktopStatus(remoteDesktop) ||
        !manager->GetPortForwardingStatus(portForwarding)) {
        // The command table answers these with code 3.
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    REC::EnaProdFeat reply;
    reply.portForwarding = portForwarding;
    reply.remoteDesktop = remoteDesktop;
    reply.uwf = uwf;
    HalvernSepImpl::SendSuccess(command, &reply);
}

}  // namespace

std::vector<HandlerEntryT> modeHandlers()
{
    return {
        {1014, handleSetProductionFeatures},
        {1015, handleGetProductionFeatures},
        {1031, handleProductionMode},
        {1032, handleServiceMode},
    };
}

}  // namespace HalvernSepHandlers
