#pragma once
// "BASIC:<keyword>": ping, versions, reboot, close, update and the hardware status.
#include "efi/EFIServiceIPCMessageI.h"

// Ids of the basic table.
enum EFIBasicCommandId : int {
    EFI_BASIC_PING = 0,
    EFI_BASIC_FWVERSION = 1,
    EFI_BASIC_SERVICEVERSION = 2,
    EFI_BASIC_REBOOT = 3,
    EFI_BASIC_CLOSE = 4,
    EFI_BASIC_UPDATE_LDR = 5,
    EFI_BASIC_UPDATE_FW = 6,
    EFI_BASIC_HWSTATUS = 7,
};

class EFIServiceIPCBasicCommand : public EFIServiceIPCMessageI {
public:
    explicit EFIServiceIPCBasicCommand(int commandId);
    int GetCommandId() const { return m_commandId; }

private:
    void NotFound(int commandId, const char* reason);
    int m_commandId;
};

// What the hardware status reply says about the sensor board's parts.
struct EFIHwStatus {
    bool fpgaReady = false;
    bool hpsReady = false;
    bool teloReady = false;
};

// Reads the reply of "BASIC:HWSTATUS"; false (logged) when the message is another command or the reply
// is not of the expected form.
bool parseHwStatus(const EFIServiceIPCMessageI& message, EFIHwStatus& status);
