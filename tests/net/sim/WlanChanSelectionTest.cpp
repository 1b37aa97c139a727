// Channel selection on recorded radio environments, and whole selections through the simulated WLAN
// service's scan: the scan's completion, its time-out and a second start while one runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "net/WlanChanSelector.h"
#include "platform/Clock.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/WlanRadioEnvironment.h"
#include "support/TestEnvironment.h"
#include "tests/net/WlanSelectionTest.h"
#include "tests/sim/i2c/ServedI2cDevices.h"

namespace halvern::test {
namespace {

using net::WlanAllowedChannelT;
using net::WlanChanSelector;
using net::WlanSelectionResultT;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::uint32_t kHt40Flags = 1 | 2 | 4;

WlanAllowedChannelT allowedChannel(std::uint32_t channel, std::uint8_t dfs = 0, std::uint8_t marked = 0,
                                   std::uint32_t widthFlags = kHt40Flags)
{
    WlanAllowedChannelT record;
    record.channel = channel;
    record.widthFlags = widthFlags;
    record.dfs = dfs;
    record.marked = marked;
    return record;
}

// The DFS channel first: an order that only the non-DFS rule of the 5 GHz sort can undo.
const std::vector<WlanAllowedChannelT> kOfficeChannels{allowedChannel(52, 1),      allowedChannel(36),
                                                       allowedChannel(40),         allowedChannel(1, 0, 0, 1),
                                                       allowedChannel(6, 0, 0, 1), allowedChannel(11, 0, 0, 1)};

std::vector<platform::sim::SimulatedNetworkT> recorded(const std::string& name)
{
    std::vector<platform::sim::SimulatedNetworkT> networks;
    std::ifstream in(std::string(HALVERN_RADIO_DATA_DIR) + "/" + name);
    std::ostringstream text;
    text << in.rdbuf();
    std::string error;
    EXPECT_TRUE(platform::sim::parseRadioEnvironment(text.str(), networks, error)) << error;
    EXPECT_FALSE(networks.empty()) << name;
    return networks;
}

// What the selector makes of a recorded environment, as the simulated service would report it.
std::vector<net::WlanObservedNetworkT> observedIn(const std::string& name)
{
    std::vector<net::WlanObservedNetworkT> observed;
    for (const auto& network : recorded(name)) {
        platform::WlanBssEntryT entry;
        entry.ssid = network.name;
        entry.centerFrequencyKhz = network.frequencyMhz * 1000;
        entry.informationElements = platform::sim::beaconElements(network);
        observed.push_back(WlanChanSelector::observe(entry));
    }
    return observed;
}

void useRecordedEnvironment(const std::string& name)
{
    std::string error;
    ASSERT_TRUE(platform::sim::storeRadioEnvironment(platform::sim::root(), recorded(name), error)) << error;
}

void setScanDelay(const std::string& value)
{
    ASSERT_TRUE(platform::sim::makeDirectories(platform::sim::root() + "/sim/wlan"));
    std::ofstream(platform::sim::scanDelayPath(platform::sim::root())) << value << '\n';
}

// Virtual time that stands still until released; then it jumps past any deadline. A wait through it
// cannot time out before the test says so, however slow the machine.
class HeldClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        if (m_released) {
            m_now += milliseconds;
            return std::chrono::milliseconds(0);
        }
        return std::chrono::milliseconds(1);
    }
    void release() { m_released = true; }

private:
    std::atomic<std::uint64_t> m_now{1'000'000};
    std::atomic<bool> m_released{false};
};

class WlanChanSelectionTest : public WlanSelectionTest {
protected:
    void TearDown() override
    {
        if (m_i2c.started()) m_i2c.stop();
        WlanSelectionTest::TearDown();
    }
    // The module powered through the IO expander, with the driver that offers its interface.
    void powerWlanModule()
    {
        std::string error;
        ASSERT_TRUE(m_i2c.start(error)) << error;
    }
    // A result callback whose result the test can wait for.
    net::WlanSelectionCallback resultInto(std::promise<WlanSelectionResultT>& promise)
    {
        return [&promise](const WlanSelectionResultT& result) { promise.set_value(result); };
    }
    static WlanSelectionResultT awaited(std::promise<WlanSelectionResultT>& promise)
    {
        auto future = promise.get_future();
        // Only a guard against a hang: a working selection delivers long before.
        if (future.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
            ADD_FAILURE() << "no result delivered";
            return {};
        }
        return future.get();
    }

