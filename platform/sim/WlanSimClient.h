#pragma once
// What the simulated WLAN service's parts share: which client handles are open, whether the module's
// interface is there (powered by the IO expander and offered by its driver), and the end of a client's
// notifications when its handle closes.
#include "platform/Wlan.h"

namespace platform::simwlan {

bool validClient(WlanHandleValue handle);
bool interfacePresent();
// The GUID the service reports for the module's interface.
WlanGuid interfaceGuid();
// Drops the client's registration and pending scans and waits for a callback of it that runs (unless the
// callback itself closes the handle).
void forgetNotifications(WlanHandleValue handle);

}  // namespace platform::simwlan
