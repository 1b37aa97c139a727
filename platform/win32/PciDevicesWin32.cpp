#include <windows.h>
// After windows.h: the setup API's and the configuration manager's declarations use its types.
#include <cfgmgr32.h>
#include <setupapi.h>

#include "platform/PciDevices.h"

namespace platform {

namespace {

class DeviceInfoSetC {
public:
    explicit DeviceInfoSetC(HDEVINFO set) : m_set(set) {}
    ~DeviceInfoSetC()
    {
        if (m_set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(m_set);
    }
    DeviceInfoSetC(const DeviceInfoSetC&) = delete;
    DeviceInfoSetC& operator=(const DeviceInfoSetC&) = delete;
    HDEVINFO get() const { return m_set; }

private:
    HDEVINFO m_set;
};

// A text or multi-text property as its strings; none when the device lacks it.
std::vector<std::wstring> textProperty(HDEVINFO set, SP_DEVINFO_DATA& data, DWORD property)
{
    std::vector<std::wstring> values;
    std::vector<BYTE> buffer(512);
    DWORD needed = 0;
    while (!SetupDiGetDeviceRegistryPropertyW(set, &data, property, nullptr, buffer.data(),
                                              static_cast<DWORD>(buffer.size()), &needed)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || needed <= buffer.size()) return values;
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
    return values;
}

}  // namespace

bool listPresentPciDevices(std::vector<PciDeviceT>& devices)
{
    devices.clear();
    DeviceInfoSetC set(SetupDiGetClassDevsW(nullptr, L"PCI", nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
    if (set.get() == INVALID_HANDLE_VALUE) return false;
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    for (DWORD index = 0; SetupDiEnumDeviceInfo(set.get(), index, &data); ++index) {
        PciDeviceT entry;
        wchar_t instance[MAX_DEVICE_ID_LEN] = {};
        if (SetupDiGetDeviceInstanceIdW(set.get(), &data, instance, MAX_DEVICE_ID_LEN, nullptr))
            entry.instanceId = instance;
        entry.hardwareIds = textProperty(set.get(), data, SPDRP_HARDWAREID);
        auto description = textProperty(set.get(), data, SPDRP_FRIENDLYNAME);
        if (description.empty()) description = textProperty(set.get(), data, SPDRP_DEVICEDESC);
        if (!description.empty()) entry.description = description.front();
        ULONG status = 0;
        ULONG problem = 0;
        if (CM_Get_DevNode_Status(&status, &problem, data.DevInst, 0) == CR_SUCCESS) {
            entry.started = (status & DN_STARTED) != 0 && (status & DN_HAS_PROBLEM) == 0;
            entry.problem = (status & DN_HAS_PROBLEM) != 0 ? problem : 0;
        }
        devices.push_back(std::move(entry));
    }
    if (GetLastError() != ERROR_NO_MORE_ITEMS) return false;
    SetLastError(ERROR_SUCCESS);
    return true;
}

}  // namespace platform
