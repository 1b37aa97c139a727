#include <windows.h>
// After windows.h: the setup API's declarations use its types.
#include <setupapi.h>

#include <vector>

#include "platform/Device.h"

namespace platform {

namespace {
// {4D36E972-E325-11CE-BFC1-08002BE10318}
const GUID kNetworkClass = {0x4D36E972, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
}  // namespace

struct NetworkDeviceListC::Impl {
    HDEVINFO set = INVALID_HANDLE_VALUE;
    ~Impl()
    {
        if (set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set);
    }
};

NetworkDeviceListC::NetworkDeviceListC() : m_impl(std::make_unique<Impl>()) {}
NetworkDeviceListC::~NetworkDeviceListC() = default;

bool NetworkDeviceListC::open(bool presentOnly)
{
    m_impl->set = SetupDiGetClassDevsW(&kNetworkClass, nullptr, nullptr, presentOnly ? DIGCF_PRESENT : 0);
    return m_impl->set != INVALID_HANDLE_VALUE;
}

bool NetworkDeviceListC::device(std::uint32_t index)
{
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    return SetupDiEnumDeviceInfo(m_impl->set, index, &data) != FALSE;
}

bool NetworkDeviceListC::property(std::uint32_t index, DevicePropertyE which, std::vector<std::wstring>& values)
{
    values.clear();
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    if (!SetupDiEnumDeviceInfo(m_impl->set, index, &data)) return false;
    const DWORD property = which == DevicePropertyE::DriverKey ? SPDRP_DRIVER : SPDRP_HARDWAREID;
    // Grown to the size the system reports when 512 bytes are not enough.
    std::vector<BYTE> buffer(512);
    DWORD needed = 0;
    while (!SetupDiGetDeviceRegistryPropertyW(m_impl->set, &data, property, nullptr, buffer.data(),
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
        values.emplace_back(text + start, text + end);
        if (which == DevicePropertyE::DriverKey) break;
        start = end + 1;
    }
    return true;
}

}  // namespace platform