    ServedI2cDevicesC m_i2c;
};

TEST_F(WlanChanSelectionTest, TwoPeersOnAChannelKeepAnInstrumentAwayInBothModes)
{
    const auto observed = observedIn("office-5ghz.txt");
    for (auto mode : {net::HALVERN_WLAN_5_0_GHZ, net::HALVERN_WLAN_BOTH_BANDS}) {
        net::setWlanBandMode(mode);
        const auto result = WlanChanSelector::selectChannel(kOfficeChannels, observed, -1);
        // 36 has the fewest users but two instruments; 40 and the DFS channel 52 tie, 40 needs no radar watch.
        EXPECT_EQ(result.channel, 40) << "band mode " << mode;
        EXPECT_EQ(result.width, net::kChanWidthHt20);
        EXPECT_EQ(result.dfs, 0);
    }
    EXPECT_TRUE(containsInOrder(logMessages(), {"[WLAN_INFO]: selectChannel", "[WLAN_INFO]: getNextAlternativeChannel",
                                                "[WLAN_INFO]: Channel Usage Info:", "[WLAN_INFO]: ChannelNo: 36:",
                                                "[WLAN_INFO]: Channel Usage (Non-ZentorUsers , ZentorUsers): 0  , 2",
                                                "[WLAN_INFO]: getWlanChannelByUsage"}));

    // Avoiding 40 (the channel just left) gives the DFS channel.
    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    EXPECT_EQ(WlanChanSelector::selectChannel(kOfficeChannels, observed, 40).channel, 52);
    // A marked channel is no alternative.
    auto marked = kOfficeChannels;
    marked[2].marked = 1;
    EXPECT_EQ(WlanChanSelector::selectChannel(marked, observed, -1).channel, 52);
    // With DFS channels excluded 36 is the only candidate, its two instruments notwithstanding.
    net::setDfsExclusion(true);
    EXPECT_EQ(WlanChanSelector::selectChannel(marked, observed, -1).channel, 36);
}

TEST_F(WlanChanSelectionTest, ACrowded5GhzBandFallsBackTo24GhzOnlyInBothBandsMode)
{
    const auto observed = observedIn("crowded-5ghz.txt");
    std::vector<WlanAllowedChannelT> channels{allowedChannel(36), allowedChannel(40), allowedChannel(1, 0, 0, 1),
                                              allowedChannel(6, 0, 0, 1), allowedChannel(11, 0, 0, 1)};
    net::setWlanBandMode(net::HALVERN_WLAN_BOTH_BANDS);
    const auto result = WlanChanSelector::selectChannel(channels, observed, -1);
    EXPECT_EQ(result.channel, 6) << "no instrument on 6, one foreign network";
    EXPECT_THAT(logMessages(), Contains("[WLAN_INFO]: No valid 5GHz channels found. Switch to 2.4Ghz!"));

    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    EXPECT_EQ(WlanChanSelector::selectChannel(channels, observed, -1).channel, -1);
}

TEST_F(WlanChanSelectionTest, NetworksOnlyElsewhereLeaveEveryAllowedChannelFree)
{
    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    net::WlanObservedNetworkT elsewhere;
    elsewhere.channel = 165;
    const auto result = WlanChanSelector::selectChannel(kOfficeChannels, {elsewhere}, -1);
    EXPECT_THAT(result.channel, ::testing::AnyOf(36, 40)) << "an unused channel without radar detection";
    EXPECT_EQ(result.dfs, 0);
    // Nothing heard at all gives no usage figures to choose by.
    EXPECT_EQ(WlanChanSelector::selectChannel(kOfficeChannels, {}, -1).channel, -1);
}

