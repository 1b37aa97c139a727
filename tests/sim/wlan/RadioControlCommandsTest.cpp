// The radio environment as a person or a test changes it through halvern-sim's control commands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanRadioEnvironment.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/RadioControlCommands.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class RadioControlCommandsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addRadioControlCommands(m_commands);
        // Another model's verb under the same first word must not take the radio's commands.
        m_commands.add("wlan", [](const std::vector<std::string>&) { return std::string("OK other"); });
    }
    sim::ControlCommandsC m_commands;
};

TEST_F(RadioControlCommandsTest, ARecordedEnvironmentIsLoadedChangedAndListed)
{
    const std::string file = std::string(HALVERN_RADIO_DATA_DIR) + "/crowded-5ghz.txt";
    EXPECT_THAT(m_commands.execute("wlan env load " + file), StartsWith("OK 9 networks: 5180 Zentor-10001; "));
    const std::string added = m_commands.execute("wlan network add 5745 Outdoor ht40-");
    EXPECT_THAT(added, StartsWith("OK 10 networks"));
    EXPECT_EQ(m_commands.execute("wlan networks"), added);
    EXPECT_THAT(m_commands.execute("wlan networks"), HasSubstr("; 5745 Outdoor ht40-"));
    EXPECT_THAT(m_commands.execute("wlan network remove Booth-3"), StartsWith("OK 9 networks"));
    EXPECT_EQ(m_commands.execute("wlan network remove Booth-3"), "ERROR no network named Booth-3");

    std::vector<platform::sim::SimulatedNetworkT> networks;
    std::string error;
    ASSERT_TRUE(platform::sim::loadRadioEnvironment(platform::sim::root(), networks, error)) << error;
    ASSERT_EQ(networks.size(), 9u);
    EXPECT_EQ(networks.back().name, "Outdoor");
    EXPECT_EQ(networks.back().htOffset, 3);

    EXPECT_EQ(m_commands.execute("wlan env clear"), "OK 0 networks");
    EXPECT_EQ(m_commands.execute("wlan scan delay never"), "OK scans never complete");
    EXPECT_FALSE(platform::sim::loadScanDelay(platform::sim::root()).has_value());
    EXPECT_EQ(m_commands.execute("wlan other verb"), "OK other");
}

TEST_F(RadioControlCommandsTest, BadInputChangesNothing)
{
    ASSERT_THAT(m_commands.execute("wlan network add 2412 Cafe"), StartsWith("OK 1 network"));
    EXPECT_THAT(m_commands.execute("wlan network add 99 Low"), StartsWith("ERROR bad frequency"));
    EXPECT_THAT(m_commands.execute("wlan network add 5180 Wide ht80"), StartsWith("ERROR unknown option"));
    EXPECT_THAT(m_commands.execute("wlan env load /nonexistent/radio.txt"), StartsWith("ERROR cannot read"));
    const std::string broken = platform::sim::root() + "/broken.txt";
    std::ofstream(broken) << "2412 fine\nnonsense\n";
    EXPECT_THAT(m_commands.execute("wlan env load " + broken), HasSubstr("line 2: bad frequency"));
    EXPECT_THAT(m_commands.execute("wlan scan delay soon"), StartsWith("ERROR usage"));
    EXPECT_EQ(m_commands.execute("wlan networks"), "OK 1 network: 2412 Cafe");
}

}  // namespace
}  // namespace halvern::test
