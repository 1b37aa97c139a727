// halvern-sim's "wlan" commands for the driver's indications, as a person or a script uses them.
#include <gtest/gtest.h>

#include <string>

#include "platform/WlanDriver.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/DriverEventControlCommands.h"
#include "sim/wlan/NdisIndicationServerC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class DriverEventControlCommandsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(m_server.start(platform::sim::root(), error)) << error;
        sim::addDriverEventControlCommands(m_commands, m_server);
        m_commands.add("wlan", [](const std::vector<std::string>& arguments) {
            return "OK other wlan " + std::to_string(arguments.size());
        });
    }
    void TearDown() override
    {
        m_server.stop();
        InstrumentTest::TearDown();
    }

    sim::ControlCommandsC m_commands;
    sim::NdisIndicationServerC m_server;
};

TEST_F(DriverEventControlCommandsTest, IndicationsReachTheSubscriberWithTheirPayload)
{
    std::mutex lock;
    std::vector<platform::NdisEventT> received;
    platform::NdisEventSourceC source;
    ASSERT_EQ(source
                  .start([&](const platform::NdisEventT& event) {
                      std::lock_guard<std::mutex> guard(lock);
                      received.push_back(event);
                  })
                  .failedStep,
              platform::NdisSubscribeStepE::None);

    EXPECT_EQ(m_commands.execute("wlan cac start 60000"), "OK START_OF_CAC sent to 1 subscriber(s)");
    EXPECT_EQ(m_commands.execute("wlan media disconnect"), "OK media disconnect sent to 1 subscriber(s)");
    EXPECT_EQ(m_commands.execute("wlan indication 12 5"), "OK event 12 sent to 1 subscriber(s)");
    EXPECT_EQ(m_commands.execute("wlan radar"), "OK RADAR_DETECTED on channel 36 sent to 1 subscriber(s)");
    source.stop();

    std::lock_guard<std::mutex> guard(lock);
    ASSERT_EQ(received.size(), 4u);
    EXPECT_EQ(received[0].kind, platform::NdisEventKindE::MediaSpecificIndication);
    ASSERT_TRUE(received[0].hasIndication);
    const platform::WlanIndicationT cac = platform::decodeWlanIndication(received[0].indication);
    EXPECT_EQ(cac.eventCode, platform::kWlanEventStartOfCac);
    EXPECT_EQ(cac.cacTimeMs, 60000u);
    EXPECT_EQ(received[1].kind, platform::NdisEventKindE::MediaDisconnect);
    const platform::WlanIndicationT other = platform::decodeWlanIndication(received[2].indication);
    EXPECT_EQ(other.eventCode, 12u);
    EXPECT_EQ(other.port, 5u);
}

TEST_F(DriverEventControlCommandsTest, WithoutASubscriberOrWithWrongWordsTheCommandFails)
{
    EXPECT_EQ(m_commands.execute("wlan radar"), "ERROR no subscriber for MSNdis_StatusMediaSpecificIndicationEx");
    EXPECT_EQ(m_commands.execute("wlan media connect"), "ERROR no subscriber for MSNdis_StatusMediaConnect");
    EXPECT_EQ(m_commands.execute("wlan cac start soon"), "ERROR usage: wlan cac start MS | wlan cac done");
    EXPECT_EQ(m_commands.execute("wlan media up"), "ERROR usage: wlan media disconnect|connect");
    EXPECT_EQ(m_commands.execute("wlan radar now"), "ERROR usage: wlan radar");
    // Other "wlan" words still reach the handler of the first word alone.
    EXPECT_EQ(m_commands.execute("wlan scan 36 40"), "OK other wlan 3");
}

}  // namespace
}  // namespace halvern::test
