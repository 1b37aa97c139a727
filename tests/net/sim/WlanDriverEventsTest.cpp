// The driver's events end to end on the simulated instrument: its WLAN driver indicates through the sim
// root's WMI socket, Halvern's sink and event thread handle them, and a frontend connected over SEP learns
// of every DFS event as event 1007.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/WlanDriverEvents.h"
#include "platform/Clock.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"
#include "sep/SepCommandTestSupport.h"
#include "sim/wlan/DriverEventControlCommands.h"
#include "sim/wlan/NdisIndicationServerC.h"
#include "support/EfiInstrumentTest.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

int countOf(const std::vector<std::string>& messages, const std::string& text)
{
    int found = 0;
    for (const auto& message : messages)
        found += message == text ? 1 : 0;
    return found;
}

bool waitForLog(const std::string& text)
{
    for (int i = 0; i < 5000; ++i) {
        if (findMessage(logMessages(), text) >= 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

class WlanDriverEventsTest : public EfiInstrumentTest {
protected:
    void SetUp() override
    {
        EfiInstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(m_indications.start(platform::sim::root(), error)) << error;
        sim::addDriverEventControlCommands(m_commands, m_indications);
    }
    void TearDown() override
    {
        m_events.stop();
        // The instrument's teardown waits for the EFI reader to end: in real time, or a virtual clock would
        // let it close the pipe under a reader that is still leaving its read.
        platform::setClock(nullptr);
        m_clients.clear();
        m_indications.stop();
        EfiInstrumentTest::TearDown();
    }
    net::WlanApRestartOperationsT accessPoint()
    {
        net::WlanApRestartOperationsT ops;
        ops.getSsid = [] { return std::optional<std::vector<std::uint8_t>>({'Z', 'n', 0, 0}); };
        ops.getPassword = [] { return std::optional<std::vector<std::uint8_t>>({'p', 'w', 0, 0}); };
        ops.getBand = [] { return std::uint32_t{3}; };
        ops.configureWlan = [this](const net::WlanApRestartRequestT& request) {
            std::lock_guard<std::mutex> guard(m_lock);
            m_restarts.push_back(request);
            return true;
        };
        return ops;
    }
    // The value of the next WlanRadarEvent that `client` receives.
    static bool nextRadarEvent(SEP::SepClientC& client, std::int32_t& value)
    {
        std::vector<std::uint8_t> frame;
        SEP::DecodedFrameT event;
        std::int32_t code = 0, facility = 0;
        std::uint16_t level = 9;
        return client.receiveFrame(frame, 10000) && SEP::decodeFrame(frame, event) &&
               event.kind == SEP::MESSAGE_KIND_EVENT && event.messageId == 1007 && event.coder->readI32(code) &&
               event.coder->readI32(facility) && event.coder->readU16(level) && code == 1097 && facility == 10 &&
               level == 0 && event.coder->readI32(value) && event.coder->atEnd();
    }

    // Ahead of everything that may wait on it until the fixture is gone.
    platform::ManualClockC m_clock;
    sim::NdisIndicationServerC m_indications;
    net::WlanDriverEventsC m_events{accessPoint()};
    std::vector<std::unique_ptr<SEP::SepClientC>> m_clients;
    std::mutex m_lock;
    std::vector<net::WlanApRestartRequestT> m_restarts;
};

TEST_F(WlanDriverEventsTest, EveryDfsEventOfTheDriverReachesTheClientsAsEvent1007)
{
    ASSERT_TRUE(StartSepServer());
    m_clients = connectToEveryPort();
    ASSERT_EQ(m_clients.size(), 2u);
    ASSERT_TRUE(m_events.start());
    EXPECT_GE(findMessage(logMessages(), "Connected to ROOT\\WMI."), 0);

    for (const char* command : {"wlan cac start 60000", "wlan cac done", "wlan radar", "wlan ap stopped",
                                "wlan cac done", "wlan media connect", "wlan indication 9 2", "wlan media connect"})
        simulate(command);
    // The CAC_DONE after the radar and the connect after it are log lines only.
    for (auto& client : m_clients) {
        std::vector<std::int32_t> values;
        std::int32_t value = 0;
        while (values.size() < 6 && nextRadarEvent(*client, value))
            values.push_back(value);
        EXPECT_EQ(values, (std::vector<std::int32_t>{3, 4, 1, 2, 9, 4}));
    }
    ASSERT_TRUE(waitForLog("Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection"));
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"Event from MSNdis_StatusMediaSpecific: START_OF_CAC : Time 60000 ms",
         "Event from MSNdis_StatusMediaSpecific: CAC_DONE", "Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED",
         "Event from MSNdis_StatusMediaSpecific: AP_STOPPED",
         "Event from MSNdis_StatusMediaSpecific: CAC_DONE after Radar detected, DFS status: 2!",
         "Event from MSNdis_StatusMediaConnect, DFS status: 2",
         "Event from MSNdis_StatusMediaSpecific: Received Unknown Event : 9 From Port 2 Type 1",
         "Event from MSNdis_StatusMediaConnect, DFS status: 0",
         "Event from MSNdis_StatusMediaConnect: CAC_DONE without Radar detection"}));
}

