// Mode strings as the system's parser reads them: the simulated one must read them as Windows does.
#include <gtest/gtest.h>

#include "platform/Serial.h"

namespace halvern::test {
namespace {

TEST(SerialModeTest, ModeStringsSetTheLine)
{
    platform::CommStateT state;
    ASSERT_TRUE(platform::buildCommDcb(L"115200,n,8,1", state));
    EXPECT_EQ(state.baudRate, 115200u);
    EXPECT_EQ(state.byteSize, 8);
    EXPECT_EQ(state.parity, platform::kNoParity);
    EXPECT_EQ(state.stopBits, platform::kOneStopBit);

    ASSERT_TRUE(platform::buildCommDcb(L"9600,e,7,2", state));
    EXPECT_EQ(state.baudRate, 9600u);
    EXPECT_EQ(state.byteSize, 7);
    EXPECT_EQ(state.parity, platform::kEvenParity);
    EXPECT_EQ(state.stopBits, platform::kTwoStopBits);

    ASSERT_TRUE(platform::buildCommDcb(L"baud=19200 parity=o data=8 stop=1", state));
    EXPECT_EQ(state.baudRate, 19200u);
    EXPECT_EQ(state.parity, platform::kOddParity);

    platform::CommStateT untouched = state;
    EXPECT_FALSE(platform::buildCommDcb(L"fast,n,8,1", state));
    EXPECT_EQ(state.baudRate, untouched.baudRate);
}

}  // namespace
}  // namespace halvern::test
