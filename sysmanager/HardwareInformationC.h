#pragma once
// Hardware and system information: the instrument's PCI components, the board and BIOS data, the Windows
// release, and the two registry settings that start-up repairs. It keeps no state: every answer is read
// from the platform.
#include <array>
#include <cstdint>
#include <string>

class HardwareInformationC {
public:
    // Component ids of the hardware query; its state is 1 for a component that is present and working,
    // 2 for one that is present but not working (Device Manager reports a problem or it did not start), 0
    // for one that is not there.
    static constexpr std::uint32_t kHwComponentWlan = 1;
    static constexpr std::uint32_t kHwComponentMoraEthernet = 2;
    static constexpr std::uint32_t kHwComponentLemoEthernet = 3;
    static constexpr std::uint32_t kHwComponentDma = 4;
    static constexpr std::uint16_t kHwComponentMissing = 0;
    static constexpr std::uint16_t kHwComponentWorking = 1;
    static constexpr std::uint16_t kHwComponentFailing = 2;
    // False (logged) for an unknown id or when the PCI devices cannot be listed. `description` is the
    // device's text as Device Manager shows it, or the component's own name when it is not there.
    bool GetHwComponentInfo(std::uint32_t componentId, std::uint16_t& state, std::string& description);
    // What the board data command answers; see GetBoardContent.
    struct BoardContentT {
        std::uint16_t biosRelease = 0;           // BIOS major release in the high byte, minor in the low byte
        std::array<std::uint8_t, 6> moraMac{};   // the sensor-board Ethernet adapter; zero when it is missing
        std::array<std::uint8_t, 4> moraIpv4{};  // its first IPv4 address, first octet first; zero without one
        std::string boardVersion;                // "BaseBoardVersion", at most 9 characters
        std::string biosVersion;                 // "BIOSVersion", at most 21 characters
        std::uint32_t biosDate = 0;              // "BIOSReleaseDate" as yyyymmdd
    };
    // From the BIOS values of "HARDWARE\DESCRIPTION\System\BIOS" and the sensor-board adapter. False
    // (logged) without the BIOS version or a readable release date.
    bool GetBoardContent(BoardContentT& content);
    // Product name, edition, display version, build ("22631.2861": build and update revision), computer
    // name and installation time ("2026-03-01 08:15:00", UTC), from
    // "SOFTWARE\Microsoft\Windows NT\CurrentVersion". False (logged) without product name or build.
    bool GetWindowsOsInfo(std::array<std::string, 6>& info);
    // The "sermouse" service must never start: it would take the HMI board's COM port for a serial
    // mouse. `changed` when its start type had to be set to disabled (4).
    bool DisableSerialMouseService(bool& changed);
    // The system disk's write cache is off, so that a battery pulled during a write loses nothing.
    // `diskKey` is the disk's "Device Parameters\Disk" key below HKLM (empty when no disk has one),
    // `changed` when its "UserWriteCacheSetting" had to be set to 0.
    bool DisableSsdWriteCache(std::wstring& diskKey, bool& changed);
};
