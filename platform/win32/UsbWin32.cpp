// The USB devices through the device setup API. The list is the present devices of the USB device
// interface class, so hubs' own functions and a composite device's interfaces do not count twice.
#include <windows.h>
// After windows.h: the setup API's declarations use its types.
#include <devpropdef.h>
#include <setupapi.h>

#include <cwctype>
#include <string>
#include <vector>

#include "platform/Usb.h"
#include "platform/win32/SetupApiSupport.h"
#include "platform/win32/UsbDeviceInterface.h"
#include "platform/win32/WineGuard.h"

namespace platform {

namespace {

// DEVPKEY_Device_DevNodeStatus and DEVPKEY_Device_ProblemCode.
const DEVPROPKEY kDevNodeStatus = {{0x4340A6C5, 0x93FA, 0x4706, {0x97, 0x2C, 0x7B, 0x64, 0x80, 0x08, 0xA5, 0xA7}}, 2};
const DEVPROPKEY kProblemCode = {{0x4340A6C5, 0x93FA, 0x4706, {0x97, 0x2C, 0x7B, 0x64, 0x80, 0x08, 0xA5, 0xA7}}, 3};
constexpr ULONG kDnStarted = 0x00000008;
constexpr ULONG kDnHasProblem = 0x00000400;

// The present USB devices.
HDEVINFO presentUsbDevices()
{
    return SetupDiGetClassDevsW(&win32::kUsbDeviceInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
}

std::wstring upper(std::wstring text)
{
    for (auto& c : text)
        c = static_cast<wchar_t>(std::towupper(c));
    return text;
}

// The four hex digits after `key` ("VID_", "PID_") in a hardware id.
bool hexAfter(const std::wstring& id, const wchar_t* key, std::uint16_t& value)
{
    const auto at = id.find(key);
    if (at == std::wstring::npos || id.size() < at + 8) return false;
    value = static_cast<std::uint16_t>(std::wcstoul(id.substr(at + 4, 4).c_str(), nullptr, 16));
    return true;
}

bool startedWithoutProblem(HDEVINFO set, SP_DEVINFO_DATA& device)
{
    ULONG status = 0;
    ULONG problem = 0;
    DEVPROPTYPE type = 0;
    if (!SetupDiGetDevicePropertyW(set, &device, &kDevNodeStatus, &type, reinterpret_cast<PBYTE>(&status),
                                   sizeof status, nullptr, 0))
        return false;
    if (SetupDiGetDevicePropertyW(set, &device, &kProblemCode, &type, reinterpret_cast<PBYTE>(&problem), sizeof problem,
                                  nullptr, 0) &&
        problem != 0)
        return false;
    return (status & kDnStarted) != 0 && (status & kDnHasProblem) == 0;
}

bool portOf(HDEVINFO set, SP_DEVINFO_DATA& device, std::uint32_t& port)
{
    DWORD address = 0;
    if (!SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_ADDRESS, nullptr, reinterpret_cast<PBYTE>(&address),
                                           sizeof address, nullptr))
        return false;
    port = address;
    return true;
}

}  // namespace

bool listUsbDevices(std::vector<UsbDeviceT>& devices)
{
    devices.clear();
    const win32::UniqueDeviceInfoSet set(presentUsbDevices());
    if (!set) return false;
    for (DWORD index = 0;; ++index) {
        SP_DEVINFO_DATA data{};
        data.cbSize = sizeof data;
        if (!SetupDiEnumDeviceInfo(set.get(), index, &data)) {
            if (GetLastError() == ERROR_NO_MORE_ITEMS) break;
            return false;
        }
        UsbDeviceT device;
        const auto hardwareIds = win32::deviceTextProperty(set.get(), data, SPDRP_HARDWAREID);
        if (!hardwareIds.empty()) {
            const std::wstring id = upper(hardwareIds.front());
            hexAfter(id, L"VID_", device.vendorId);
            hexAfter(id, L"PID_", device.productId);
        }
        for (const auto& compatible : win32::deviceTextProperty(set.get(), data, SPDRP_COMPATIBLEIDS))
            if (upper(compatible).find(L"CLASS_08") != std::wstring::npos) device.massStorage = true;
        portOf(set.get(), data, device.port);
        device.enumerated = !hardwareIds.empty() && startedWithoutProblem(set.get(), data);
        devices.push_back(device);
    }
    return true;
}

bool restartUsbDevice(std::uint32_t port)
{
    if (win32::refusedUnderWine()) return false;
    const win32::UniqueDeviceInfoSet set(presentUsbDevices());
    if (!set) return false;
    for (DWORD index = 0;; ++index) {
        SP_DEVINFO_DATA data{};
        data.cbSize = sizeof data;
        if (!SetupDiEnumDeviceInfo(set.get(), index, &data)) {
            if (GetLastError() == ERROR_NO_MORE_ITEMS) SetLastError(ERROR_NOT_FOUND);
            return false;
        }
        std::uint32_t devicePort = 0;
        if (!portOf(set.get(), data, devicePort) || devicePort != port) continue;
        SP_PROPCHANGE_PARAMS change{};
        change.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
        change.ClassInstallHeader.InstallFunction = DIF_PROPERTYCHANGE;
        change.StateChange = DICS_PROPCHANGE;
        change.Scope = DICS_FLAG_CONFIGSPECIFIC;
        change.HwProfile = 0;
        if (!SetupDiSetClassInstallParamsW(set.get(), &data, &change.ClassInstallHeader, sizeof change)) return false;
        return SetupDiCallClassInstaller(DIF_PROPERTYCHANGE, set.get(), &data) != FALSE;
    }
}

bool getVolumeFileSystem(const std::wstring& rootPath, std::wstring& fileSystem)
{
    wchar_t name[MAX_PATH + 1] = {};
    if (!GetVolumeInformationW(rootPath.c_str(), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH + 1))
        return false;
    fileSystem = name;
    return true;
}

}  // namespace platform
