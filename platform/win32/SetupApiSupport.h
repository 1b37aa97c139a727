#pragma once
// What the device lists share of the device setup API: the owner of a device information set and the
// reading of a device's text properties.
#include <windows.h>
// After windows.h: the setup API's declarations use its types.
#include <setupapi.h>

#include <string>
#include <vector>

#include "platform/Owner.h"

namespace platform::win32 {

// SetupDiDestroyDeviceInfoList; the calls that make a set answer INVALID_HANDLE_VALUE on failure.
struct DeviceInfoSetTraits {
    using Value = HDEVINFO;
    static Value invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(Value set) noexcept { SetupDiDestroyDeviceInfoList(set); }
};
using UniqueDeviceInfoSet = UniqueOwner<DeviceInfoSetTraits>;

// A text or multi-text registry property of a device as its strings; false when the device lacks it. The
// buffer grows to the size the system reports when 512 bytes are not enough.
inline bool deviceTextProperty(HDEVINFO set, SP_DEVINFO_DATA& device, DWORD property, std::vector<std::wstring>& values)
{
    values.clear();
    std::vector<BYTE> buffer(512);
    DWORD needed = 0;
    while (!SetupDiGetDeviceRegistryPropertyW(set, &device, property, nullptr, buffer.data(),
                                              static_cast<DWORD>(buffer.size()), &needed)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || needed <= buffer.size()) return false;
        buffer.resize(needed);
    }
    const auto* text = reinterpret_cast<const wchar_t*>(buffer.data());
    const std::size_t chars = buffer.size() / sizeof(wchar_t);
    for (std::size_t start = 0; start < chars && text[start] != L'\0';) {
        std::size_t end = start;
        while (end < chars && text[end] != L'\0')
            ++end;
        values.emplace_back(text + start, end - start);
        start = end + 1;
    }
    return true;
}

// The same where a missing property counts as no strings.
inline std::vector<std::wstring> deviceTextProperty(HDEVINFO set, SP_DEVINFO_DATA& device, DWORD property)
{
    std::vector<std::wstring> values;
    deviceTextProperty(set, device, property, values);
    return values;
}

}  // namespace platform::win32
