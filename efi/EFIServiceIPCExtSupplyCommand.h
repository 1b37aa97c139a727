#pragma once
// "EXT:<item>": the external supply's voltage, its peak and the battery voltage it sees.
#include "efi/EFIServiceIPCMessageI.h"

enum EFIExtSupplyItemId : int { EFI_EXT_VOLTAGE = 0, EFI_EXT_PEAK = 1, EFI_EXT_BAT_VOLT = 2 };

class EFIServiceIPCExtSupplyCommand : public EFIServiceIPCMessageI {
public:
    explicit EFIServiceIPCExtSupplyCommand(int itemId);

private:
    void NotFound(int itemId, const char* reason);
};
