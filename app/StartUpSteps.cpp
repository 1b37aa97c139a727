// Start-up steps that belong to other subsystems. A step whose subsystem this build does not contain yet
// does nothing and logs nothing: no work is done, so nothing may claim it.
#include "app/StartUpSteps.h"

#include "app/Log.h"
#include "platform/WinError.h"
#include "spb/SpbEnable.h"
#include "sysmanager/SysManagerC.h"

namespace halvern {

void HwRelatedInit()
{
    // Without the EFI link the instrument still starts: commands then fail one by one.
    if (!SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication())
        WriteLog("Halvern [%s] [ERROR]: Failed to initialize communication with EFI", "HwRelatedInit");
    enableSpbDevices();
    SysManagerC* manager = SysManagerC::Instance();
    if (!manager->startW32TimeService())
        WriteLog("Halvern [%s] [ERROR]: failed to start Windows Time Service!", "HwRelatedInit");
    if (!manager->GetRtcSystemTime()) WriteLog("Halvern [%s] [ERROR]: SetRtcSystemTime Failed", "HwRelatedInit");
}
void CheckTouchState() {}
void RepairSerialMouseService() {}
void EnsureWlanCountryCode() {}
void RepairSsdWriteCache() {}
void DisablePublicFirewall() {}
StepVerdict RunPendingUpdate()
{
    return StepVerdict::Continue;
}
StepVerdict CheckUsbUpdate(bool)
{
    return StepVerdict::Continue;
}
void DeletePreviousFirmwareFile() {}
void HandleProductionModeFlagFile() {}
void StartNetworkObserver() {}
void InitWlanAccessPoint() {}
void StartDriverEventSink() {}
void StopDriverEventSink() {}
void LaunchZentorApplication()
{
    platform::setLastError(0);
    if (SysManagerC::Instance()->StartComApplication()) {
        WriteLog("Sucessufully launched Zentor Application");
    } else {
        WriteLog("Halvern [%s] [ERROR]: Launch Zentor Application failed (%d)", "wWinMain",
                 static_cast<int>(platform::lastError()));
    }
}
void VerifyMoraEthernet() {}

}  // namespace halvern
