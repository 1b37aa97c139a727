// The WLAN driver management against the simulated instrument: its device tool and driver store stand-ins,
// its driver folders on F:, its loaded drivers, and the WLAN module behind the IO expander.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "net/WlanDriverManager.h"
#include "platform/Clock.h"
#include "platform/DeviceDrivers.h"
#include "platform/Text.h"
#include "platform/Wlan.h"
#include "platform/sim/SimRoot.h"
#include "sim/standin/WlanDeviceModel.h"
#include "support/TestEnvironment.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> fileLines(const std::string& relative)
{
    std::ifstream in(platform::sim::root() + "/" + relative);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// The tools' runs in order, as "ROLE arguments ...".
std::vector<std::string> toolRuns()
{
    std::vector<std::string> runs;
    for (const auto& line : fileLines("sim/apps/log"))
        if (line.find(" arguments ") != std::string::npos) runs.push_back(line);
    return runs;
}

std::vector<std::string> loadedDrivers()
{
    std::vector<platform::DriverAddress> addresses;
    std::uint32_t needed = 0;
    EXPECT_TRUE(platform::enumDeviceDrivers(addresses, needed));
    addresses.resize(needed / sizeof(platform::DriverAddress));
    EXPECT_TRUE(platform::enumDeviceDrivers(addresses, needed));
    std::vector<std::string> names;
    for (auto address : addresses) {
        std::wstring name;
        EXPECT_TRUE(platform::getDeviceDriverBaseName(address, name));
        names.push_back(platform::narrow(name).value_or(""));
    }
    return names;
}

std::vector<std::string> publishedPackages()
{
    std::vector<std::string> names;
    for (const auto& package : sim::readDriverStore(platform::sim::root()))
        names.push_back(package.published + " " + package.provider);
    return names;
}

class WlanDriverTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_wlan.setUp();
    }
    void TearDown() override
    {
        m_wlan.tearDown();
        InstrumentTest::TearDown();
    }
    void serveDevices() { m_wlan.serveDevices(); }
    static std::size_t interfaceCount()
    {
        platform::UniqueWlanHandle client;
        std::uint32_t version = 0;
        EXPECT_EQ(platform::wlanOpenHandle(platform::kWlanClientVersion, version, client), 0u);
        std::vector<platform::WlanInterfaceT> interfaces;
        EXPECT_EQ(platform::wlanEnumInterfaces(client, interfaces), 0u);
        return interfaces.size();
    }

    WlanInstrumentC m_wlan;
};

TEST_F(WlanDriverTest, InstallingTheTestDriverRunsTheToolsInOrderAndWaitsForTheDriver)
{
    serveDevices();
    ASSERT_EQ(interfaceCount(), 1u) << "a fresh instrument runs the regular driver";

    ASSERT_TRUE(net::installWlanDriver(true));
    EXPECT_EQ(toolRuns(), (std::vector<std::string>{
                              "devcon arguments dp_enum",
                              "pnputil arguments -f -d oem3.inf",
                              "pnputil arguments -a F:/wlan_test_drv/qcwlantest.inf",
                              "devcon arguments update F:/wlan_test_drv/qcwlantest.inf PCI\\VEN_168C&DEV_0033",
                          }));
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"Found matching driver: oem3.inf",
                                           "Attempt to install driver qcwlantest.inf, qcwlantest.sys from "
                                           "F:/wlan_test_drv/",
                                           "Device driver found after 0 retries"}))
        << ::testing::PrintToString(messages);
    EXPECT_THAT(publishedPackages(), (std::vector<std::string>{"oem1.inf Intel", "oem0.inf Qualcomm Atheros"}))
        << "the other vendor's package stays";
    EXPECT_THAT(loadedDrivers(), Contains("qcwlantest.sys"));
    EXPECT_THAT(loadedDrivers(), Not(Contains("qcwlan.sys")));

    // The test driver offers no interface: the wait knows it from the store and asks the WLAN client nothing.
    EXPECT_EQ(interfaceCount(), 0u);
    ASSERT_TRUE(net::waitTillWlanInterfaceReady());
    EXPECT_THAT(logMessages(), Contains("WLAN test driver found!"));
    EXPECT_THAT(logMessages(), Not(Contains(HasSubstr("num wlan interface entries"))));

    // And back: the regular driver replaces the test one, whose interface the client then sees.
    ASSERT_TRUE(net::installWlanDriver(false));
    EXPECT_THAT(publishedPackages(), (std::vector<std::string>{"oem1.inf Intel", "oem0.inf Qualcomm Atheros"}));
    EXPECT_EQ(interfaceCount(), 1u);
    EXPECT_TRUE(net::waitTillWlanInterfaceReady());
    EXPECT_THAT(
        logMessages(),
        Contains("waitTillWlanInterfaceReady num wlan interface entries: 1, interface recognition time: 200 ms"));
}

TEST_F(WlanDriverTest, AListingOfAnotherVendorRemovesNothing)
{
    const std::string root = platform::sim::root();
    auto store = sim::readDriverStore(root);
    store.erase(
        std::remove_if(store.begin(), store.end(), [](const sim::DriverPackageT& p) { return p.provider != "Intel"; }),
        store.end());
    ASSERT_TRUE(sim::writeDriverStore(root, store));

    EXPECT_EQ(net::uninstallDrivers("Atheros"), 0);
    EXPECT_EQ(toolRuns(), std::vector<std::string>{"devcon arguments dp_enum"});
    EXPECT_THAT(publishedPackages(), std::vector<std::string>{"oem1.inf Intel"});
    EXPECT_THAT(logMessages(), Not(Contains(HasSubstr("Found matching driver"))));
}

