#pragma once
// The channel selection's settings are process-wide: each test starts from both bands with DFS channels
// allowed and leaves them so for the next.
#include <gtest/gtest.h>

#include "net/WlanChanSelector.h"
#include "support/TestEnvironment.h"

namespace halvern::test {

class WlanSelectionTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        resetSelectionSettings();
    }
    void TearDown() override
    {
        resetSelectionSettings();
        InstrumentTest::TearDown();
    }

private:
    static void resetSelectionSettings()
    {
        net::setWlanBandMode(net::HALVERN_WLAN_BOTH_BANDS);
        net::setDfsExclusion(false);
    }
};

}  // namespace halvern::test
