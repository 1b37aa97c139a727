// The start-up steps of subsystems that this build does not contain yet. They log nothing: no work is
// done, so nothing may claim it.
#include "app/StartUpSteps.h"

namespace halvern {

void HwRelatedInit() {}
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
bool isHwErrorDetected(bool)
{
    return false;
}
void HandleProductionModeFlagFile() {}
void StartNetworkObserver() {}
void InitWlanAccessPoint() {}
void StartDriverEventSink() {}
void StopDriverEventSink() {}
void LaunchZentorApplication() {}
void VerifyMoraEthernet() {}

}  // namespace halvern
