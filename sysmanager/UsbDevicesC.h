#pragma once
// The computer module's USB devices and the write filter's overlay: the list of attached USB devices, which
// the main window refreshes at every device arrival and removal while the command server reads it on its own
// thread; a restart of the device on a port; the quick format of the USB stick F:; and the overlay watch.
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "platform/Usb.h"
#include "sysmanager/OverlayWatchC.h"

class MainWindowSourceI;
class WriteFilterC;

class UsbDevicesC {
public:
    // Port recycling and the overlay's states go to the main window; the watch asks the write filter whether
    // an overlay is to be expected.
    UsbDevicesC(const MainWindowSourceI& mainWindow, WriteFilterC& writeFilter);

    // `verifyEnumeration` (on arrival): a device whose enumeration did not complete gets its port recycled
    // through the main window (0x4C8, port in wParam), once until it is seen complete or removed.
    bool RefreshUsbDevices(bool verifyEnumeration);
    // The number of devices and how many of them completed their enumeration.
    void GetUsbDeviceCount(std::uint32_t& devices, std::uint32_t& enumerated) const;
    bool GetUsbDeviceAt(std::uint32_t index, platform::UsbDeviceT& device) const;
    // Restarts the device on `port`; false (logged) when no device is there or it refused.
    bool ResetUsbDevice(std::uint32_t port);
    bool RecycleUsbPort(std::uint16_t portId);
    // Runs "C:\Windows\System32\format.com" on F: (quick, no prompts) with the stick's own file system (FAT32
    // when it cannot be read) and label, and waits up to kFormatWaitMs for it. False (logged) without a stick, or when
    // the tool cannot start, fails or does not end in time; also while another format runs (last error
    // ERROR_BUSY): two tools on one drive would wipe each other's work.
    static constexpr std::uint32_t kFormatWaitMs = 300000;
    bool FormatUsbDevice();
    // False (logged) when the overlay's figures cannot be read; both are 0 then.
    bool ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb);
    // The overlay watch posts 0x537, 0x538 or 0x539 (states 1 to 3 of OverlayWatchC) to the main window when
    // the overlay's state changes. It ends with this component at the latest. `pause` replaces the wait
    // between two readings (tests).
    bool startOverlayWatch(OverlayWatchC::PauseFn pause = {});
    bool stopOverlayWatch();

private:
    const MainWindowSourceI& m_mainWindow;
    WriteFilterC& m_writeFilter;
    // The list is replaced by the main thread and read by the command server's; the recycled ports are the
    // main thread's alone.
    mutable std::mutex m_usbLock;
    std::vector<platform::UsbDeviceT> m_usbDevices;
    std::set<std::uint32_t> m_recycledUsbPorts;
    std::mutex m_formatLock;
    // Last member: it goes first, so the watch's thread has ended before anything else of the component goes.
    std::unique_ptr<OverlayWatchC> m_overlayWatch;
};
