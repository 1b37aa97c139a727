// Commands of the network adapters' settings: the WLAN driver's country and channel, its installation, the
// WLAN module's power, and the addresses of the named interfaces.
#include <cctype>
#include <cstring>
#include <string>

#include "app/Log.h"
#include "net/NetManagerC.h"
#include "net/WlanAccessPointC.h"
#include "net/WlanDriverManager.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;
using halvern::net::NetManagerC;

// Countries are named by their two-letter ISO code, as the driver takes them.
bool validCountryCode(const std::string& code)
{
    return code.size() == 2 && std::isalpha(static_cast<unsigned char>(code[0])) &&
           std::isalpha(static_cast<unsigned char>(code[1]));
}

// The channel follows the country: the driver's channel may not be allowed in the new one, so it moves to
// the channel every country allows until the access point's next selection picks one for the new country.
bool applyChannelAfterCountry()
{
    return halvern::net::setDefaultChannel();
}

void handleCountryCodeSet(SEP::ReceivedCommandC& command)
{
    REC::CtryCode request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"country code"})) return;
    const std::string code = request.code;
    WriteLog("Request to set country code, code: %s", code.c_str());
    if (!validCountryCode(code)) {
        WriteLog("Invalid country code!");
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_SET);
        return;
    }
    if (!NetManagerC::SetDrvCtryCode(code) || !applyChannelAfterCountry()) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_SET);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

// The driver always comes from the fixed folders of the instrument's USB drive; the path of the request
// is only logged.
void handleDriverInstall(SEP::ReceivedCommandC& command)
{
    REC::WlanDrv request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"driver path"})) return;
    WriteLog("Got request to install WLAN driver, testNotRegular: %d, drv path: %s", request.testNotRegular ? 1 : 0,
             request.path);
    if (!halvern::net::installWlanDriver(request.testNotRegular)) {
        HalvernSepImpl::SendError(
            command, HalvernRpc::SEP_ERR_GENERAL,
            failureOrBusy("driver installation", "driver installation, another installation is in progress"));
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleModulePower(SEP::ReceivedCommandC& command)
{
    REC::WlanPower request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to %s WLAN module", request.enable ? "enable" : "disable");
    if (!halvern::net::setWlanModulePower(request.enable)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "WLAN module power");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleCountryCodeGet(SEP::ReceivedCommandC& command)
{
    WriteLog("Request to get the WLAN country code property");
    std::string code;
    REC::CtryCode reply;
    if (!NetManagerC::GetDrvCtryCode(code) || code.size() >= sizeof reply.code) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    std::memcpy(reply.code, code.c_str(), code.size() + 1);
    HalvernSepImpl::SendSuccess(command, &reply);
}

// The request names the interface (0 and 1 the wired pair, 2 the WLAN module, 3 the hosted network) and
// the property (0 physical address, 1 IPv4 addresses); the reply repeats both with the text.
void handleInterfaceInfo(SEP::ReceivedCommandC& command)
{
    REC::NetIntfceInfo request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"property text"})) return;
    std::string text;
    if (!NetManagerC::GetNetworkInterfaceInfo(request.a, request.b, text)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to obtain net interface property");
        return;
    }
    REC::NetIntfceInfo reply = request;
    if (text.size() >= sizeof reply.text) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to copy requested property");
        return;
    }
    std::memset(reply.text, 0, sizeof reply.text);
    std::memcpy(reply.text, text.data(), text.size());
    HalvernSepImpl::SendSuccess(command, &reply);
}

// The channel and its width code as the driver will take them at its next start.
void handleChannelGet(SEP::ReceivedCommandC& command)
{
    WriteLog("Got request to get WLAN channel.");
    REC::WlanChannel reply;
    std::uint32_t width = 0;
    if (!NetManagerC::getDrvWlanChannel(reply.channel, width)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to get WLAN channel");
        return;
    }
    reply.b = static_cast<std::int32_t>(width);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleChannelSet(SEP::ReceivedCommandC& command)
{
    REC::WlanChannel request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to set WLAN channel.");
    if (request.b < 0 || !NetManagerC::setDrvWlanChannel(request.channel, static_cast<std::uint32_t>(request.b))) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to set WLAN channel");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> networkHandlers()
{
    return {{1016, handleCountryCodeSet}, {1017, handleCountryCodeGet}, {1024, handleDriverInstall},
            {1026, handleModulePower},    {1047, handleInterfaceInfo},  {1048, handleChannelGet},
            {1049, handleChannelSet}};
}

}  // namespace HalvernSepHandlers
