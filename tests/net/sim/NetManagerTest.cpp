// The network adapters' settings against the simulated instrument's device registry and adapter list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "net/NetManagerC.h"
#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using net::NetManagerC;

constexpr const char* kClass = "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002BE10318}";

std::string driverValue(const char* instance, const char* name)
{
    const auto value = platform::sim::readValue(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, std::string(kClass) + "\\" + instance), name);
    return value ? value->data : "<missing>";
}

void setDriverValue(const char* instance, const char* name, const std::string& data)
{
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, std::string(kClass) + "\\" + instance, name,
                                          {platform::kRegSz, data}));
}

void removeDriverValue(const char* instance, const char* name)
{
    const std::string folder =
        platform::sim::keyFolder(platform::RegHive::LocalMachine, std::string(kClass) + "\\" + instance);
    std::remove((folder + "/" + name).c_str());
}

using NetManagerTest = InstrumentTest;

TEST_F(NetManagerTest, TheWiredSpeedIsWrittenReadBackAndKeptWithinItsTable)
{
    EXPECT_EQ(NetManagerC::GetAdapterSpeed(), net::kSpeedAutoNegotiation);
    EXPECT_FALSE(NetManagerC::SetAdapterSpeed(6));
    EXPECT_FALSE(NetManagerC::SetAdapterSpeed(7));
    EXPECT_THAT(logMessages(),
                ::testing::ElementsAre("[NetManagerC::SetAdapterSpeed] [ERROR]: SpeedDuplex = out of range 6",
                                       "[NetManagerC::SetAdapterSpeed] [ERROR]: SpeedDuplex = out of range 6"));
    EXPECT_TRUE(NetManagerC::SetAdapterSpeed(net::kSpeedGigabitFullDuplex));
    EXPECT_EQ(driverValue("0001", "*SpeedDuplex"), "5");
    EXPECT_EQ(NetManagerC::GetAdapterSpeed(), 5);
    EXPECT_TRUE(NetManagerC::SetAdapterSpeed(5));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[NetManagerC::SetAdapterSpeed]: Set Adapter Speed is done!",
                                                "[NetManagerC::SetAdapterSpeed]: Adapter Speed already correct."}));
    std::string name;
    EXPECT_TRUE(NetManagerC::GetSpeedName(5, name));
    EXPECT_EQ(name, "1Gbps Full Duplex");
    EXPECT_FALSE(NetManagerC::GetSpeedName(7, name));

    // The class key must name the adapter exactly as its driver installed it.
    setDriverValue("0001", "DeviceInstanceID", "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1");
    EXPECT_EQ(NetManagerC::GetAdapterSpeed(), net::kSpeedNoValid);
}

TEST_F(NetManagerTest, AMissingOrChineseCountryLimitsTheBandwidthAndAMissingOneCanBeSet)
{
    std::string code;
    EXPECT_TRUE(NetManagerC::GetDrvCtryCode(code));
    EXPECT_EQ(code, "CH");
    EXPECT_FALSE(NetManagerC::IsBandwidthLimited());
    setDriverValue("0003", "ccode", "CN");
    EXPECT_TRUE(NetManagerC::IsBandwidthLimited());
    removeDriverValue("0003", "ccode");
    EXPECT_TRUE(NetManagerC::GetDrvCtryCode(code));
    EXPECT_EQ(code, "not present");
    EXPECT_TRUE(NetManagerC::IsBandwidthLimited());
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"[WLAN_INFO]: WLAN bandwidth limitation active. Country: CN",
                                        "[WLAN_INFO]: WLAN bandwidth limitation active. Country: not present"}));

    EXPECT_TRUE(NetManagerC::SetDrvCtryCode("DE"));
    EXPECT_EQ(driverValue("0003", "ccode"), "DE");
    EXPECT_FALSE(NetManagerC::IsBandwidthLimited());
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"The ccode key is set as 'not present'. This property will be enabled to be set!"}));
}

