#pragma once
// The WLAN driver beyond the WLAN service: its device among the DOS device names (QueryDosDeviceW), its
// private channel-list request (DeviceIoControl on "\\.\" + name), and the NDIS status indications it
// raises, which Windows delivers through WMI ("ROOT\WMI": MSNdis_StatusMediaConnect,
// MSNdis_StatusMediaDisconnect, MSNdis_StatusMediaSpecificIndicationEx).
//
// On the simulation platform the DOS device names are the lines "NAME=TARGET" of
// $HALVERN_ROOT/sim/dosdevices, the driver device is there while the module's interface is (see
// platform/Wlan.h) and answers the channel-list request from $HALVERN_ROOT/sim/devices/wlan-channels
// (platform/sim/SimWlanDriver.h), and the indications come from the simulated instrument's radio.
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
// or the destructor (no call runs after either returned).
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
