#pragma once
// The channels the WLAN driver offers the access point, asked of the driver's own device.
#include <vector>

#include "net/WlanChanSelector.h"

namespace halvern::net {

// The card's device found among the DOS device names and asked for its channel list; 2.4 GHz channels get
// the widths their place in the band allows. False after the failure was logged.
bool DevGetChanList(std::vector<WlanAllowedChannelT>& channels);

}  // namespace halvern::net
