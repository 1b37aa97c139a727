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

}  // namespace

bool isHwErrorDetected(bool usbUpdate)
{
    WriteLog("[HW Status] *****************************");
    // The write filter's state and the hardware component query belong to subsystems this
    // build does not contain: their components count as not ready, never as checked. Without the write
    // filter's state the device is taken to be in customer mode.
    const bool moraEthernetReady = false;
    const bool lemoEthernetReady = false;
    const bool wlanReady = false;
    const bool quilloReady = false;
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
    for (const auto& component : components) {
        const std::wstring line = std::wstring(component.label) + (component.ready ? L" OK" : L" NOT OK");
        WriteLog("[HW Status] %ls", line.c_str());
    }

    // In customer mode a failed component is reported and the start goes on; the updater's error display
    // of production and service mode comes with the write filter's state.
    if (failed)
        WriteLog("[ERROR] Result Hardware Components Check FAILED!");
    else
        WriteLog("[INFO] Result Hardware Components Check SUCCESSFULLY");
    WriteLog("[HW Status] *****************************");
    return false;
}

}  // namespace halvern
