// Addresses as the SEP server's allowed ranges and halvernctl's --host see them.
#include <gtest/gtest.h>

#include "framework/NetTcpIpServerC.h"
#include "platform/Socket.h"

namespace halvern::test {
namespace {

TEST(SocketAddressTest, ParsesOnlyDottedQuads)
{
    std::uint32_t address = 0;
    ASSERT_TRUE(platform::parseIpv4("192.168.137.1", address));
    EXPECT_EQ(address, 0xC0A88901u);
    EXPECT_EQ(platform::formatIpv4(address), "192.168.137.1");
    for (const char* bad : {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1..2.3", "a.b.c.d", "1.2.3.4 ", "", "1234.1.1.1"})
        EXPECT_FALSE(platform::parseIpv4(bad, address)) << bad;
}

TEST(SocketAddressTest, DefaultRangesAreLoopbackSensorBoardLinkAndHostedNetwork)
{
    const auto ranges = BSS::NET::defaultAllowedRanges();
    const auto allowed = [&](const char* text) {
        std::uint32_t address = 0;
        EXPECT_TRUE(platform::parseIpv4(text, address)) << text;
        for (const auto& range : ranges)
            if (range.contains(address)) return true;
        return false;
    };
    for (const char* inside : {"127.0.0.1", "127.255.0.3", "192.168.2.1", "192.168.2.254", "192.168.137.1"})
        EXPECT_TRUE(allowed(inside)) << inside;
    for (const char* outside : {"192.168.3.1", "192.168.1.255", "192.168.136.1", "10.0.0.1", "0.0.0.0", "128.0.0.1"})
        EXPECT_FALSE(allowed(outside)) << outside;
}

}  // namespace
}  // namespace halvern::test
