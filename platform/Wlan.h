#pragma once
// The native WLAN client (wlanapi): a client handle with its one owner and the interfaces it sees. Later
// needs (scan, BSS list, notifications, the hosted network) are further functions on the same handle.
// Answers are Windows error numbers, 0 on success, as the WLAN functions return them.
//
// On the simulation platform the WLAN service always runs; the computer module's WLAN interface exists
// while the module is powered (the WLAN power line of the IO expander "\\.\IOExpander" reads on) and the
// device runs a driver that offers an interface: $HALVERN_ROOT/sim/devices/wlan holds "interface=1", as
// the device tool and driver store stand-ins leave it.
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace platform {

// WLAN_API_VERSION_2_0: the client version of every caller on the instrument.
constexpr std::uint32_t kWlanClientVersion = 2;

// WLAN_INTERFACE_STATE values used by callers.
constexpr std::uint32_t kWlanInterfaceNotReady = 0;
constexpr std::uint32_t kWlanInterfaceConnected = 1;
constexpr std::uint32_t kWlanInterfaceDisconnected = 4;

using WlanHandleValue = void*;

// WlanCloseHandle semantics: the Windows error, 0 when closed.
std::uint32_t wlanCloseHandle(WlanHandleValue handle);

class UniqueWlanHandle {
public:
    UniqueWlanHandle() = default;
    explicit UniqueWlanHandle(WlanHandleValue value) : m_value(value) {}
    UniqueWlanHandle(const UniqueWlanHandle&) = delete;
    UniqueWlanHandle& operator=(const UniqueWlanHandle&) = delete;
    UniqueWlanHandle(UniqueWlanHandle&& other) noexcept : m_value(other.release()) {}
    UniqueWlanHandle& operator=(UniqueWlanHandle&& other) noexcept
    {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~UniqueWlanHandle() { reset(); }

    WlanHandleValue get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }
    WlanHandleValue release() { return std::exchange(m_value, nullptr); }
    void reset(WlanHandleValue value = nullptr)
    {
        if (m_value != nullptr) wlanCloseHandle(m_value);
        m_value = value;
    }

private:
    WlanHandleValue m_value = nullptr;
};

struct WlanInterfaceT {
    std::array<std::uint8_t, 16> guid{};  // the GUID's bytes as Windows lays them out
    std::wstring description;
    std::uint32_t state = kWlanInterfaceNotReady;
};

// WlanOpenHandle with `clientVersion`; `negotiatedVersion` gets the service's version.
std::uint32_t wlanOpenHandle(std::uint32_t clientVersion, std::uint32_t& negotiatedVersion, UniqueWlanHandle& handle);
// WlanEnumInterfaces; the service's list is copied out and released with WlanFreeMemory.
std::uint32_t wlanEnumInterfaces(const UniqueWlanHandle& handle, std::vector<WlanInterfaceT>& interfaces);

}  // namespace platform
