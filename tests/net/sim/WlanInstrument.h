#pragma once
// What the WLAN tests need of a fresh instrument: the driver tools' stand-ins, the I2C devices (served on
// demand, so that a test can also go without them) and sleeps that pass at once while the tools run in
// real time.
#include <gtest/gtest.h>

#include <string>

#include "platform/Clock.h"
#include "platform/sim/SimRoot.h"
#include "sim/standin/StandInInstall.h"
#include "spb/SpbApi.h"
#include "support/TestEnvironment.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {

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
