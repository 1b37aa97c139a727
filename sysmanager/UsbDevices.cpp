// The computer module's USB devices as the system manager keeps them, the restart of a device on a port,
// the USB stick's format, and the write filter's overlay with its watch.
#include <utility>

#include "framework/ExclusiveTurn.h"
#include "app/Log.h"
#include "framework/WindowMessages.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/WriteFilterOverlay.h"
#include "sysmanager/MainWindowSourceI.h"
#include "sysmanager/UsbDevicesC.h"
#include "sysmanager/WriteFilterC.h"

namespace {

const wchar_t* const kFormatProgram = L"C:\\Windows\\System32\\format.com";
const wchar_t* const kUsbStickDrive = L"F:\\";

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

}  // namespace

UsbDevicesC::UsbDevicesC(const MainWindowSourceI& mainWindow, WriteFilterC& writeFilter)
    : m_mainWindow(mainWindow), m_writeFilter(writeFilter)
{}

bool UsbDevicesC::RefreshUsbDevices(bool verifyEnumeration)
{
    const char* tag = "SysManagerC::RefreshUsbDevices";
    std::vector<platform::UsbDeviceT> devices;
    if (!platform::listUsbDevices(devices)) {
        WriteLog("[%s] [ERROR]: Failed to list the USB devices, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    std::uint32_t enumerated = 0;
    for (const auto& device : devices)
        if (device.enumerated) ++enumerated;
    {
        std::lock_guard<std::mutex> guard(m_usbLock);
        m_usbDevices = devices;
    }
    WriteLog("[%s]: %u USB devices, %u enumerated", tag, static_cast<unsigned>(devices.size()), enumerated);

    // A port is recycled once; it may be again after its device was seen complete or went away.
    std::set<std::uint32_t> stillRecycled;
    for (const auto& device : devices)
        if (!device.enumerated && m_recycledUsbPorts.count(device.port) != 0) stillRecycled.insert(device.port);
    m_recycledUsbPorts = std::move(stillRecycled);
    if (!verifyEnumeration) return true;
    const platform::WindowHandle window = m_mainWindow.GetMainWindow();
    for (const auto& device : devices) {
        if (device.enumerated || m_recycledUsbPorts.count(device.port) != 0) continue;
        WriteLog("[%s] [WARN]: USB device %04X:%04X on port %u did not complete its enumeration", tag, device.vendorId,
                 device.productId, device.port);
        if (!window || !platform::postMessage(window, WM_USB_PORT_RECYCLE, device.port & 0xFFFF, 0)) {
            WriteLog("[%s] [ERROR]: Failed to request the recycling of USB port %u, ERROR(%d)", tag, device.port,
                     lastErrorNumber());
            continue;
        }
        m_recycledUsbPorts.insert(device.port);
    }
    return true;
}

void UsbDevicesC::GetUsbDeviceCount(std::uint32_t& devices, std::uint32_t& enumerated) const
{
    std::lock_guard<std::mutex> guard(m_usbLock);
    devices = static_cast<std::uint32_t>(m_usbDevices.size());
    enumerated = 0;
    for (const auto& device : m_usbDevices)
        if (device.enumerated) ++enumerated;
}

bool UsbDevicesC::GetUsbDeviceAt(std::uint32_t index, platform::UsbDeviceT& device) const
{
    std::lock_guard<std::mutex> guard(m_usbLock);
    if (index >= m_usbDevices.size()) {
        WriteLog("[%s] [ERROR]: No USB device at index %u of %u", "SysManagerC::GetUsbDeviceAt", index,
                 static_cast<unsigned>(m_usbDevices.size()));
        return false;
    }
    device = m_usbDevices[index];
    return true;
}

bool UsbDevicesC::ResetUsbDevice(std::uint32_t port)
{
    const char* tag = "SysManagerC::ResetUsbDevice";
    if (!platform::restartUsbDevice(port)) {
        WriteLog("[%s] [ERROR]: Failed to restart the USB device on port %u, ERROR(%d)", tag, port, lastErrorNumber());
        return false;
    }
    WriteLog("[%s]: USB device on port %u restarted", tag, port);
    return true;
}

bool UsbDevicesC::RecycleUsbPort(std::uint16_t portId)
{
    WriteLog("[%s]: Recycling USB port %d", "SysManagerC::RecycleUsbPort", static_cast<int>(portId));
    return ResetUsbDevice(portId);
}

bool UsbDevicesC::FormatUsbDevice()
{
    const char* tag = "SysManagerC::FormatUsbDevice";
    const auto turn = halvern::takeExclusiveTurn(m_formatLock, tag, "A format of the USB stick");
    if (!turn) return false;
    std::wstring label;
    if (!platform::getVolumeLabel(kUsbStickDrive, label)) {
        WriteLog("[%s] [ERROR]: No USB stick attached, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    // Quick, without a question, and with the file system and label the stick had: a production stick stays
    // one, and a stick too big for FAT32 keeps the file system that fits it.
    std::wstring fileSystem;
    if (!platform::getVolumeFileSystem(kUsbStickDrive, fileSystem) || fileSystem.empty()) fileSystem = L"FAT32";
    const std::wstring commandLine =
        L"\"" + std::wstring(kFormatProgram) + L"\" F: /FS:" + fileSystem + L" /Q /X /Y /V:\"" + label + L"\"";
    WriteLog("[%s]: Formatting the USB stick [%S]", tag, label.c_str());
    platform::ProcessInformationT format;
    if (!platform::createProcess(L"", commandLine, platform::kCreateNoWindow, platform::StartupInfoT{}, format)) {
        WriteLog("[%s] [ERROR]: Failed to start the format tool, ERROR(%d)", tag, lastErrorNumber());
        return false;
    }
    if (platform::waitForSingleObject(format.process.get(), kFormatWaitMs) != platform::kWaitObject0) {
        WriteLog("[%s] [ERROR]: The format tool did not end within %u ms", tag, kFormatWaitMs);
        platform::terminateProcess(format.process.get(), 1);
        return false;
    }
    std::uint32_t exitCode = 0;
    if (!platform::getExitCodeProcess(format.process.get(), exitCode) || exitCode != 0) {
        WriteLog("[%s] [ERROR]: The format tool failed with exit code %u", tag, exitCode);
        return false;
    }
    WriteLog("[%s]: USB stick formatted", tag);
    return true;
}

bool UsbDevicesC::ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb)
{
    if (!platform::readWriteFilterOverlay(consumptionMb, availableMb)) {
        WriteLog("[%s] [ERROR]: Failed to read the write filter's overlay, ERROR(%d)", "SysManagerC::ReadUWFOverlay",
                 lastErrorNumber());
        return false;
    }
    return true;
}

bool UsbDevicesC::startOverlayWatch(OverlayWatchC::PauseFn pause)
{
    if (m_overlayWatch) return true;
    const platform::WindowHandle window = m_mainWindow.GetMainWindow();
    // Without the write filter (production and service mode) nothing fills an overlay: one that cannot be
    // read is then expected, said once and not as an error, and counts as empty. The filter's state changes
    // only with a restart. A state that cannot be read counts as on.
    bool filterActive = true;
    if (!m_writeFilter.GetUWFilter(filterActive)) filterActive = true;
    // The watch keeps no pointer to the component: it reads the platform and posts to the window it was
    // given.
    auto watch = std::make_unique<OverlayWatchC>(
        [filterActive, said = false](std::uint32_t& consumption, std::uint32_t& available) mutable {
            if (platform::readWriteFilterOverlay(consumption, available)) return true;
            if (filterActive) return false;
            if (!said)
                WriteLog("[%s] the write filter is off and its overlay cannot be read, GLE=%d", "OverlayWatchC",
                         lastErrorNumber());
            said = true;
            consumption = 0;
            available = 0;
            return true;
        },
        [window](std::int32_t state) {
            const std::uint32_t message = WM_UWF_OVERLAY_STATE_1 + static_cast<std::uint32_t>(state - 1);
            if (!platform::postMessage(window, message, 0, 0))
                WriteLog("[%s] [ERROR]: Failed to post the overlay state %d, ERROR(%d)", "SysManagerC::OverlayWatch",
                         state, lastErrorNumber());
        },
        std::move(pause));
    if (!watch->start()) return false;
    m_overlayWatch = std::move(watch);
    return true;
}

bool UsbDevicesC::stopOverlayWatch()
{
    if (!m_overlayWatch) return true;
    if (!m_overlayWatch->stop()) return false;
    m_overlayWatch.reset();
    return true;
}
