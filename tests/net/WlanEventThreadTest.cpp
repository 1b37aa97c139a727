// The driver-event thread on its own: events posted as the sink posts them, the access point's operations
// faked, time virtual, so that the whole restart sequence of a DFS disconnect passes at once.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/NdisSink.h"
#include "net/WlanDriverEvents.h"
#include "platform/Clock.h"
#include "platform/WlanDriver.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using net::WlanDriverEventE;

int countOf(const std::vector<std::string>& messages, const std::string& text)
{
    int found = 0;
    for (const auto& message : messages)
        found += message == text ? 1 : 0;
    return found;
}

bool waitForLog(const std::string& text, int times = 1)
{
    for (int i = 0; i < 5000; ++i) {
        if (countOf(logMessages(), text) >= times) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

platform::WlanIndicationT indication(std::uint32_t code, std::uint32_t cacTimeMs = 0)
{
    platform::WlanIndicationT value;
    value.type = platform::kWlanIndicationTypeDfs;
    value.eventCode = code;
    value.cacTimeMs = cacTimeMs;
    return value;
}

std::vector<std::uint8_t> bufferOf(const std::string& text)
{
    std::vector<std::uint8_t> buffer(text.begin(), text.end());
    buffer.insert(buffer.end(), {0, 0});
    return buffer;
}

// The access point as the restart sees it: what it was asked, at which virtual time.
class FakeAccessPointC {
public:
    net::WlanApRestartOperationsT operations()
    {
        net::WlanApRestartOperationsT ops;
        ops.getSsid = [this] { return ssid; };
        ops.getPassword = [this] { return password; };
        ops.getBand = [] { return std::uint32_t{2}; };
        ops.configureWlan = [this](const net::WlanApRestartRequestT& request) {
            std::lock_guard<std::mutex> guard(m_lock);
            m_requests.push_back(request);
            m_times.push_back(platform::tickCount64());
            return m_failures-- <= 0;
        };
        return ops;
    }
    void failNext(int count) { m_failures = count; }
    std::vector<net::WlanApRestartRequestT> requests()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_requests;
    }
    std::vector<std::uint64_t> times()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_times;
    }

    std::optional<std::vector<std::uint8_t>> ssid = bufferOf("Zentor-4711");
    std::optional<std::vector<std::uint8_t>> password = bufferOf("geheim123");

private:
    std::mutex m_lock;
    int m_failures = 0;
    std::vector<net::WlanApRestartRequestT> m_requests;
    std::vector<std::uint64_t> m_times;
};

class WlanEventThreadTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        platform::setClock(&m_clock);
    }
    void TearDown() override
    {
        stopThread();
        InstrumentTest::TearDown();
    }
    void startThread()
    {
        m_thread = std::thread([this, ops = m_accessPoint.operations()] { net::WLANEventThreadProc(m_state, ops); });
        ASSERT_TRUE(waitForLog("Start WLANEventThreadProc()"));
    }
    void stopThread()
    {
        if (!m_thread.joinable()) return;
        m_state.stop();
        m_thread.join();
    }
    // Posts and waits until the thread has logged `handled`.
    void handle(WlanDriverEventE event, const platform::WlanIndicationT& value, const std::string& handled)
    {
        const int before = countOf(logMessages(), handled);
        m_state.post(event, value);
        ASSERT_TRUE(waitForLog(handled, before + 1)) << handled;
    }

    platform::ManualClockC m_clock;
    net::WlanDriverEventStateC m_state;
    FakeAccessPointC m_accessPoint;
    std::thread m_thread;
};

