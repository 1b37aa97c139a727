// Commands of the hardware and system information: board data, fixed strings, the Windows release and the
// instrument's PCI components; and the calibration erase that older clients still send.
//
// Record layouts (wire order):
// - GetBoardContent (1010): u16 BIOS release, major in the high byte and minor in the low byte; bytes(6)
//   the sensor-board Ethernet adapter's physical address; bytes(4) its first IPv4 address, first octet
//   first; bytes(10) the board version text ("BaseBoardVersion"), NUL-terminated; bytes(22) the BIOS version
//   text ("BIOSVersion"), NUL-terminated; u32 the BIOS release date as yyyymmdd. Address bytes are zero when
//   the adapter or its address is missing.
// - GetString (1029): the request's id picks one of kStrings; the reply repeats the id with the text.
// - WindowsOsInfo (1050): product name, edition, display version, build with update revision
//   ("19044.2965"), computer name, installation time ("yyyy-mm-dd hh:mm:ss", UTC).
// - CurHwComponInfo (1051): u16 state (1 present and working, 2 present but not working, 0 not present);
//   bytes(256) the device's description as Device Manager shows it, NUL-terminated.
#include <algorithm>
#include <cstring>
#include <string>

#include "app/Log.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

// Ids are part of the wire: entries are only ever added.
const char* const kStrings[] = {
    // 0: the version Halvern's banner shows.
    "4.0.0.0",
    // 1: the WLAN module's RF test tool that service technicians run.
    "tx99tool.exe",
    // 2: Halvern's log file.
    "D:\\logs\\Halvern.log",
};

template <std::size_t N>
void copyBytes(std::uint8_t (&field)[N], const std::string& text)
{
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

void handleBoardContent(SEP::ReceivedCommandC& command)
{
    SysManagerC::BoardContentT content;
    if (!SysManagerC::Instance()->GetBoardContent(content)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to get board content.");
        return;
    }
    REC::GetBoardContent reply;
    reply.version = content.biosRelease;
    std::copy(content.moraMac.begin(), content.moraMac.end(), reply.first);
    std::copy(content.moraIpv4.begin(), content.moraIpv4.end(), reply.second);
    copyBytes(reply.third, content.boardVersion);
    copyBytes(reply.fourth, content.biosVersion);
    reply.last = content.biosDate;
    HalvernSepImpl::SendSuccess(command, &reply);
}

// The calibration data moved to the sensor board long ago; the command stays so that older clients that
// send it get the success they expect.
void handleEraseCalibration(SEP::ReceivedCommandC& command)
{
    WriteLog("Received request to erase calibration data.");
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleGetString(SEP::ReceivedCommandC& command)
{
    REC::GetString request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"string text"})) return;
    WriteLog("Got request to return string %d", static_cast<int>(request.id));
    const auto count = static_cast<std::int32_t>(sizeof kStrings / sizeof kStrings[0]);
    if (request.id < 0 || request.id >= count) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "invalid string identifier");
        return;
    }
    const char* const text = kStrings[request.id];
    REC::GetString reply;
    if (std::strlen(text) >= sizeof reply.text) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "string too long to return");
        return;
    }
    reply.id = request.id;
    std::strcpy(reply.text, text);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleWindowsOsInfo(SEP::ReceivedCommandC& command)
{
    WriteLog("Got request to get information about the Windows OS.");
    std::array<std::string, 6> info;
    if (!SysManagerC::Instance()->GetWindowsOsInfo(info)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to get Windows OS information.");
        return;
    }
    REC::WindowsOsInfo reply;
    for (std::size_t i = 0; i < info.size(); ++i)
        info[i].copy(reply.texts[i], sizeof reply.texts[i] - 1);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleHwComponent(SEP::ReceivedCommandC& command)
{
    REC::HwComponentId request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to get information for the following hardware component id: %d",
             static_cast<int>(request.componentId));
    std::uint16_t state = SysManagerC::kHwComponentMissing;
    std::string description;
    if (!SysManagerC::Instance()->GetHwComponentInfo(request.componentId, state, description)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL,
                                  "Failed to get hardware component information.");
        return;
    }
    REC::CurHwComponInfo reply;
    reply.a = state;
    copyBytes(reply.data, description);
    HalvernSepImpl::SendSuccess(command, &reply);
}

}  // namespace

std::vector<HandlerEntryT> infoHandlers()
{
    return {{1010, handleBoardContent},
            {1012, handleEraseCalibration},
            {1029, handleGetString},
            {1050, handleWindowsOsInfo},
            {1051, handleHwComponent}};
}

}  // namespace HalvernSepHandlers
