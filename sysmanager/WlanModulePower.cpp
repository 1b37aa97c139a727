#include "sysmanager/WlanModulePower.h"

#include "spb/SpbApi.h"
#include "spb/SpbDevices.h"
#include "spb/SpbEnable.h"

namespace halvern {

bool readWlanModulePower(bool& on)
{
    on = false;
    return enableSpbDevices() && SPB_getDevPower(spb::kWlanPowerDevice, &on);
}

}  // namespace halvern
