#include "client/CtlHints.h"

#include <vector>

namespace SEP {
namespace {

struct HintT {
    std::vector<std::uint16_t> ids;  // empty: any command
    const char* textStart;           // the error text begins so ("" for any)
    const char* hint;
};

const std::vector<HintT>& hints()
{
    static const std::vector<HintT> list = {
        {{1002, 1064},
         "Internal error, failed to set WiFi AP configuration!",
         "the access point must be off to change its configuration: `halvernctl wlan set --off` first, or use "
         "`wlan set` which does it for you; an SSID has 1-32 characters and a password 8-63"},
        {{1003, 1065},
         "Internal error, failed to obtain WiFi AP configuration",
         "the WLAN module may be off: "
         "`halvernctl wlan-power on`"},
        {{1016},
         "Internal error, failed to set WiFi AP configuration!",
         "the WLAN driver does not know this country code: two upper-case letters such as DE, CH or US"},
        {{1017},
         "Internal error, failed to obtain WiFi AP configuration",
         "the WLAN driver's country setting cannot be read: is the WLAN module on (`halvernctl wlan-power on`)?"},
        {{1021},
         "Invalid set of the instrument's name.",
         "a name has 1-15 letters, digits and hyphens, not digits only and no hyphen at either end"},
        {{1054},
         "Failed to set Windows Time information.",
         "the zone must be one of the instrument's: `halvernctl time zones [FILTER]` lists them"},
        {{1011, 1035},
         "General failure",
         "the image must exist at that path on the instrument, and no other update may be running"},
        {{1057},
         "General failure",
         "a channel selection may be running already (its result comes as the wlan-channel-selected event), or "
         "the WLAN module is off"},
        {{1058}, "General failure", "is a USB stick plugged in? `halvernctl usb count` lists the devices"},
        {{1038}, "General failure", "the index is beyond the list: `halvernctl usb count` tells its length"},
        {{1051}, "General failure", "component ids are 1 WLAN, 2 MORA Ethernet, 3 Lemo Ethernet, 4 Quillo DMA"},
        {{1025},
         "General failure",
         "the program was not found or could not run; on the sensor board (--mora) a non-zero status is an error"},
        {{1018, 1019}, "Failed to access RTC", "the real-time clock on the I2C bus did not answer"},
        {{},
         "Internal error, failed to communicate with EFI!",
         "the power controller's EFI service did not answer: it may be stopped or restarting"},
        {{}, "Failed to decode SEP request!", "the request does not match the command's record"},
        {{}, "Received string is not NULL terminated", "a text is longer than its field on the instrument"},
        {{}, "Value out of range", "a value lies outside what the instrument accepts"},
    };
    return list;
}

}  // namespace

std::string hintFor(std::uint16_t id, const std::string& errorText)
{
    for (const auto& hint : hints()) {
        bool forCommand = hint.ids.empty();
        for (std::uint16_t listed : hint.ids)
            forCommand = forCommand || listed == id;
        if (forCommand && errorText.rfind(hint.textStart, 0) == 0) return hint.hint;
    }
    return {};
}

}  // namespace SEP
