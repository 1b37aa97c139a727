// Commands of time keeping: the I2C real-time clock and the Windows time information.
#include <algorithm>
#include <climits>
#include <cstring>
#include <ctime>

#include "app/Log.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "spb/SpbApi.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

// A received field moved by `delta`, kept within int so that a wild value stays a wild value (which the
// clock refuses) instead of wrapping into a plausible one.
int shifted(std::int32_t value, std::int64_t delta)
{
    return static_cast<int>(std::clamp<std::int64_t>(value + delta, INT_MIN, INT_MAX));
}

void handleRtcGet(SEP::ReceivedCommandC& command)
{
    std::tm time{};
    const std::int32_t result = SPB_getTime(&time);
    if (result != 0) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RTC, {}, &result);
        return;
    }
    REC::TimeSpec reply;
    reply.year = time.tm_year + 1900;
    reply.month = time.tm_mon + 1;
    reply.day = time.tm_mday;
    reply.hour = time.tm_hour;
    reply.minute = time.tm_min;
    reply.second = time.tm_sec;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleRtcSet(SEP::ReceivedCommandC& command)
{
    REC::TimeSpec request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to set RTC: %d-%d-%d %d:%d:%d", request.year, request.month, request.day, request.hour,
             request.minute, request.second);
    std::tm time{};
    time.tm_year = shifted(request.year, -1900);
    time.tm_mon = shifted(request.month, -1);
    time.tm_mday = request.day;
    time.tm_hour = request.hour;
    time.tm_min = request.minute;
    time.tm_sec = request.second;
    const std::int32_t result = SPB_initRTClock(&time);
    if (result != 0) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RTC, {}, &result);
        return;
    }
    // The user's offset was kept against the old RTC time and means nothing now.
    if (!SysManagerC::Instance()->deleteTimeOffsetFile()) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleTimeInformationGet(SEP::ReceivedCommandC& command)
{
    WriteLog("Got request to get time information from Windows system.");
    WindowsTimeInfo info;
    if (!SysManagerC::Instance()->GetWindowsTimeInformation(info)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to get Windows Time Information.");
        return;
    }
    REC::WindowsOsTimeInfo reply;
    const std::int32_t fields[6] = {info.tm_sec, info.tm_min, info.tm_hour, info.tm_mday, info.tm_mon, info.tm_year};
    std::copy(std::begin(fields), std::end(fields), reply.fields);
    std::memcpy(reply.timeZone, info.timeZoneId, sizeof reply.timeZone);
    reply.daylightSaving = info.daylightSavingDisabled;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleTimeInformationSet(SEP::ReceivedCommandC& command)
{
    REC::WindowsOsTimeInfo request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"time zone"})) return;
    WindowsTimeInfo info;
    info.tm_sec = request.fields[0];
    info.tm_min = request.fields[1];
    info.tm_hour = request.fields[2];
    info.tm_mday = request.fields[3];
    info.tm_mon = request.fields[4];
    info.tm_year = request.fields[5];
    std::memcpy(info.timeZoneId, request.timeZone, sizeof info.timeZoneId);
    info.daylightSavingDisabled = request.daylightSaving;
    WriteLog(
        "Got request to set Windows Os Time Information : %d:%d:%d %02d-%02d-%04d , Daylight Saving: %d, Time Zone: "
        "%s",
        info.tm_hour, info.tm_min, info.tm_sec, info.tm_mday, shifted(info.tm_mon, 1), shifted(info.tm_year, 1900),
        info.daylightSavingDisabled ? 1 : 0, info.timeZoneId);
    if (!SysManagerC::Instance()->SetWindowsTimeInformation(info)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to set Windows Time information.");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> timeHandlers()
{
    return {
        {1018, handleRtcGet}, {1019, handleRtcSet}, {1053, handleTimeInformationGet}, {1054, handleTimeInformationSet}};
}

}  // namespace HalvernSepHandlers