TEST_F(NetManagerTest, OnlyRealChannelsAndWidthsAreWrittenAndTheyReadBack)
{
    for (std::uint32_t refused : {0u, 15u, 33u, 197u})
        EXPECT_FALSE(NetManagerC::setDrvWlanChannel(refused, 0)) << refused;
    EXPECT_FALSE(NetManagerC::setDrvWlanChannel(36, 3));
    EXPECT_EQ(driverValue("0003", "ApChanNum"), "36") << "a refused channel changes nothing";
    for (std::uint32_t accepted : {14u, 34u, 165u, 196u}) {
        EXPECT_TRUE(NetManagerC::setDrvWlanChannel(accepted, 2)) << accepted;
        std::uint32_t channel = 0;
        std::uint32_t width = 9;
        ASSERT_TRUE(NetManagerC::getDrvWlanChannel(channel, width));
        EXPECT_EQ(channel, accepted);
        EXPECT_EQ(width, 2u);
    }
    EXPECT_EQ(driverValue("0003", "defaultApChannel"), "196");
    EXPECT_EQ(driverValue("0003", "ApChanExtOffset"), "2");

    setDriverValue("0003", "ApChanExtOffset", "7");
    std::uint32_t channel = 0;
    std::uint32_t width = 0;
    EXPECT_FALSE(NetManagerC::getDrvWlanChannel(channel, width));
    setDriverValue("0003", "ApChanNum", "36a");
    EXPECT_FALSE(NetManagerC::getDrvWlanChannel(channel, width));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[getDrvWlanChannel] [ERROR]: failed to parse WLAN channel width: 7",
                                                "[readRegistryKeyValue] [ERROR]: failed to convert 36a to digit"}));

    std::uint32_t band = 0;
    EXPECT_TRUE(NetManagerC::getDrvWlanBand(band));
    EXPECT_EQ(band, 2u);
    EXPECT_FALSE(NetManagerC::setDrvWlanBand(5));
    EXPECT_TRUE(NetManagerC::setDrvWlanBand(4));
    EXPECT_EQ(driverValue("0003", "NetBand"), "12");
}

TEST_F(NetManagerTest, InterfacesAreFoundByTheirDescriptionAndGiveTheirIpv4Addresses)
{
    std::string text;
    ASSERT_TRUE(NetManagerC::GetNetworkInterfaceInfo(0, net::kInterfacePhysicalAddress, text));
    EXPECT_EQ(text, "00-0b-5d-1a-2c-3f") << "id 0 is never the adapter #2";
    ASSERT_TRUE(NetManagerC::GetNetworkInterfaceInfo(1, net::kInterfacePhysicalAddress, text));
    EXPECT_EQ(text, "00-0b-5d-1a-2c-40");

    // An adapter with both families gives its IPv4 addresses only, comma-separated.
    std::ofstream(platform::sim::root() + "/sim/network/adapters")
        << "adapter\ndescription=Intel(R) I210 Gigabit Network Connection #2\nmac=00-0b-5d-1a-2c-40\n"
           "adapter\ndescription=Intel(R) I210 Gigabit Network Connection\nmac=00-0b-5d-1a-2c-3f\n"
           "address=fe80::1\naddress=192.168.2.2\naddress=2001:db8::2\naddress=10.0.0.5\n";
    ASSERT_TRUE(NetManagerC::GetNetworkInterfaceInfo(0, net::kInterfaceIpv4Addresses, text));
    EXPECT_EQ(text, "192.168.2.2, 10.0.0.5");
    EXPECT_FALSE(NetManagerC::GetNetworkInterfaceInfo(1, net::kInterfaceIpv4Addresses, text));
    EXPECT_FALSE(NetManagerC::GetNetworkInterfaceInfo(3, net::kInterfaceIpv4Addresses, text));
    EXPECT_FALSE(NetManagerC::GetNetworkInterfaceInfo(4, net::kInterfaceIpv4Addresses, text));
    EXPECT_FALSE(NetManagerC::GetNetworkInterfaceInfo(0, 2, text));
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"[ERROR]: No IPv4 addresses for specified interface!",
         "[getWlanIntfInfo] [ERROR]: failed to find matching interface! (Hosted Network Virtual Adapter, not )",
         "[ERROR]: Unsupported network interface id (4) requested.",
         "[ERROR]: Invalid property of network interface (2) requested!"}));
}

}  // namespace
}  // namespace halvern::test
