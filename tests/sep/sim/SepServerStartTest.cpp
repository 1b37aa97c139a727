// The start-up's SEP step on the simulation platform: both ports come up in order and answer, a port that
// cannot be had fails the start, and the stop closes the clients.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "app/StartUpSteps.h"
#include "client/SepClientC.h"
#include "sep/server/SepServer.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class SepServerStartTest : public InstrumentTest {
protected:
    void TearDown() override
    {
        StopSepServer();
        setenv("HALVERN_SEP_PORT_55558", "0", 1);
        InstrumentTest::TearDown();
    }
    static std::vector<std::uint16_t> runningPorts()
    {
        std::vector<std::uint16_t> ports;
        forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
            ports.push_back(server.port());
            return true;
        });
        return ports;
    }
};

TEST_F(SepServerStartTest, StartsBothPortsInOrderAndStopClosesTheirClients)
{
    ASSERT_TRUE(StartSepServer());
    const auto ports = runningPorts();
    ASSERT_EQ(ports.size(), 2u);
    EXPECT_TRUE(containsInOrder(logMessages(), {"SOFTWARE.IMG check done, starting SEP.",
                                                "Started SEP server on port " + std::to_string(ports[0]),
                                                "Started SEP server on port " + std::to_string(ports[1])}));
    std::vector<std::unique_ptr<SEP::SepClientC>> clients;
    for (std::uint16_t port : ports) {
        clients.push_back(std::make_unique<SEP::SepClientC>());
        ASSERT_TRUE(clients.back()->connect("127.0.0.1", port));
    }
    StopSepServer();
    EXPECT_TRUE(runningPorts().empty());
    for (auto& client : clients) {
        std::vector<std::uint8_t> frame;
        EXPECT_FALSE(client->receiveFrame(frame, 10000));
        EXPECT_TRUE(client->closed());
    }
}

TEST_F(SepServerStartTest, APortInUseFailsTheStartAndLeavesNoServerRunning)
{
    ASSERT_TRUE(StartSepServer());
    const std::uint16_t taken = runningPorts().front();
    setenv("HALVERN_SEP_PORT_55558", std::to_string(taken).c_str(), 1);
    // The first start still runs, so the second one's first port is free and its second is not.
    EXPECT_FALSE(StartSepServer());
    EXPECT_TRUE(runningPorts().empty());
    const auto messages = logMessages();
    EXPECT_GE(findMessage(messages, "Could not start port!"), 0);
    EXPECT_GE(findMessage(messages, "ERROR Halvern [wWinMain] [ERROR]: Failed to initialize SEP server!"), 0);
}

}  // namespace
}  // namespace halvern::test
