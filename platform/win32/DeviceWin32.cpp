#include <windows.h>
// After windows.h: the setup API's declarations use its types.
#include <setupapi.h>

#include <vector>

#include "platform/Device.h"
#include "platform/win32/SetupApiSupport.h"

namespace platform {

namespace {
// {4D36E972-E325-11CE-BFC1-08002BE10318}
const GUID kNetworkClass = {0x4D36E972, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
}  // namespace

struct NetworkDeviceListC::Impl {
    win32::UniqueDeviceInfoSet set;
};

NetworkDeviceListC::NetworkDeviceListC() : m_impl(std::make_unique<Impl>()) {}
NetworkDeviceListC::~NetworkDeviceListC() = default;

bool NetworkDeviceListC::open(bool presentOnly)
{
    m_impl->set.reset(SetupDiGetClassDevsW(&kNetworkClass, nullptr, nullptr, presentOnly ? DIGCF_PRESENT : 0));
    return static_cast<bool>(m_impl->set);
}

bool NetworkDeviceListC::device(std::uint32_t index)
{
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    return SetupDiEnumDeviceInfo(m_impl->set.get(), index, &data) != FALSE;
}

bool NetworkDeviceListC::property(std::uint32_t index, DevicePropertyE which, std::vector<std::wstring>& values)
{
    values.clear();
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    if (!SetupDiEnumDeviceInfo(m_impl->set.get(), index, &data)) return false;
    const DWORD property = which == DevicePropertyE::DriverKey ? SPDRP_DRIVER : SPDRP_HARDWAREID;
    if (!win32::deviceTextProperty(m_impl->set.get(), data, property, values)) return false;
    // The driver key is one text.
    if (which == DevicePropertyE::DriverKey && values.size() > 1) values.resize(1);
    return true;
}

}  // namespace platform
