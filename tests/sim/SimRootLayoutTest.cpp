// A sim root that is used again is the same instrument started again: what a Windows boot keeps stays, what
// it loses is gone.
#include <gtest/gtest.h>

#include <string>

#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRoot.h"
#include "sim/SimRootLayout.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using SimRootLayoutTest = InstrumentTest;

TEST_F(SimRootLayoutTest, AnAccessPointLeftOnByTheLastRunIsOffAfterTheNextStartItsSettingsKept)
{
    const std::string root = platform::sim::root();
    ASSERT_TRUE(platform::sim::updateHostedNetwork(root, [](platform::sim::SimHostedNetworkS& network) {
        network.state = "active";
        network.starts = 3;
    }));
    std::string error;
    ASSERT_TRUE(sim::createSimRootLayout(root, error)) << error;
    const platform::sim::SimHostedNetworkS network = platform::sim::readHostedNetwork(root);
    EXPECT_EQ(network.state, "idle");
    EXPECT_EQ(network.starts, 3u);

    // A service that offers no hosted network is the hardware's state, not the session's.
    ASSERT_TRUE(platform::sim::updateHostedNetwork(
        root, [](platform::sim::SimHostedNetworkS& changed) { changed.state = "unavailable"; }));
    ASSERT_TRUE(sim::createSimRootLayout(root, error)) << error;
    EXPECT_EQ(platform::sim::readHostedNetwork(root).state, "unavailable");
}

}  // namespace
}  // namespace halvern::test
