#pragma once
// "BAT:<battery>:<item>": status, charge, voltage or temperature of one of the two batteries.
#include <cstdint>

#include "efi/EFIServiceIPCMessageI.h"

enum EFIBatteryId : int { EFI_BATTERY_L = 0, EFI_BATTERY_H = 1 };
enum EFIBatteryItemId : int {
    EFI_BATTERY_STATUS = 0,
    EFI_BATTERY_RSOC = 1,
    EFI_BATTERY_VOLTAGE = 2,
    EFI_BATTERY_TEMP = 3,
};

class EFIServiceIPCBatteryCommand : public EFIServiceIPCMessageI {
public:
    EFIServiceIPCBatteryCommand(int batteryId, int itemId);
    bool ParseReply() override;
    std::int32_t GetValue() const { return m_value; }

private:
    void NotFound(int batteryId, int itemId, const char* reason);
    std::int32_t m_value = 0;
};