TEST_F(WlanChanSelectionTest, A40MhzNetworkIsJoinedAndOddBeaconsAreReadSafely)
{
    const auto observed = observedIn("wide-and-odd.txt");
    ASSERT_EQ(observed.size(), 5u);
    EXPECT_EQ(observed[0].channel, 44u);
    EXPECT_EQ(observed[0].width, net::kChanWidthHt40Plus);
    EXPECT_EQ(observed[1].channel, 149u);
    EXPECT_EQ(observed[1].width, net::kChanWidthHt20) << "offset 2 keeps HT20";
    EXPECT_EQ(observed[2].peer, 0) << "Zentor-1";
    EXPECT_EQ(observed[3].peer, 1) << "Zentor-12345";
    EXPECT_EQ(observed[4].channel, 11u);
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Overflow occured when parsing WLAN IEs."));
    EXPECT_THAT(logMessages(), Contains("parseHtIe: Invalid secondary channel offset (2)!"));

    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    const std::vector<WlanAllowedChannelT> channels{allowedChannel(36), allowedChannel(44), allowedChannel(149)};
    const auto result = WlanChanSelector::selectChannel(channels, observed, -1);
    EXPECT_EQ(result.channel, 44);
    EXPECT_EQ(result.width, net::kChanWidthHt40Plus);
    EXPECT_THAT(logMessages(), Contains("[WLAN_INFO]: findPreferredChannel_5GHz"));

    // In 2.4 GHz mode one of the channels 1, 6, 11 that networks already use, in this order.
    net::setWlanBandMode(net::HALVERN_WLAN_2_4_GHZ);
    const std::vector<WlanAllowedChannelT> band24{allowedChannel(1, 0, 0, 1), allowedChannel(6, 0, 0, 1),
                                                  allowedChannel(11, 0, 0, 1)};
    EXPECT_EQ(WlanChanSelector::selectChannel(band24, observed, -1).channel, 1);
    EXPECT_THAT(logMessages(), Contains("[WLAN_INFO]: findPreferredChannel"));
}

// A 40 MHz network between the preferred channels must not pull the access point onto it just because
// the driver lists its channel before 6 and 11.
TEST_F(WlanChanSelectionTest, In24GhzAWideNetworkBetweenThePreferredChannelsLosesToThem)
{
    net::setWlanBandMode(net::HALVERN_WLAN_2_4_GHZ);
    std::vector<WlanAllowedChannelT> channels;
    for (std::uint32_t channel = 1; channel <= 11; ++channel)
        channels.push_back(allowedChannel(channel));
    std::vector<net::WlanObservedNetworkT> observed;
    for (const auto& [mhz, elements] : std::vector<std::pair<std::uint32_t, std::vector<std::uint8_t>>>{
             {2422, {61, 22, 3, 0x05}}, {2437, {}}, {2462, {}}}) {
        platform::WlanBssEntryT entry;
        entry.ssid = "Office";
        entry.centerFrequencyKhz = mhz * 1000;
        entry.informationElements = elements;
        entry.informationElements.resize(elements.empty() ? 0 : 24, 0);
        observed.push_back(WlanChanSelector::observe(entry));
    }
    ASSERT_EQ(observed[0].channel, 3u);
    ASSERT_EQ(observed[0].width, net::kChanWidthHt40Plus);

    const auto result = WlanChanSelector::selectChannel(channels, observed, -1);
    EXPECT_EQ(result.channel, 6);
    EXPECT_EQ(result.width, net::kChanWidthHt20) << "as the network already on 6 runs";

    // Without a network on 1, 6 or 11 the 40 MHz one is joined.
    observed.erase(observed.begin() + 1, observed.end());
    EXPECT_EQ(WlanChanSelector::selectChannel(channels, observed, -1).channel, 3);
}

TEST_F(WlanChanSelectionTest, AWholeSelectionScansAndDeliversTheChoice)
{
    powerWlanModule();
    useRecordedEnvironment("office-5ghz.txt");
    setScanDelay("5");
    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    WlanChanSelector selector;
    std::promise<WlanSelectionResultT> delivered;
    ASSERT_TRUE(selector.startChannelSelection(kOfficeChannels, resultInto(delivered), 7000));
    const auto result = awaited(delivered);
    EXPECT_EQ(result.channel, 40);
    ASSERT_TRUE(selector.waitForSelectionDone(7000));

    const auto messages = logMessages();
    // The scan may complete before the worker has started to wait for it: the worker still finds it done.
    EXPECT_TRUE(containsInOrder(
        messages,
        {"openHandle num entries: 1, current index: 0", "[WLAN_INFO]:wlanNotificationCallback ScanDone", "Got 11 APs",
         "[WLAN_INFO]: selectChannel...try to find best channel", "[WLAN_INFO]: selectChannel"}))
        << ::testing::PrintToString(messages);
    EXPECT_TRUE(
        containsInOrder(messages, {"WLAN channel selection worker started with timeout of 7000 ms", "Got 11 APs"}))
        << ::testing::PrintToString(messages);
    EXPECT_THAT(messages, Contains("wlanNotificationCallback: source: 8, code: 7"));
    EXPECT_THAT(messages, Contains(HasSubstr("WlanHandleWrapper DTOR, m_handle: ")));

    // Back to idle: the next selection opens its own handle and sees the changed radio.
    std::string error;
    auto networks = recorded("office-5ghz.txt");
    networks.erase(networks.begin(), networks.begin() + 2);
    ASSERT_TRUE(platform::sim::storeRadioEnvironment(platform::sim::root(), networks, error)) << error;
    std::promise<WlanSelectionResultT> again;
    ASSERT_TRUE(selector.startChannelSelection(kOfficeChannels, resultInto(again), 7000));
    EXPECT_EQ(awaited(again).channel, 36) << "the instruments on 36 are gone";
    EXPECT_THAT(logMessages(), Not(Contains("[ERROR]: WlanChanSelector already initialized.")));
}

