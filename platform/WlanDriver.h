#pragma once
// The WLAN driver beyond the WLAN service: its device among the DOS device names (QueryDosDeviceW), its
// private channel-list request (DeviceIoControl on "\\.\" + name), and the NDIS status indications it
// raises, which Windows delivers through WMI ("ROOT\WMI": MSNdis_StatusMediaConnect,
// MSNdis_StatusMediaDisconnect, MSNdis_StatusMediaSpecificIndicationEx).
//
// On the simulation platform the DOS device names are the lines "NAME=TARGET" of
// $HALVERN_ROOT/sim/dosdevices, the driver device is there while the module's interface is (see
// platform/Wlan.h) and answers the channel-list request from $HALVERN_ROOT/sim/devices/wlan-channels
// (platform/sim/SimWlanDriver.h), and the indications come from the simulated instrument through $HALVERN_ROOT/sim/wmi/ndis
// (platform/sim/NdisWire.h).
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Handle.h"

namespace platform {

// QueryDosDeviceW(nullptr): every DOS device name. False with the last error set.
bool queryDosDeviceNames(std::vector<std::wstring>& names);
// QueryDosDeviceW(name): the targets of one name. False with the last error set.
bool queryDosDeviceTargets(const std::wstring& name, std::vector<std::wstring>& targets);
// CreateFileW("\\.\" + name) for reading and writing. An empty owner with the last error set.
UniqueHandle openDriverDevice(const std::wstring& name);

// The driver's channel-list request. The answer is a u32 count followed by that many records of 12 bytes,
// little-endian: channel (u32), width flags (u32: 1 HT20, 2 HT40+, 4 HT40-), DFS flag (u8), marked flag
// (u8), two bytes of padding.
constexpr std::uint32_t kIoctlWlanGetChannelList = 0x00FF2004;
constexpr std::uint32_t kWlanChannelRecordBytes = 12;
constexpr std::uint32_t kWlanChannelListMaxRecords = 64;

// The value of "NdisStatusMediaSpecificIndication" in the driver's DFS indications: four little-endian u32
// fields, type, port, event code, and the length of the channel availability check in milliseconds (only
// START_OF_CAC fills it). A shorter value leaves the missing fields 0.
constexpr std::size_t kWlanIndicationBytes = 16;
constexpr std::uint32_t kWlanIndicationTypeDfs = 1;
constexpr std::uint32_t kWlanEventRadarDetected = 1;
constexpr std::uint32_t kWlanEventApStopped = 2;
constexpr std::uint32_t kWlanEventStartOfCac = 3;
constexpr std::uint32_t kWlanEventCacDone = 4;

struct WlanIndicationT {
    std::uint32_t type = 0;
    std::uint32_t port = 0;
    std::uint32_t eventCode = 0;
    std::uint32_t cacTimeMs = 0;
};

inline WlanIndicationT decodeWlanIndication(const std::vector<std::uint8_t>& bytes)
{
    std::uint32_t fields[4] = {};
    for (std::size_t i = 0; i < bytes.size() && i < kWlanIndicationBytes; ++i)
        fields[i / 4] |= static_cast<std::uint32_t>(bytes[i]) << (8 * (i % 4));
    return {fields[0], fields[1], fields[2], fields[3]};
}

inline std::vector<std::uint8_t> encodeWlanIndication(const WlanIndicationT& indication)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t field : {indication.type, indication.port, indication.eventCode, indication.cacTimeMs})
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<std::uint8_t>(field >> shift));
    return bytes;
}

// What the driver reports through NDIS.
enum class NdisEventKindE { MediaConnect, MediaDisconnect, MediaSpecificIndication, Unexpected };

struct NdisEventT {
    NdisEventKindE kind = NdisEventKindE::Unexpected;
    // MediaSpecificIndication: false when the object carried no "NdisStatusMediaSpecificIndication".
    bool hasIndication = false;
    // The indication's bytes as the driver sent them.
    std::vector<std::uint8_t> indication;
    // Unexpected: the object's "__CLASS".
    std::wstring className;
};

// The step of the subscription that failed, for the caller's log line.
enum class NdisSubscribeStepE { None, CoInitializeEx, CoInitializeSecurity, CoCreateInstance, ConnectServer, Register };

struct NdisSubscribeResultT {
    NdisSubscribeStepE failedStep = NdisSubscribeStepE::None;
    std::uint32_t code = 0;  // the HRESULT (Windows) or Windows error (simulation) of the failed step
};

// Called on the source's own threads; the callee only copies and signals.
using NdisEventCallback = std::function<void(const NdisEventT&)>;

// The three asynchronous notification queries, registered together; cancelled and released by stop()
// or the destructor (no call runs after either returned). On Windows start() initialises COM on the
// calling thread, so stop() belongs on that thread as well.
class NdisEventSourceC {
public:
    NdisEventSourceC();
    ~NdisEventSourceC();
    NdisEventSourceC(const NdisEventSourceC&) = delete;
    NdisEventSourceC& operator=(const NdisEventSourceC&) = delete;

    NdisSubscribeResultT start(NdisEventCallback callback);
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace platform
