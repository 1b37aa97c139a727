// Serial ports of the simulated instrument that no device model holds.
#include <gtest/gtest.h>

#include "platform/Serial.h"
#include "platform/WinError.h"
#include "tests/support/TestEnvironment.h"

namespace halvern::test {
namespace {

class SerialPortSimTest : public InstrumentTest {};

TEST_F(SerialPortSimTest, APortWithoutItsBoardIsNotFound)
{
    platform::UniqueHandle port = platform::openSerialPort(L"COM3");
    EXPECT_FALSE(port);
    EXPECT_EQ(platform::lastError(), platform::kErrorFileNotFound);
}

}  // namespace
}  // namespace halvern::test