TEST_F(WlanEventThreadTest, ADfsDisconnectFollowedBySilenceRestartsTheAccessPointAfter5000Ms)
{
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventApStopped),
           "Event from MSNdis_StatusMediaSpecific: AP_STOPPED");
    const std::uint64_t disconnectedAt = m_clock.tickCount64();
    m_state.post(WlanDriverEventE::MediaDisconnect);
    ASSERT_TRUE(waitForLog("Successful WLAN AP configuration"));

    EXPECT_EQ(m_accessPoint.times(), std::vector<std::uint64_t>{disconnectedAt + 5000});
    const auto requests = m_accessPoint.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].ssid, "Zentor-4711");
    EXPECT_EQ(requests[0].password, "geheim123");
    EXPECT_EQ(requests[0].band, 2u);
    EXPECT_EQ(requests[0].start, 1u);
    EXPECT_TRUE(containsInOrder(logMessages(), {"Event from MSNdis_StatusMediaDisconnect, DFS status: 2",
                                                "Set Timeout to 5000ms for restart WLAN", "Event for restart WLAN AP",
                                                "Start WLAN AP configuration", "Successful WLAN AP configuration"}));

    // Back to waiting without a limit: the link coming up is the next thing that happens, and the status
    // the restart cleared makes it a clean check.
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 0");
    EXPECT_EQ(m_accessPoint.requests().size(), 1u);
    EXPECT_GE(findMessage(logMessages(), "Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection"), 0);
}

TEST_F(WlanEventThreadTest, FailingRestartsAreRetriedEvery10000MsFiveTimesThenGivenUp)
{
    m_accessPoint.failNext(1000);
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventRadarDetected),
           "Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED");
    const std::uint64_t disconnectedAt = m_clock.tickCount64();
    m_state.post(WlanDriverEventE::MediaDisconnect);
    ASSERT_TRUE(waitForLog("Error WLAN AP reconfiguration stopped"));

    std::vector<std::uint64_t> expected;
    for (std::uint64_t at = disconnectedAt + 5000; expected.size() < 6; at += 10000)
        expected.push_back(at);
    EXPECT_EQ(m_accessPoint.times(), expected);
    const auto messages = logMessages();
    EXPECT_EQ(countOf(messages, "Error WLAN AP configuration"), 6);
    EXPECT_EQ(countOf(messages, "Event for restart WLAN AP"), 6);
    EXPECT_EQ(countOf(messages, "Error WLAN AP reconfiguration stopped"), 1);

    // Given up means waiting without a limit again: no seventh attempt before the next event.
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 0");
    EXPECT_EQ(m_accessPoint.requests().size(), 6u);
}

TEST_F(WlanEventThreadTest, ARestartThatSucceedsAfterFailuresStopsRetrying)
{
    m_accessPoint.failNext(2);
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventRadarDetected),
           "Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED");
    m_state.post(WlanDriverEventE::MediaDisconnect);
    ASSERT_TRUE(waitForLog("Successful WLAN AP configuration"));
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 0");
    EXPECT_EQ(m_accessPoint.requests().size(), 3u);
    EXPECT_EQ(countOf(logMessages(), "Error WLAN AP configuration"), 2);
}

TEST_F(WlanEventThreadTest, ADisconnectWithoutDfsActivityOrASecondDisconnectRestartsNothing)
{
    startThread();
    handle(WlanDriverEventE::MediaDisconnect, {}, "Event from MSNdis_StatusMediaDisconnect, DFS status: 0");
    // Already down: a radar now does not turn the next disconnect into a restart.
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventRadarDetected),
           "Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED");
    handle(WlanDriverEventE::MediaDisconnect, {}, "Event from MSNdis_StatusMediaDisconnect, DFS status: 1");
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 0");
    EXPECT_TRUE(m_accessPoint.requests().empty());
    EXPECT_EQ(findMessage(logMessages(), "Set Timeout to 5000ms for restart WLAN"), -1);
}

TEST_F(WlanEventThreadTest, ARadarDuringTheCheckIsRememberedUntilTheLinkComesBack)
{
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventStartOfCac, 60000),
           "Event from MSNdis_StatusMediaSpecific: START_OF_CAC : Time 60000 ms");
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventCacDone),
           "Event from MSNdis_StatusMediaSpecific: CAC_DONE");
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventStartOfCac, 600000),
           "Event from MSNdis_StatusMediaSpecific: START_OF_CAC : Time 600000 ms");
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventRadarDetected),
           "Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED");
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventCacDone),
           "Event from MSNdis_StatusMediaSpecific: CAC_DONE after Radar detected, DFS status: 1!");
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 1");
    EXPECT_EQ(findMessage(logMessages(), "Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection"), -1);
    platform::WlanIndicationT unknown = indication(77);
    unknown.port = 3;
    handle(WlanDriverEventE::SpecificIndication, unknown,
           "Event from MSNdis_StatusMediaSpecific: Received Unknown Event : 77 From Port 3 Type 1");
    handle(WlanDriverEventE::MediaConnect, {}, "Event from MSNdis_StatusMediaConnect, DFS status: 0");
    EXPECT_GE(findMessage(logMessages(), "Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection"), 0);
}

