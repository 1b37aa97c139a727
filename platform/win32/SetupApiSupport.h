#pragma once
// What the device lists share of the device setup API: the owner of a device information set and the
// reading of a device's text properties.
#include <windows.h>
// After windows.h: the setup API's declarations use its types.
#include <setupapi.h>

#include <string>
#include <vector>

namespace platform::win32 {

// A device information set, destroyed with its owner.
class DeviceInfoSetC {
public:
    explicit DeviceInfoSetC(HDEVINFO set) : m_set(set) {}
    ~DeviceInfoSetC()
    {
        const DWORD error = GetLastError();
        if (m_set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(m_set);
        SetLastError(error);
    }
    DeviceInfoSetC(const DeviceInfoSetC&) = delete;
    DeviceInfoSetC& operator=(const DeviceInfoSetC&) = delete;
    bool valid() const { return m_set != INVALID_HANDLE_VALUE; }
    HDEVINFO get() const { return m_set; }

private:
    HDEVINFO m_set;
};

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
