#pragma once
// The request, reply and event records of the instrument's SEP commands. Strings are fixed buffers whose
// size is the receiving buffer, NUL included.
#include <cstdint>

#include "framework/SerializableI.h"

namespace Varda::SEP::HALVERN {

namespace detail {

inline bool visitOne(MAL::UTI::FieldVisitorI& v, bool& x)
{
    return v.field(x);
}
inline bool visitOne(MAL::UTI::FieldVisitorI& v, std::uint16_t& x)
{
    return v.field(x);
}
inline bool visitOne(MAL::UTI::FieldVisitorI& v, std::uint32_t& x)
{
    return v.field(x);
}
inline bool visitOne(MAL::UTI::FieldVisitorI& v, std::int8_t& x)
{
    return v.field(x);
}
inline bool visitOne(MAL::UTI::FieldVisitorI& v, std::int32_t& x)
{
    return v.field(x);
}
template <std::size_t N>
bool visitOne(MAL::UTI::FieldVisitorI& v, char (&x)[N])
{
    return v.string(x, N);
}
template <std::size_t N>
bool visitOne(MAL::UTI::FieldVisitorI& v, std::uint8_t (&x)[N])
{
    return v.bytes(x, N);
}
template <typename T, std::size_t N>
bool visitOne(MAL::UTI::FieldVisitorI& v, T (&x)[N])
{
    for (auto& element : x)
        if (!visitOne(v, element)) return false;
    return true;
}
template <typename... Fields>
bool visitFields(MAL::UTI::FieldVisitorI& v, Fields&... fields)
{
    std::size_t index = 0;
    return ((v.beginField(index++), visitOne(v, fields)) && ...);
}

}  // namespace detail

#define HALVERN_SEP_FIELDS(...)                     \
    bool visit(MAL::UTI::FieldVisitorI& v) override \
    {                                               \
        return detail::visitFields(v, __VA_ARGS__); \
    }                                               \
    const char* fieldNames() const override         \
    {                                               \
        return #__VA_ARGS__;                        \
    }

struct ApiLvl : MAL::UTI::SerializableI {
    std::int32_t level = 0;
    HALVERN_SEP_FIELDS(level)
};
struct WlanCfg : MAL::UTI::SerializableI {
    bool enabled = false;
    char ssid[256] = {};
    char password[256] = {};
    std::int32_t band = 0;
    HALVERN_SEP_FIELDS(enabled, ssid, password, band)
};
struct WlanCfgExt : MAL::UTI::SerializableI {
    bool enabled = false;
    char ssid[256] = {};
    char password[256] = {};
    std::int32_t band = 0;
    bool extension = false;
    HALVERN_SEP_FIELDS(enabled, ssid, password, band, extension)
};
struct EfiBatStatus : MAL::UTI::SerializableI {
    std::uint32_t values[4] = {};
    HALVERN_SEP_FIELDS(values)
};
struct EfiExtSup : MAL::UTI::SerializableI {
    std::uint32_t values[2] = {};
    HALVERN_SEP_FIELDS(values)
};
struct EfiPwrSelect : MAL::UTI::SerializableI {
    bool selection[3] = {};
    HALVERN_SEP_FIELDS(selection)
};
struct EfiPwrSrc : MAL::UTI::SerializableI {
    bool flags[11] = {};
    HALVERN_SEP_FIELDS(flags)
};
struct DoPowerOff : MAL::UTI::SerializableI {
    std::int32_t type = 0;
    HALVERN_SEP_FIELDS(type)
};
struct DoPowerOffExt : MAL::UTI::SerializableI {
    std::int32_t type = 0;
    bool force = false;
    std::int32_t timeout = 0;
    HALVERN_SEP_FIELDS(type, force, timeout)
};
struct GetBoardContent : MAL::UTI::SerializableI {
    std::uint16_t version = 0;
    std::uint8_t first[6] = {};
    std::uint8_t second[4] = {};
    std::uint8_t third[10] = {};
    std::uint8_t fourth[22] = {};
    std::uint32_t last = 0;
    HALVERN_SEP_FIELDS(version, first, second, third, fourth, last)
};
struct StartUpdate : MAL::UTI::SerializableI {
    bool force = false;
    char path[256] = {};
    HALVERN_SEP_FIELDS(force, path)
};
// The wire order is the reverse of the order of the log line.
struct EnaProdFeat : MAL::UTI::SerializableI {
    bool portForwarding = false;
    bool remoteDesktop = false;
    bool uwf = false;
    HALVERN_SEP_FIELDS(portForwarding, remoteDesktop, uwf)
};
struct CtryCode : MAL::UTI::SerializableI {
    char code[256] = {};
    HALVERN_SEP_FIELDS(code)
};
struct TimeSpec : MAL::UTI::SerializableI {
    std::int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    HALVERN_SEP_FIELDS(year, month, day, hour, minute, second)
};
struct InstrumentNameCfg : MAL::UTI::SerializableI {
    char name[256] = {};
    HALVERN_SEP_FIELDS(name)
};
struct EfiAutoRun : MAL::UTI::SerializableI {
    bool enabled = false;
    HALVERN_SEP_FIELDS(enabled)
};
struct WlanDrv : MAL::UTI::SerializableI {
    bool testNotRegular = false;
    char path[1024] = {};
    HALVERN_SEP_FIELDS(testNotRegular, path)
};
struct ExeCmdRequest : MAL::UTI::SerializableI {
    bool vantNotMora = false;
    char commandLine[1024] = {};
    char directory[1024] = {};
    std::uint32_t runnerValue = 0;
    HALVERN_SEP_FIELDS(vantNotMora, commandLine, directory, runnerValue)
};
struct ExeCmdReply : MAL::UTI::SerializableI {
    std::uint8_t output[4096] = {};
    std::int32_t returnCode = 0;
    std::uint32_t truncated = 0;
    HALVERN_SEP_FIELDS(output, returnCode, truncated)
};
struct WlanPower : MAL::UTI::SerializableI {
    bool enable = false;
    HALVERN_SEP_FIELDS(enable)
};
struct GetString : MAL::UTI::SerializableI {
    std::int32_t id = 0;
    char text[1024] = {};
    HALVERN_SEP_FIELDS(id, text)
};
struct EfiSrvcCmd : MAL::UTI::SerializableI {
    char command[256] = {};
    char reply[256] = {};
    HALVERN_SEP_FIELDS(command, reply)
};
struct ProdMode : MAL::UTI::SerializableI {
    bool enable = false;
    HALVERN_SEP_FIELDS(enable)
};
struct ServMode : MAL::UTI::SerializableI {
    bool enable = false;
    HALVERN_SEP_FIELDS(enable)
};
struct CurDevModeInfo : MAL::UTI::SerializableI {
    char texts[8][256] = {};
    bool flag = false;
    HALVERN_SEP_FIELDS(texts, flag)
};
struct FwNewFileName : MAL::UTI::SerializableI {
    char name[256] = {};
    HALVERN_SEP_FIELDS(name)
};
struct FwFileInfo : MAL::UTI::SerializableI {
    char name[256] = {};
    std::uint32_t a = 0;
    std::uint16_t b = 0, c = 0;
    std::uint32_t d = 0, e = 0;
    std::uint16_t f = 0;
    HALVERN_SEP_FIELDS(name, a, b, c, d, e, f)
};
struct CurFWinfo : FwFileInfo {};
struct FwUpdateInfo : MAL::UTI::SerializableI {
    char first[256] = {};
    char second[256] = {};
    std::uint32_t a = 0;
    std::uint16_t b = 0, c = 0;
    std::uint32_t d = 0, e = 0;
    std::uint16_t f = 0;
    HALVERN_SEP_FIELDS(first, second, a, b, c, d, e, f)
};
struct FwObjectId : MAL::UTI::SerializableI {
    std::uint32_t objectId = 0;
    HALVERN_SEP_FIELDS(objectId)
};
struct UartTransCmd : MAL::UTI::SerializableI {
    char uartName[256] = {};
    char input[256] = {};
    char config[256] = {};
    char reply[4096] = {};
    std::uint32_t a = 0, b = 0;
    HALVERN_SEP_FIELDS(uartName, input, config, reply, a, b)
};
struct UsbDeviceCountInfo : MAL::UTI::SerializableI {
    std::uint32_t a = 0, b = 0;
    HALVERN_SEP_FIELDS(a, b)
};
struct UsbDeviceIndex : MAL::UTI::SerializableI {
    std::uint32_t index = 0;
    HALVERN_SEP_FIELDS(index)
};
struct UsbDeviceInfo : MAL::UTI::SerializableI {
    std::uint16_t a = 0, b = 0;
    bool c = false;
    std::uint32_t d = 0;
    HALVERN_SEP_FIELDS(a, b, c, d)
};
struct UsbDeviceResetCmd : MAL::UTI::SerializableI {
    std::uint32_t portId = 0;
    HALVERN_SEP_FIELDS(portId)
};
struct CurScreenAppExecInfo : MAL::UTI::SerializableI {
    std::uint32_t status = 0;
    HALVERN_SEP_FIELDS(status)
};
struct TestCmd : MAL::UTI::SerializableI {
    std::int32_t a = 0, b = 0;
    char text[256] = {};
    HALVERN_SEP_FIELDS(a, b, text)
};
struct NetIntfceInfo : TestCmd {};
struct WlanChannel : MAL::UTI::SerializableI {
    std::uint32_t channel = 0;
    std::int32_t b = 0;
    HALVERN_SEP_FIELDS(channel, b)
};
struct WindowsOsInfo : MAL::UTI::SerializableI {
    char texts[6][256] = {};
    HALVERN_SEP_FIELDS(texts)
};
struct HwComponentId : MAL::UTI::SerializableI {
    std::uint32_t componentId = 0;
    HALVERN_SEP_FIELDS(componentId)
};
struct CurHwComponInfo : MAL::UTI::SerializableI {
    std::uint16_t a = 0;
    std::uint8_t data[256] = {};
    HALVERN_SEP_FIELDS(a, data)
};
struct PowerLedCfg : MAL::UTI::SerializableI {
    std::int32_t state = 0;
    std::int32_t colour = 0;
    HALVERN_SEP_FIELDS(state, colour)
};
struct WindowsOsTimeInfo : MAL::UTI::SerializableI {
    std::int32_t fields[6] = {};
    char timeZone[256] = {};
    bool daylightSaving = false;
    HALVERN_SEP_FIELDS(fields, timeZone, daylightSaving)
};
struct ShutdownStateHandle : MAL::UTI::SerializableI {
    bool start = false;
    HALVERN_SEP_FIELDS(start)
};
struct CriticalHwStatusInfo : MAL::UTI::SerializableI {
    bool flags[5] = {};
    HALVERN_SEP_FIELDS(flags)
};
struct WlanChannelSelection : MAL::UTI::SerializableI {
    bool a = false;
    std::uint32_t b = 0;
    std::int32_t c = 0;
    HALVERN_SEP_FIELDS(a, b, c)
};
struct EfiBatteryType : MAL::UTI::SerializableI {
    std::uint32_t a = 0;
    std::int8_t types[4] = {};
    HALVERN_SEP_FIELDS(a, types)
};
struct EfiBatteryTypeOffset : MAL::UTI::SerializableI {
    std::uint32_t a = 0;
    std::int8_t offset = 0;
    HALVERN_SEP_FIELDS(a, offset)
};
// Event records.
struct EfiBtn : MAL::UTI::SerializableI {
    std::int32_t code = 0;
    HALVERN_SEP_FIELDS(code)
};
struct ShutdownEvent : MAL::UTI::SerializableI {
    std::uint32_t value = 0;
    HALVERN_SEP_FIELDS(value)
};
struct UsbMonitorEvent : MAL::UTI::SerializableI {
    bool attached = false;
    HALVERN_SEP_FIELDS(attached)
};
struct UWFOverlayStateEvent : MAL::UTI::SerializableI {
    std::int32_t first = 0;
    std::uint32_t second = 0, third = 0;
    HALVERN_SEP_FIELDS(first, second, third)
};
struct WlanRadarEvent : MAL::UTI::SerializableI {
    std::int32_t value = 0;
    HALVERN_SEP_FIELDS(value)
};

#undef HALVERN_SEP_FIELDS

}  // namespace Varda::SEP::HALVERN
