#pragma once
// The network adapters' settings that live in the device registry: the wired adapter's link speed
// towards the sensor board, the WLAN driver's country code, access-point channel, width and band, and the
// addresses of the named interfaces. Stateless: the registry is opened for every call.
#include <cstdint>
#include <string>

namespace halvern::net {

// "*SpeedDuplex" values; 6 is also the answer when the speed cannot be read.
constexpr int kSpeedAutoNegotiation = 0;
constexpr int kSpeedGigabitFullDuplex = 5;
constexpr int kSpeedNoValid = 6;

// The country text when the driver has no "ccode" value.
constexpr const char* kCountryNotPresent = "not present";

// Properties of a network interface.
constexpr int kInterfacePhysicalAddress = 0;
constexpr int kInterfaceIpv4Addresses = 1;

class NetManagerC {
public:
    static bool GetSpeedName(int speed, std::string& name);
    static bool IdentifyEthAdapterSlot(std::wstring& keyPath);
    static int GetAdapterSpeed();
    static bool SetAdapterSpeed(int speed);

    static bool GetWlanDrvRegPath(std::wstring& keyPath);
    // `code` gets at most 255 characters.
    static bool GetDrvCtryCode(std::string& code);
    static bool SetDrvCtryCode(const std::string& code);
    static bool IsBandwidthLimited();

    static bool getWlanIntfInfo(const std::wstring& contain, const std::wstring& exclude, int property,
                                std::string& text);
    static bool GetNetworkInterfaceInfo(int interfaceId, int property, std::string& text);

    static bool readRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName, std::string& text);
    static bool readRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName, int& number);
    static bool writeRegistryKeyValue(const std::wstring& keyPath, const std::wstring& valueName,
                                      const std::string& text);

    static bool getDrvWlanChannel(std::uint32_t& channel, std::uint32_t& width);
    static bool setDrvWlanChannel(std::uint32_t channel, std::uint32_t width);
    static bool getDrvWlanBand(std::uint32_t& band);
    static bool setDrvWlanBand(std::uint32_t band);
};

}  // namespace halvern::net
