// Commands of the instrument's WLAN access point: its configuration in both record layouts, and a channel
// selection on demand, whose result reaches the clients as the channel-selected event.
#include <cstring>
#include <string>

#include "app/Log.h"
#include "net/WlanAccessPointC.h"
#include "net/WlanChanSelector.h"
#include "net/WlanChannelList.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;
using halvern::net::WlanAccessPointC;

// An empty SSID or password in a request leaves the access point's own.
halvern::net::WlanApRequestT requestOf(bool enabled, const char* ssid, const char* password, std::int32_t band,
                                       bool noneDfs)
{
    halvern::net::WlanApRequestT request;
    request.start = enabled ? 1 : 0;
    // A negative band is no band mode: the configuration refuses it as out of range.
    request.band = static_cast<std::uint32_t>(band);
    request.noneDfs = noneDfs;
    if (ssid[0] != '\0') request.ssid = ssid;
    if (password[0] != '\0') request.password = password;
    return request;
}

// The received values are logged as they came, the password too: service technicians read it there.
template <typename Record>
void configure(SEP::ReceivedCommandC& command, Record& request, bool noneDfs)
{
    WriteLog("Got request to set WiFi config, enabled: %d, ssid: %s, pass: %s, band: %d", request.enabled ? 1 : 0,
             request.ssid, request.password, static_cast<int>(request.band));
    if (!WlanAccessPointC::instance().configure(
            requestOf(request.enabled, request.ssid, request.password, request.band, noneDfs))) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_SET);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleConfigSet(SEP::ReceivedCommandC& command)
{
    REC::WlanCfg request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"(ssid)", "(password)"})) return;
    configure(command, request, false);
}

// The extension flag asks for channels without radar detection only.
void handleConfigExtSet(SEP::ReceivedCommandC& command)
{
    REC::WlanCfgExt request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"(ssid)", "(password)"})) return;
    configure(command, request, request.extension);
}

// The running state and credentials as the hosted network has them, the band as the driver runs it.
template <typename Record>
bool readConfig(Record& reply)
{
    halvern::net::WlanApSettingsT settings;
    if (!WlanAccessPointC::instance().currentSettings(settings) || settings.ssid.size() >= sizeof reply.ssid ||
        settings.password.size() >= sizeof reply.password)
        return false;
    reply.enabled = settings.enabled;
    std::memcpy(reply.ssid, settings.ssid.c_str(), settings.ssid.size() + 1);
    std::memcpy(reply.password, settings.password.c_str(), settings.password.size() + 1);
    reply.band = static_cast<std::int32_t>(settings.band);
    return true;
}

void handleConfigGet(SEP::ReceivedCommandC& command)
{
    REC::WlanCfg reply;
    if (!readConfig(reply)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleConfigExtGet(SEP::ReceivedCommandC& command)
{
    REC::WlanCfgExt reply;
    if (!readConfig(reply)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    reply.extension = WlanAccessPointC::instance().config().noneDfs;
    HalvernSepImpl::SendSuccess(command, &reply);
}

// The request: whether DFS channels are to be avoided in this run (false keeps the access point's own
// policy), the band mode (0: the access point's band), and how long the scan may take in milliseconds
// (0 or less: as long as the access point waits for it). The reply says the selection runs; its result
// follows as the channel-selected event and goes to the driver like the access point's own selections.
// While the access point is being configured the request is refused: that configuration selects itself.
bool startSelection(const REC::WlanChannelSelection& request)
{
    namespace net = halvern::net;
    const std::uint32_t band = request.b != 0 ? request.b : WlanAccessPointC::instance().config().band;
    if (band < net::HALVERN_WLAN_2_4_GHZ || band > net::HALVERN_WLAN_BOTH_BANDS) {
        WriteLog("[ERROR]: Invalid band mode for the channel selection: %u", static_cast<unsigned>(band));
        return false;
    }
    std::vector<net::WlanAllowedChannelT> allowed;
    if (!net::DevGetChanList(allowed)) return false;
    // This run's band and DFS choice are its own: the access point's next start or radar restart goes by
    // its configuration again.
    net::WlanSelectionPolicyT policy;
    policy.bandMode = band;
    policy.excludeDfs = request.a || net::dfsExclusion();
    return WlanAccessPointC::instance().runChannelSelection(allowed, policy,
                                                           request.c > 0 ? request.c : net::kWlanScanWaitMs);
}

void handleRunChannelSelection(SEP::ReceivedCommandC& command)
{
    REC::WlanChannelSelection request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    // A scan that never completes holds every later selection for as long as it is allowed to wait.
    if (request.c > halvern::net::kWlanLongestScanWaitMs) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE, "scan time above 60000 ms");
        return;
    }
    if (!startSelection(request)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "failed to run WLAN channel selection");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> wlanHandlers()
{
    return {{1002, handleConfigSet},
            {1003, handleConfigGet},
            {1057, handleRunChannelSelection},
            {1064, handleConfigExtSet},
            {1065, handleConfigExtGet}};
}

}  // namespace HalvernSepHandlers
