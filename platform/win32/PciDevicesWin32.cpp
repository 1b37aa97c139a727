#include <windows.h>
// After windows.h: the setup API's and the configuration manager's declarations use its types.
#include <cfgmgr32.h>
#include <setupapi.h>

#include "platform/PciDevices.h"
#include "platform/win32/SetupApiSupport.h"

namespace platform {

bool listPresentPciDevices(std::vector<PciDeviceT>& devices)
{
    devices.clear();
    const win32::UniqueDeviceInfoSet set(
        SetupDiGetClassDevsW(nullptr, L"PCI", nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
    if (!set) return false;
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    for (DWORD index = 0; SetupDiEnumDeviceInfo(set.get(), index, &data); ++index) {
        PciDeviceT entry;
        wchar_t instance[MAX_DEVICE_ID_LEN] = {};
        if (SetupDiGetDeviceInstanceIdW(set.get(), &data, instance, MAX_DEVICE_ID_LEN, nullptr))
            entry.instanceId = instance;
        entry.hardwareIds = win32::deviceTextProperty(set.get(), data, SPDRP_HARDWAREID);
        auto description = win32::deviceTextProperty(set.get(), data, SPDRP_FRIENDLYNAME);
        if (description.empty()) description = win32::deviceTextProperty(set.get(), data, SPDRP_DEVICEDESC);
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
