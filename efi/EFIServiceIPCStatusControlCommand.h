#pragma once
// "<item>:GET" and "<item>:SET:<hex>": the controller's status and control registers.
#include <cstdint>

#include "efi/EFIServiceIPCMessageI.h"

enum EFIStatusControlItemId : int {
    EFI_SC_PWRSELECT = 0,
    EFI_SC_PWRSUPPLY = 1,
    EFI_SC_PWRSOURCE = 2,
    EFI_SC_SYSTEM = 3,
    EFI_SC_WAKEUPTIMER = 4,
    EFI_SC_SMBUS = 5,
    EFI_SC_AUTORUN = 6,
};
enum EFIStatusControlAccess : int { EFI_SC_GET = 0, EFI_SC_SET = 1 };

class EFIServiceIPCStatusControlCommand : public EFIServiceIPCMessageI {
public:
    // `access` 1 sets `value`; any other access reads, and only access 0 takes the value from the reply.
    EFIServiceIPCStatusControlCommand(int itemId, int access, std::int32_t value);
    bool ParseReply() override;
    std::int32_t GetValue() const { return m_value; }

private:
    void NotFound(int itemId, bool set, const char* reason);
    int m_access;
    std::int32_t m_value;
};
