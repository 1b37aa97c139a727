// The driver's NDIS indications as the platform subscribes to them. Where nothing serves them (an
// instrument whose WLAN driver is not up) the subscription names the step that failed with its error and
// leaves nothing behind: a later try, once the driver serves them, subscribes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/WlanDriver.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/DriverEventControlCommands.h"
#include "sim/wlan/NdisIndicationServerC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class NdisEventsTest : public InstrumentTest {};

TEST_F(NdisEventsTest, WithoutTheDriversServiceTheConnectStepFailsWithItsErrorAndALaterTrySubscribes)
{
    std::atomic<int> delivered{0};
    const auto count = [&delivered](const platform::NdisEventT&) { ++delivered; };
    platform::NdisEventSourceC source;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const platform::NdisSubscribeResultT result = source.start(count);
        EXPECT_EQ(result.failedStep, platform::NdisSubscribeStepE::ConnectServer) << "attempt " << attempt;
        EXPECT_EQ(result.code, 2u) << "attempt " << attempt;
    }

    sim::NdisIndicationServerC server;
    std::string error;
    ASSERT_TRUE(server.start(platform::sim::root(), error)) << error;
    sim::ControlCommandsC commands;
    sim::addDriverEventControlCommands(commands, server);
    const platform::NdisSubscribeResultT result = source.start(count);
    EXPECT_EQ(result.failedStep, platform::NdisSubscribeStepE::None);
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(commands.execute("wlan media connect"), "OK media connect sent to 1 subscriber(s)");
    for (int wait = 0; wait < 500 && delivered.load() == 0; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(delivered.load(), 1);
    source.stop();
    server.stop();
}

}  // namespace
}  // namespace halvern::test
