// The SPB library without devices (as under Wine, where no SPB driver exists): what it refuses before it
// touches the bus, and how its diagnostics reach a registered logger.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "spb/SpbApi.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using ::testing::ElementsAre;

class SpbWithoutDevicesTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        ASSERT_EQ(SPB_RegisterLogger(&SpbWithoutDevicesTest::collect, &m_lines), 0);
    }
    void TearDown() override
    {
        SPB_UnRegisterLogger();
        InstrumentTest::TearDown();
    }
    static void collect(void* context, int level, const char* text)
    {
        static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(level) + " " + text);
    }
    std::vector<std::string> m_lines;
};

TEST_F(SpbWithoutDevicesTest, OpeningStopsAtTheFirstMissingDeviceAndSaysWhich)
{
    EXPECT_FALSE(SPB_init());
    EXPECT_THAT(m_lines, ElementsAre("3 SPB_I2cDev: failed to open handle! (2)\n", "3 Failed to open IO Expander!\n"));
    std::uint8_t value = 0;
    EXPECT_FALSE(SPB_readIOExpander(&value)) << "nothing was left open";
}

TEST_F(SpbWithoutDevicesTest, RequestsOutsideTheDevicesAreRefusedBeforeTheBus)
{
    EXPECT_FALSE(SPB_setDevPower(3, true));
    std::uint8_t buffer[16] = {};
    EXPECT_EQ(SPB_readEEPROMData(250, 10, buffer), 4u);
    EXPECT_EQ(SPB_writeEEPROMData(255, buffer, 2), 4u);
    EXPECT_FALSE(SPB_writeRTClock(0x80, buffer, 1));
    EXPECT_FALSE(SPB_readRTClock(0x10, 2, buffer));
    EXPECT_THAT(m_lines, ElementsAre("3 SPBCommImlp: reuqested to set power for invalid device: 0x3\n",
                                     "3 readEEPROMTraceId: Try to read data above address-offset 255!\n",
                                     "3 writeEEPROMTraceId: Try to write data above address-offset 255!\n",
                                     "3 Invalid offset requested for RT Clock: 0x80\n",
                                     "3 Invalid amount of data read from RT Clock (2 instead of 1)\n"));
}

TEST_F(SpbWithoutDevicesTest, MessagesArriveOneByOneAndAnUnregisteredLoggerHearsNothing)
{
    std::uint8_t buffer[1] = {};
    for (int i = 0; i < 40; ++i)
        SPB_readRTClock(0x10, 123456789, buffer);
    ASSERT_EQ(m_lines.size(), 40u);
    EXPECT_EQ(m_lines.back(), "3 Invalid amount of data read from RT Clock (123456789 instead of 1)\n");

    SPB_UnRegisterLogger();
    SPB_setDevPower(7, false);
    EXPECT_EQ(m_lines.size(), 40u);
}

TEST(SPBLoggerTest, AMessageLongerThanTheBufferIsCutAtItsEnd)
{
    std::vector<std::string> lines;
    spb::SPBLogger logger;
    logger.set(
        [](void* context, int, const char* text) { static_cast<std::vector<std::string>*>(context)->push_back(text); },
        &lines);
    std::ostream stream(&logger);
    stream << std::string(300, 'x') << std::endl;
    stream << "next" << std::endl;
    EXPECT_THAT(lines, ElementsAre(std::string(255, 'x'), "next\n"));
}

}  // namespace
}  // namespace halvern::test
