#pragma once
// What the WLAN tests need of a fresh instrument: the driver tools' stand-ins, the I2C devices (served on
// demand, so that a test can also go without them) and sleeps that pass at once while the tools run in
// real time.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "sim/standin/StandInInstall.h"
#include "spb/SpbApi.h"
#include "support/TestEnvironment.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {

// The WLAN module's driver settings, where the driver reads its country and default channel.
constexpr const char* kWlanDriverKey =
    "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\0003";

inline std::string wlanDriverValue(const char* name)
{
    const auto value =
        platform::sim::readValue(platform::sim::keyFolder(platform::RegHive::LocalMachine, kWlanDriverKey), name);
    return value ? value->data : "<missing>";
}

// The arguments of each device-tool run, in order.
inline std::vector<std::string> deviceToolRuns()
{
    std::ifstream in(platform::sim::root() + "/sim/apps/log");
    std::vector<std::string> runs;
    for (std::string line; std::getline(in, line);)
        if (line.rfind("devcon arguments ", 0) == 0) runs.push_back(line.substr(17));
    return runs;
}

class WlanInstrumentC {
public:
    void setUp()
    {
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
        platform::setClock(&clock);
    }
    void tearDown()
    {
        if (i2c.started()) SPB_deinit();
        i2c.stop();
    }
    void serveDevices()
    {
        std::string error;
        ASSERT_TRUE(i2c.start(error)) << error;
    }

    SkippedSleepClockC clock;
    ServedI2cDevicesC i2c;
};

}  // namespace halvern::test