TEST_F(WlanDriverEventsTest, ARadarThatTakesTheLinkDownRestartsTheAccessPointWithItsSettings)
{
    platform::setClock(&m_clock);
    ASSERT_TRUE(m_events.start());
    simulate("wlan radar");
    simulate("wlan media disconnect");
    ASSERT_TRUE(waitForLog("Successful WLAN AP configuration"));
    std::lock_guard<std::mutex> guard(m_lock);
    ASSERT_EQ(m_restarts.size(), 1u);
    EXPECT_EQ(m_restarts[0].ssid, "Zn");
    EXPECT_EQ(m_restarts[0].password, "pw");
    EXPECT_EQ(m_restarts[0].band, 3u);
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED",
                                        "Event from MSNdis_StatusMediaDisconnect, DFS status: 1",
                                        "Set Timeout to 5000ms for restart WLAN", "Event for restart WLAN AP"}));
}

TEST_F(WlanDriverEventsTest, StoppingTheProcessWideEventsEndsTheSubscriptionAndTheThread)
{
    ASSERT_TRUE(net::startWlanDriverEvents(accessPoint()));
    simulate("wlan radar");
    ASSERT_TRUE(waitForLog("Event from MSNdis_StatusMediaSpecific: RADAR_DETECTED"));
    net::stopWlanDriverEvents();
    const auto messages = logMessages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), "End WLANEventThreadProc()");
    // The instrument sees the subscriber gone; a person raising radar now is told so.
    std::string reply;
    for (int i = 0; i < 1000 && reply.rfind("ERROR", 0) != 0; ++i) {
        reply = m_commands.execute("wlan radar");
        if (reply.rfind("ERROR", 0) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(reply, "ERROR no subscriber for MSNdis_StatusMediaSpecificIndicationEx");
    net::stopWlanDriverEvents();
    EXPECT_EQ(countOf(logMessages(), "End WLANEventThreadProc()"), 1);
}

TEST_F(WlanDriverEventsTest, ASubscriptionThatCannotBeMadeSaysWhichStepFailed)
{
    m_indications.refuseQueries(0x80041010);
    EXPECT_FALSE(m_events.start());
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"Connected to ROOT\\WMI.", "[ERROR]: Failed to register async notifications"}));

    m_indications.stop();
    platform::NdisEventSourceC source;
    const platform::NdisSubscribeResultT result = source.start([](const platform::NdisEventT&) {});
    EXPECT_EQ(result.failedStep, platform::NdisSubscribeStepE::ConnectServer);
    EXPECT_EQ(result.code, platform::kErrorFileNotFound);
    EXPECT_FALSE(m_events.start());
    EXPECT_GE(findMessage(logMessages(), "[ERROR]: Could not connect to server - error 0x2"), 0);
    EXPECT_EQ(findMessage(logMessages(), "Start WLANEventThreadProc()"), -1);
}

}  // namespace
}  // namespace halvern::test
