#pragma once
// "LED:<red>:<green>:<blue>": the mode of each colour of the power LED.
#include <string>

#include "efi/EFIServiceIPCMessageI.h"

// Ids of the LED mode table. 5 is listed twice (BLINK and BLINK_2_5HZ); the first entry wins.
enum EFILedModeId : int {
    EFI_LED_OFF = 0,
    EFI_LED_ON = 3,
    EFI_LED_BLINK = 5,
    EFI_LED_BLINK_FAST_1_66HZ = 9,
    EFI_LED_BLINK_1_25HZ = 10,
    EFI_LED_BLINK_FAST_1_25HZ = 13,
    EFI_LED_BLINK_0_833HZ = 15,
};

class EFIServiceIPCLEDCommand : public EFIServiceIPCMessageI {
public:
    EFIServiceIPCLEDCommand(int red, int green, int blue);

private:
    void NotFound(const std::wstring (&keywords)[3], const char* reason);
};
