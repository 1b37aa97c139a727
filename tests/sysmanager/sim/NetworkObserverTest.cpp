// The network observer against the simulated instrument's route table and its route and ipconfig tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/sim/SimRoot.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"
#include "support/Eventually.h"

namespace halvern::test {
namespace {

std::vector<std::string> lines(const std::string& relative)
{
    std::ifstream in(platform::sim::root() + "/" + relative);
    std::vector<std::string> read;
    for (std::string line; std::getline(in, line);)
        read.push_back(line);
    return read;
}

bool hasDefaultRoute()
{
    for (const auto& route : lines("sim/network/routes"))
        if (route.rfind("0.0.0.0 ", 0) == 0) return true;
    return false;
}

void addDefaultRoute(const std::string& gateway)
{
    std::ofstream(platform::sim::root() + "/sim/network/routes", std::ios::app)
        << "0.0.0.0 0.0.0.0 " << gateway << " persistent\n";
}

class NetworkObserverTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
};

TEST_F(NetworkObserverTest, AGatewayIsRemovedAtTheStartAndWheneverTheRouteTableChanges)
{
    addDefaultRoute("192.168.2.254");
    SysManagerC* manager = SysManagerC::Instance();
    ASSERT_TRUE(manager->startNetworkObserver());
    EXPECT_TRUE(manager->startNetworkObserver());
    EXPECT_TRUE(eventually([] { return !hasDefaultRoute(); }));
    // The observer asks for the next change once its removal has ended; a change before that is not one
    // it hears of, on the instrument as here.
    EXPECT_TRUE(eventually(
        [] { return containsInOrder(logMessages(), {"[SECURITY] Network gateways successfully removed."}); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    addDefaultRoute("10.0.0.1");
    EXPECT_TRUE(eventually([] { return !hasDefaultRoute(); })) << "a gateway that comes back is removed again";
    EXPECT_THAT(lines("sim/network/routes"), ::testing::Contains("192.168.2.0 255.255.255.0 On-link"))
        << "the instrument's own links stay";
    EXPECT_TRUE(manager->stopNetworkObserver(false));

    addDefaultRoute("10.0.0.2");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(hasDefaultRoute()) << "a stopped observer leaves the table alone";
    const auto messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "Network observer already running."), 1);
    EXPECT_GE(std::count(messages.begin(), messages.end(), "[SECURITY] Network gateways successfully removed."), 2);
    EXPECT_TRUE(containsInOrder(messages, {"starting network observer.", "Network observer successfully started.",
                                           "stopping network observer.", "Network observer successfully stopped."}));
}

TEST_F(NetworkObserverTest, StoppingWithRenewReleasesThenRenewsTheLeasesAfterTheObserverEnded)
{
    SysManagerC* manager = SysManagerC::Instance();
    EXPECT_TRUE(manager->stopNetworkObserver(true)) << "nothing to stop";
    EXPECT_TRUE(lines("sim/network/leases").empty()) << "and nothing renewed";
    ASSERT_TRUE(manager->startNetworkObserver());
    EXPECT_TRUE(manager->stopNetworkObserver(true));
    EXPECT_THAT(lines("sim/network/leases"), ::testing::ElementsAre("release", "renew"));
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"network observer not running.", "starting network observer.",
                                        "stopping network observer.", "Network observer successfully stopped."}));
}

}  // namespace
}  // namespace halvern::test