TEST_F(WlanDriverTest, ADriverThatNeverLoadsIsLookedForWithARefreshEachTime)
{
    // The regular folder on the stick carries a driver file the card never loads.
    std::ofstream(platform::sim::root() + "/F/wlan_regular_drv/other.sys") << "x";
    EXPECT_FALSE(net::waitForDeviceDriver("other.sys"));
    const auto messages = logMessages();
    EXPECT_THAT(messages, Contains("Device driver other.sys not found: retry 9"));
    EXPECT_THAT(messages, Contains("[ERROR]: Failed to find device driver other.sys"));
    const auto runs = toolRuns();
    EXPECT_EQ(std::count(runs.begin(), runs.end(), "devcon arguments rescan"), 10);
    EXPECT_EQ(std::vector<std::string>(runs.begin(), runs.begin() + 3),
              (std::vector<std::string>{"devcon arguments disable PCI\\VEN_168C&DEV_0033*",
                                        "devcon arguments enable PCI\\VEN_168C&DEV_0033*", "devcon arguments rescan"}));
    EXPECT_THAT(loadedDrivers(), Contains("qcwlan.sys")) << "disable and enable leave the card running";

    EXPECT_FALSE(net::waitForDeviceDriver(""));
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Empty driver's *sys name is not allowed"));
}

TEST_F(WlanDriverTest, AMissingDriverFolderStopsTheInstallationBeforeAnyTool)
{
    std::filesystem::remove_all(platform::sim::root() + "/F/wlan_test_drv");
    EXPECT_FALSE(net::installWlanDriver(true));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[ERROR]: WLAN driver directory F:/wlan_test_drv/ does not exist",
                                                "[ERROR]: Failed to get path/name of WLAN driver."}));
    EXPECT_TRUE(toolRuns().empty());
}

TEST_F(WlanDriverTest, PoweringOffAndOnAgainBringsTheInterfaceBack)
{
    serveDevices();
    ASSERT_TRUE(net::setWlanModulePower(false));
    EXPECT_EQ(interfaceCount(), 0u);
    ASSERT_TRUE(net::setWlanModulePower(true));
    EXPECT_EQ(interfaceCount(), 1u);
    EXPECT_TRUE(containsInOrder(logMessages(), {"[WLAN_INFO]: WLAN driver Ready after: 500 ms.",
                                                "waitTillWlanInterfaceReady num wlan interface entries: 1, "
                                                "interface recognition time: 200 ms"}));
    EXPECT_EQ(m_wlan.clock.slept(), 700u);
}

// The power line reads back on at once; the module is only up once its interface appears.
TEST_F(WlanDriverTest, PoweringOnWaitsUntilTheModuleIsUp)
{
    serveDevices();
    ASSERT_TRUE(net::setWlanModulePower(false));
    m_wlan.i2c.devices.ioExpander.setWlanStartUp(std::chrono::milliseconds(1400));
    // The module comes up in real time, so the pauses between the looks at it are real too.
    platform::setClock(nullptr);
    ASSERT_TRUE(net::setWlanModulePower(true));
    EXPECT_EQ(interfaceCount(), 1u);
    EXPECT_THAT(logMessages(), Contains("[WLAN_INFO]: WLAN driver Ready after: 1500 ms."));

    // A module that never comes up is given up after ten looks, and its interface after ten more.
    platform::setClock(&m_wlan.clock);
    ASSERT_TRUE(net::setWlanModulePower(false));
    m_wlan.i2c.devices.ioExpander.setWlanStartUp(std::chrono::hours(1));
    EXPECT_FALSE(net::setWlanModulePower(true));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[WLAN_ERROR]: WLAN driver NOT Ready after: 5000 ms!",
                                                "waitTillWlanInterfaceReady num wlan interface entries: 0, "
                                                "interface recognition time: 2000 ms"}));
    EXPECT_EQ(m_wlan.clock.slept(), 10u * 500u + 10u * 200u);
}

TEST_F(WlanDriverTest, AModuleWhoseInterfaceNeverShowsFailsAfterBothWaits)
{
    serveDevices();
    // Powered, the module stops answering on the bus: it never reads ready and never offers an interface.
    m_wlan.clock.onSleep = [this](int sleep) {
        if (sleep == 1) m_wlan.i2c.devices.ioExpander.setBroken(true);
    };
    EXPECT_FALSE(net::setWlanModulePower(true));
    EXPECT_TRUE(containsInOrder(logMessages(), {"[WLAN_ERROR]: WLAN driver NOT Ready after: 5000 ms!",
                                                "waitTillWlanInterfaceReady num wlan interface entries: 0, "
                                                "interface recognition time: 2000 ms"}));
    EXPECT_EQ(m_wlan.clock.slept(), 10u * 500u + 10u * 200u);
}

TEST_F(WlanDriverTest, WithoutTheBusThePowerIsNotSwitched)
{
    EXPECT_FALSE(net::setWlanModulePower(true));
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Failed to initialize SPB library!"));
    EXPECT_EQ(m_wlan.clock.slept(), 0u);
}

}  // namespace
}  // namespace halvern::test
