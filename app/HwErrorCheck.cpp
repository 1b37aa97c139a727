// The hardware check of the start-up: which of the instrument's components are ready, and whether the
// start may go on.
#include <string>
#include <vector>

#include "app/Log.h"
#include "app/StartUpSteps.h"
#include "efi/EFIServiceIPC.h"
#include "spb/SpbApi.h"
#include "spb/SpbDevices.h"
#include "spb/SpbEnable.h"
#include "sysmanager/SysManagerC.h"

namespace halvern {

namespace {

struct ComponentC {
    const wchar_t* label;
    bool ready;
};

// The sensor board's parts as the EFI service reports them; all not ready when it cannot tell.
EFIHwStatus queryEfiHwStatus()
{
    EFIHwStatus status;
    auto message = SysManagerC::Instance()->GetEFIServiceIPC().ExecuteBasicCommand(EFI_BASIC_HWSTATUS, true);
    if (!message) {
        WriteLog("[ERROR]: isHwErrorDetected: Failed to execute HW status EFI command");
        return status;
    }
    if (!parseHwStatus(*message, status)) {
        WriteLog("[ERROR]: isHwErrorDetected: Failed to parse EFI's HW status");
        return EFIHwStatus{};
    }
    WriteLog("[INFO]: isHwErrorDetected: Successfully parsed EFI's HW status");
    return status;
}

// Ready only when the query answers that the component is present and working.
bool componentReady(std::uint32_t componentId)
{
    std::uint16_t state = SysManagerC::kHwComponentMissing;
    std::string description;
    return SysManagerC::Instance()->GetHwComponentInfo(componentId, state, description) &&
           state == SysManagerC::kHwComponentWorking;
}

// The updater's error screen takes the list as one argument: no line feeds, no blanks, no trailing comma.
std::wstring asOneArgument(std::wstring list)
{
    for (auto& c : list) {
        if (c == L'\n') c = L',';
        if (c == L' ') c = L'#';
    }
    if (!list.empty()) list.pop_back();
    return list;
}

}  // namespace

bool isHwErrorDetected(bool usbUpdate)
{
    WriteLog("[HW Status] *****************************");
    // Without the write filter's state the device counts as a customer's, whose start must go on.
    bool filterActive = true;
    if (!SysManagerC::Instance()->GetUWFilter(filterActive)) WriteLog("[HW Status] [ERROR]: Get UWF status failed.");
    const bool productionOrServiceMode = !filterActive;
    if (productionOrServiceMode) WriteLog("[HW Status] Device is in Production/Service Mode.");
    const bool moraEthernetReady = componentReady(SysManagerC::kHwComponentMoraEthernet);
    const bool lemoEthernetReady = componentReady(SysManagerC::kHwComponentLemoEthernet);
    const bool wlanReady = componentReady(SysManagerC::kHwComponentWlan);
    const bool quilloReady = componentReady(SysManagerC::kHwComponentDma);
    const bool customBiosReady = enableSpbDevices();
    // An RTC whose state cannot be read keeps the flag as it was; one that lost its data is not configured.
    bool rtcConfigured = true;
    const int rtcStatus = SPB_getRtcStatus();
    if (rtcStatus != spb::kRtcFailure) rtcConfigured = rtcStatus == spb::kRtcOk;
    const bool moraUartReady = moraUartReadyFlag();

    const EFIHwStatus efi = queryEfiHwStatus();

    bool failed = false;
    if (usbUpdate) {
        failed = !lemoEthernetReady || !wlanReady;
    } else {
        failed = !(quilloReady && customBiosReady && rtcConfigured && moraEthernetReady && lemoEthernetReady &&
                   wlanReady && moraUartReady && efi.hpsReady && efi.fpgaReady && efi.teloReady);
    }

    std::vector<ComponentC> components{
        {L"FPGA Ready\t:", efi.fpgaReady},         {L"MORA (HPS) Ready\t:", efi.hpsReady},
        {L"TELO (S5) Ready\t:", efi.teloReady},    {L"ETH MORA Ready\t:", moraEthernetReady},
        {L"ETH Lemo Ready\t:", lemoEthernetReady}, {L"WLAN Ready\t:", wlanReady},
        {L"UART MORA Ready\t:", moraUartReady},
    };
    if (!usbUpdate) {
        components.push_back({L"Quillo Ready\t:", quilloReady});
        components.push_back({L"Vexar Bios flashed\t:", customBiosReady});
        components.push_back({L"RTC Configured\t:", rtcConfigured});
    }
    std::wstring list;
    for (const auto& component : components) {
        const std::wstring line = std::wstring(component.label) + (component.ready ? L" OK" : L" NOT OK");
        WriteLog("[HW Status] %ls", line.c_str());
        list += line + L"\n";
    }
    const std::wstring componentList = asOneArgument(list);

    // In customer mode a failed component is reported and the start goes on: the instrument may still
    // scan. In production and service mode the technician sees the failed components on the updater's
    // screen instead of an instrument that seems to work.
    bool stop = false;
    if (failed) {
        WriteLog("[ERROR] Result Hardware Components Check FAILED!");
        if (productionOrServiceMode) {
            WriteLog("[INFO] Device is in Production/Service Mode. Starting FwUpdater to show ErrorMsg!");
            SysManagerC::Instance()->showFirmwareUpdaterErrorMsg(componentList);
            stop = true;
        }
    } else {
        WriteLog("[INFO] Result Hardware Components Check SUCCESSFULLY");
    }
    WriteLog("[HW Status] *****************************");
    return stop;
}

}  // namespace halvern
