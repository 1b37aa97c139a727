#pragma once
// What the simulated WLAN service's parts share: which client handles are open, and whether the module's
// interface is there (powered by the IO expander and offered by its driver).
#include "platform/Wlan.h"

namespace platform::simwlan {

bool validClient(WlanHandleValue handle);
bool interfacePresent();

}  // namespace platform::simwlan