TEST_F(WlanChanSelectionTest, AScanThatNeverCompletesEndsAtTheTimeoutWithNoChannel)
{
    powerWlanModule();
    useRecordedEnvironment("office-5ghz.txt");
    setScanDelay("never");
    platform::ManualClockC clock;
    platform::setClock(&clock);
    WlanChanSelector selector;
    std::promise<WlanSelectionResultT> delivered;
    ASSERT_TRUE(selector.startChannelSelection(kOfficeChannels, resultInto(delivered), 7000));
    EXPECT_EQ(awaited(delivered).channel, -1);
    const auto messages = logMessages();
    EXPECT_THAT(messages, Contains("[chanSelectionWorker] [ERROR]: Failed to wait for scan results"));
    EXPECT_THAT(messages, Not(Contains(HasSubstr("Got "))));
}

TEST_F(WlanChanSelectionTest, ASecondStartWhileOneRunsIsRefused)
{
    powerWlanModule();
    useRecordedEnvironment("office-5ghz.txt");
    setScanDelay("never");
    HeldClockC clock;
    platform::setClock(&clock);
    WlanChanSelector selector;
    std::promise<WlanSelectionResultT> first;
    ASSERT_TRUE(selector.startChannelSelection(kOfficeChannels, resultInto(first), 7000));
    std::promise<WlanSelectionResultT> second;
    EXPECT_FALSE(selector.startChannelSelection(kOfficeChannels, resultInto(second), 7000));
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Channel selection is already in progress."));

    clock.release();
    EXPECT_EQ(awaited(first).channel, -1);
    // The rest of the worker's way out takes real time, which the released clock would skip.
    platform::setClock(nullptr);
    EXPECT_TRUE(selector.waitForSelectionDone(7000));
    std::promise<WlanSelectionResultT> third;
    EXPECT_TRUE(selector.startChannelSelection(kOfficeChannels, resultInto(third), 0)) << "idle again";
    EXPECT_EQ(awaited(third).channel, -1);
}

TEST_F(WlanChanSelectionTest, StartsThatCannotSucceedSayWhy)
{
    WlanChanSelector selector;
    std::promise<WlanSelectionResultT> unused;
    EXPECT_FALSE(selector.startChannelSelection({}, resultInto(unused), 7000));
    EXPECT_FALSE(selector.startChannelSelection(kOfficeChannels, nullptr, 7000));
    // The module is not powered: no interface to scan with.
    EXPECT_FALSE(selector.startChannelSelection(kOfficeChannels, resultInto(unused), 7000));
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"[ERROR]: Invalid list of allowed channels", "[ERROR]: Invalid callback provided.",
         "openHandle num entries: 0, current index: 0", "[ERROR]: No or more than one WLAN interfaces were detected.",
         "[ERROR]: Failed to initialize WlanChanSelector"}));
    EXPECT_TRUE(selector.waitForSelectionDone(0)) << "a failed start leaves nothing running";

    // A handle opened by hand stays the selector's until a selection ends.
    powerWlanModule();
    ASSERT_TRUE(selector.openHandle());
    EXPECT_FALSE(selector.openHandle());
    EXPECT_THAT(logMessages(), Contains("[ERROR]: WlanChanSelector already initialized."));
}

}  // namespace
}  // namespace halvern::test
