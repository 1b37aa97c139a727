#include "spb/SpbEnable.h"

#include "app/Log.h"
#include "spb/SpbDevices.h"

namespace halvern {

namespace {

struct SpbStartUpStateS {
    bool enabled = false;
    bool devicesOpened = false;
    bool wlanPowered = false;
};

SpbStartUpStateS g_state;

}  // namespace

bool enableSpbDevices()
{
    std::lock_guard<std::mutex> guard(spb::spbMutex());
    if (g_state.enabled) return g_state.devicesOpened;
    g_state.enabled = true;
    g_state.devicesOpened = spb::openDevices();
    bool wlanPowered = false;
    const bool wlanRead = g_state.devicesOpened && spb::getDevPower(spb::kWlanPowerDevice, wlanPowered);
    g_state.wlanPowered = wlanRead && wlanPowered;
    if (!g_state.devicesOpened || !wlanRead) WriteLog("Halvern [%s] [ERROR]: enableSpbDevices Failed", "HwRelatedInit");
    WriteLog("enableSpbDevices done!");
    return g_state.devicesOpened;
}

bool wlanPoweredAtPowerOn()
{
    std::lock_guard<std::mutex> guard(spb::spbMutex());
    return g_state.wlanPowered;
}

void forgetSpbDevices()
{
    std::lock_guard<std::mutex> guard(spb::spbMutex());
    if (g_state.devicesOpened) spb::closeDevices();
    g_state = SpbStartUpStateS{};
}

}  // namespace halvern