TEST_F(WlanEventThreadTest, CredentialsThatCannotBeReadAreLeftToTheRunningConfiguration)
{
    m_accessPoint.ssid.reset();
    m_accessPoint.password = std::vector<std::uint8_t>(300, 'p');
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventApStopped),
           "Event from MSNdis_StatusMediaSpecific: AP_STOPPED");
    m_state.post(WlanDriverEventE::MediaDisconnect);
    ASSERT_TRUE(waitForLog("Successful WLAN AP configuration"));
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"Event for restart WLAN AP", "[ERROR]: Failed to obtain current ssid!",
                                        "[ERROR]: Obtained password too long! (300)", "Start WLAN AP configuration"}));
    const auto requests = m_accessPoint.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].ssid, "");
    EXPECT_EQ(requests[0].password, "");
    EXPECT_EQ(requests[0].start, 1u);
}

TEST_F(WlanEventThreadTest, StoppingEndsTheThreadEvenDuringARestartWait)
{
    // Real time here: the thread is in its 5000 ms wait when it is told to stop.
    platform::setClock(nullptr);
    startThread();
    handle(WlanDriverEventE::SpecificIndication, indication(platform::kWlanEventApStopped),
           "Event from MSNdis_StatusMediaSpecific: AP_STOPPED");
    handle(WlanDriverEventE::MediaDisconnect, {}, "Set Timeout to 5000ms for restart WLAN");
    stopThread();
    const auto messages = logMessages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), "End WLANEventThreadProc()");
    EXPECT_TRUE(m_accessPoint.requests().empty());
}

// What the sink makes of the objects WMI delivers.
TEST_F(WlanEventThreadTest, TheSinkPostsTheThreeClassesAndLogsWhatItCannotUse)
{
    net::CNdisSink sink(m_state);
    platform::NdisEventT object;
    object.kind = platform::NdisEventKindE::MediaSpecificIndication;
    sink.onEvent(object);
    object.hasIndication = true;
    object.indication = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0x60, 0xEA, 0, 0};
    sink.onEvent(object);
    object = {};
    object.kind = platform::NdisEventKindE::Unexpected;
    object.className = L"MSNdis_StatusLinkSpeedChange";
    sink.onEvent(object);
    object.kind = platform::NdisEventKindE::MediaDisconnect;
    sink.onEvent(object);

    const auto messages = logMessages();
    EXPECT_GE(findMessage(messages, "[ERROR]: Could not get NdisStatusMediaSpecificIndication from the object?!"), 0);
    EXPECT_GE(findMessage(messages, "[ERROR]: Unepected event - __CLASS: 'MSNdis_StatusLinkSpeedChange'"), 0);

    // Only the indication with its value and the disconnect were posted, in that order.
    net::WlanDriverEventE event{};
    platform::WlanIndicationT value;
    ASSERT_EQ(m_state.wait(0, event, value), net::WlanDriverEventStateC::WakeE::Event);
    EXPECT_EQ(event, WlanDriverEventE::SpecificIndication);
    EXPECT_EQ(value.type, 1u);
    EXPECT_EQ(value.port, 2u);
    EXPECT_EQ(value.eventCode, 3u);
    EXPECT_EQ(value.cacTimeMs, 60000u);
    ASSERT_EQ(m_state.wait(0, event, value), net::WlanDriverEventStateC::WakeE::Event);
    EXPECT_EQ(event, WlanDriverEventE::MediaDisconnect);
    EXPECT_EQ(m_state.wait(0, event, value), net::WlanDriverEventStateC::WakeE::Timeout);
}

}  // namespace
}  // namespace halvern::test
