#pragma once
// Start-up steps that belong to the hardware links, the update and mode handling, the command server, the
// network and the application launcher. Each answers what the sequence needs to decide how to go on; a
// step whose subsystem is not part of this build does nothing and lets the sequence go on.
#include <vector>

#include "platform/Window.h"
#include "sep/server/SepServer.h"

namespace halvern {

enum class StepVerdict { Continue, EndSuccess, EndFailure };

// Whether the sensor board's console answered at start-up; the hardware check reports it.
bool& moraUartReadyFlag();

void HwRelatedInit();
void CheckTouchState();
void RepairSerialMouseService();
void EnsureWlanCountryCode();
void RepairSsdWriteCache();
void DisablePublicFirewall();
StepVerdict RunPendingUpdate();
// A USB stick on F: whose volume label is exactly "WIM" carries production images.
bool IsProductionUsbDrive();
// With updates disabled ("-noupdate") neither the stick is looked at nor the sensor board's Ethernet waited for.
StepVerdict CheckUsbUpdate(bool updatesEnabled);
void DeletePreviousFirmwareFile();
bool isHwErrorDetected(bool usbUpdate);
// True when the flag file of an earlier switch was found and production mode is now complete: the network
// observer then stays off.
bool HandleProductionModeFlagFile();
void StartNetworkObserver();
void InitWlanAccessPoint();
void StartDriverEventSink();
void StopDriverEventSink();
void LaunchZentorApplication();
void VerifyMoraEthernet();

}  // namespace halvern
