// The simulated instrument never reaches a network outside this machine's loopback, whatever a setting
// or a test left in place of the sensor board's address.
#include <gtest/gtest.h>

#include "links/TelnetConnection.h"
#include "platform/Socket.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class LoopbackOnlyTest : public InstrumentTest {};

TEST_F(LoopbackOnlyTest, AddressesOutsideLoopbackAreUnreachableAtOnce)
{
    std::uint32_t board = 0;
    ASSERT_TRUE(platform::parseIpv4(links::kMoraTelnetHost, board));
    for (std::uint32_t address : {board, 0x08080808u, 0x0A000001u}) {
        const platform::UniqueSocket socket = platform::createTcpSocket();
        ASSERT_TRUE(socket);
        ASSERT_TRUE(platform::setNonBlocking(socket.get(), true));
        EXPECT_FALSE(platform::connectSocket(socket.get(), address, 23)) << platform::formatIpv4(address);
        EXPECT_EQ(platform::lastError(), platform::kWsaENetworkUnreachable) << platform::formatIpv4(address);
    }
}

TEST_F(LoopbackOnlyTest, ATelnetCommandWithTheBoardsFixedAddressFailsWithoutLeavingTheMachine)
{
    links::setTelnetEndpoint({});
    links::TelnetConnection connection;
    EXPECT_FALSE(connection.connect(100));
}

}  // namespace
}  // namespace halvern::test
