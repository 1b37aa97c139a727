// Scans of the simulated WLAN service: Windows' answers without an interface, the completion on the
// service's thread, the BSS list from the radio environment, and the end of notifications at close.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanRadioEnvironment.h"
#include "support/TestEnvironment.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {
namespace {

class WlanScanSimTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::uint32_t version = 0;
        ASSERT_EQ(platform::wlanOpenHandle(platform::kWlanClientVersion, version, m_client), 0u);
    }
    void TearDown() override
    {
        m_client.reset();
        if (m_i2c.started()) m_i2c.stop();
        InstrumentTest::TearDown();
    }
    void powerWlanModule()
    {
        std::string error;
        ASSERT_TRUE(m_i2c.start(error)) << error;
        std::vector<platform::WlanInterfaceT> interfaces;
        ASSERT_EQ(platform::wlanEnumInterfaces(m_client, interfaces), 0u);
        ASSERT_EQ(interfaces.size(), 1u);
        m_interface = interfaces[0].guid;
    }
    static void writeSimFile(const std::string& name, const std::string& text)
    {
        ASSERT_TRUE(platform::sim::makeDirectories(platform::sim::root() + "/sim/wlan"));
        std::ofstream(platform::sim::root() + "/sim/wlan/" + name) << text;
    }

    platform::UniqueWlanHandle m_client;
    platform::WlanGuid m_interface{};
    ServedI2cDevicesC m_i2c;
};

TEST_F(WlanScanSimTest, WithoutTheModulesInterfaceScansAndListsFail)
{
    platform::WlanGuid someInterface{};
    someInterface[0] = 1;
    EXPECT_EQ(platform::wlanScan(m_client, someInterface), platform::kErrorNotFound);
    std::vector<platform::WlanBssEntryT> entries;
    EXPECT_EQ(platform::wlanGetNetworkBssList(m_client, someInterface, entries), platform::kErrorNotFound);

    platform::UniqueWlanHandle none;
    EXPECT_EQ(platform::wlanScan(none, someInterface), platform::kErrorInvalidHandle);
    EXPECT_EQ(platform::wlanRegisterNotification(none, platform::kWlanNotificationSourceAcm, true,
                                                 [](const platform::WlanNotificationT&) {}),
              platform::kErrorInvalidHandle);

    powerWlanModule();
    EXPECT_EQ(platform::wlanScan(m_client, someInterface), platform::kErrorNotFound) << "not the module's GUID";
}

TEST_F(WlanScanSimTest, AScanCompletesOnTheServicesThreadAndListsTheEnvironment)
{
    powerWlanModule();
    writeSimFile("networks", "# recorded\n5180 Zentor-10001 ht40+ rssi=-48\n\n2437 Cafe\n");
    writeSimFile("scan-delay-ms", "0\n");
    std::promise<platform::WlanNotificationT> completed;
    std::atomic<int> calls{0};
    std::thread::id callbackThread;
    ASSERT_EQ(platform::wlanRegisterNotification(m_client, platform::kWlanNotificationSourceAcm, true,
                                                 [&](const platform::WlanNotificationT& notification) {
                                                     if (calls++ > 0) return;
                                                     callbackThread = std::this_thread::get_id();
                                                     completed.set_value(notification);
                                                 }),
              0u);
    ASSERT_EQ(platform::wlanScan(m_client, m_interface), 0u);
    auto future = completed.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    const auto notification = future.get();
    EXPECT_EQ(notification.source, platform::kWlanNotificationSourceAcm);
    EXPECT_EQ(notification.code, platform::kWlanNotificationAcmScanComplete);
    EXPECT_EQ(notification.interfaceGuid, m_interface);
    EXPECT_NE(callbackThread, std::this_thread::get_id());

    std::vector<platform::WlanBssEntryT> entries;
    ASSERT_EQ(platform::wlanGetNetworkBssList(m_client, m_interface, entries), 0u);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].ssid, "Zentor-10001");
    EXPECT_EQ(entries[0].centerFrequencyKhz, 5180000u);
    EXPECT_EQ(entries[0].rssi, -48);
    // The SSID element, then the HT operation element for channel 36 with the offset above.
    const auto& ies = entries[0].informationElements;
    ASSERT_EQ(ies.size(), 2u + 12u + 2u + 22u);
    EXPECT_EQ(ies[0], 0);
    EXPECT_EQ(ies[1], 12);
    EXPECT_EQ(ies[14], 61);
    EXPECT_EQ(ies[16], 36);
    EXPECT_EQ(ies[17] & 3, 1);
    EXPECT_EQ(entries[1].ssid, "Cafe");
    EXPECT_EQ(entries[1].informationElements.size(), 6u) << "a legacy network sends no HT element";
}

TEST_F(WlanScanSimTest, ClosingTheHandleWaitsForARunningCallbackAndEndsTheRest)
{
    powerWlanModule();
    writeSimFile("scan-delay-ms", "0\n");
    std::promise<void> entered;
    std::atomic<bool> finished{false};
    std::atomic<int> calls{0};
    ASSERT_EQ(platform::wlanRegisterNotification(m_client, platform::kWlanNotificationSourceAcm, true,
                                                 [&](const platform::WlanNotificationT&) {
                                                     if (calls++ > 0) return;
                                                     entered.set_value();
                                                     // Long enough that a close that does not wait returns first.
                                                     std::this_thread::sleep_for(std::chrono::milliseconds(50));
                                                     finished = true;
                                                 }),
              0u);
    ASSERT_EQ(platform::wlanScan(m_client, m_interface), 0u);
    entered.get_future().wait();
    // Another scan is pending when the handle closes: its completion must never be delivered.
    writeSimFile("scan-delay-ms", "10\n");
    ASSERT_EQ(platform::wlanScan(m_client, m_interface), 0u);
    EXPECT_EQ(platform::wlanCloseHandle(m_client.release()), 0u);
    EXPECT_TRUE(finished) << "the callback ran on after wlanCloseHandle returned";
    const int callsAtClose = calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(calls, callsAtClose);
}

TEST_F(WlanScanSimTest, TheEnvironmentFileRoundTripsAndRejectsNonsense)
{
    std::vector<platform::sim::SimulatedNetworkT> networks;
    std::string error;
    ASSERT_TRUE(platform::sim::parseRadioEnvironment(
        "5745 Outdoor offset=2 rssi=-70\r\n2462 Broken ies=0004436166\n# note\n", networks, error))
        << error;
    ASSERT_EQ(networks.size(), 2u);
    EXPECT_EQ(networks[0].htOffset, 2);
    EXPECT_EQ(networks[0].rssi, -70);
    EXPECT_EQ(platform::sim::formatSimulatedNetwork(networks[0]), "5745 Outdoor offset=2 rssi=-70");
    EXPECT_EQ(platform::sim::beaconElements(networks[1]), (std::vector<std::uint8_t>{0, 4, 0x43, 0x61, 0x66}));
    EXPECT_EQ(platform::sim::formatSimulatedNetwork(networks[1]), "2462 Broken ies=0004436166");

    EXPECT_FALSE(platform::sim::parseRadioEnvironment("5180\n", networks, error));
    EXPECT_FALSE(platform::sim::parseRadioEnvironment("2412 a\n5180 b ht80\n", networks, error));
    EXPECT_EQ(error.rfind("line 2: ", 0), 0u) << error;
    EXPECT_FALSE(platform::sim::parseRadioEnvironment("2412 a-name-that-is-longer-than-32-bytes\n", networks, error));
}

}  // namespace
}  // namespace halvern::test
