// The benchmark tools against Halvern's own SEP port: every pipelined request is answered and counted,
// the floor answers byte for byte what Halvern answers, and a server that answers wrongly or not at all
// makes the run fail instead of looking fast.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "bench/EchoServerC.h"
#include "bench/LoadGenerator.h"
#include "sep/SepCommandTestSupport.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

class LoadGeneratorTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        // The fixture's own client would take one of the ten places.
        port->client().close();
    }
    HalvernBench::LoadPlanT plan(std::uint16_t serverPort)
    {
        HalvernBench::LoadPlanT load;
        load.port = serverPort;
        load.connections = 3;
        load.pipeline = 4;
        load.requests = 50;
        return load;
    }
};

TEST_F(LoadGeneratorTest, EveryPipelinedRequestToHalvernIsAnsweredInBothCodings)
{
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        auto load = plan(port->server().port());
        load.coding = coding;
        HalvernBench::LoadReportT report;
        ASSERT_TRUE(HalvernBench::runLoad(load, report)) << report.failure;
        EXPECT_EQ(report.completed, 50u);
        EXPECT_EQ(report.badReplies, 0u);
        EXPECT_LE(report.percentileNs(50), report.percentileNs(99.9));
        EXPECT_EQ(report.percentileNs(100), report.maxNs());
    }
}

// Halvern sends events to every client whenever something happens (a start-up still settling sends several):
// they are neither replies nor failures.
TEST_F(LoadGeneratorTest, EventsBetweenTheRepliesAreCountedNotTakenForReplies)
{
    auto load = plan(port->server().port());
    load.requests = 3000;
    std::atomic<bool> loading{true};
    std::thread events([&] {
        while (loading) {
            port->server().readerWriter().sendToAll(1000, SEP::MESSAGE_KIND_EVENT,
                                                    [](SEP::DataWriterI& w) { return w.writeI32(1); });
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    HalvernBench::LoadReportT report;
    const bool ran = HalvernBench::runLoad(load, report);
    loading = false;
    events.join();
    EXPECT_TRUE(ran) << report.failure;
    EXPECT_EQ(report.completed, 3000u);
    EXPECT_EQ(report.badReplies, 0u);
    EXPECT_GT(report.events, 0u);
}

TEST_F(LoadGeneratorTest, TheFloorAnswersWhatHalvernAnswers)
{
    HalvernBench::EchoServerC floor;
    ASSERT_TRUE(floor.start(0));
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        std::vector<std::uint8_t> fromHalvern, fromFloor;
        SEP::SepClientC halvern, echo;
        ASSERT_TRUE(halvern.connect("127.0.0.1", port->server().port()));
        ASSERT_TRUE(echo.connect("127.0.0.1", floor.port()));
        ASSERT_TRUE(halvern.sendBytes(HalvernBench::commandFrame(coding, 1001)));
        ASSERT_TRUE(echo.sendBytes(HalvernBench::commandFrame(coding, 1001)));
        ASSERT_TRUE(halvern.receiveFrame(fromHalvern, 5000));
        ASSERT_TRUE(echo.receiveFrame(fromFloor, 5000));
        EXPECT_EQ(fromFloor, fromHalvern);
    }
    auto load = plan(floor.port());
    HalvernBench::LoadReportT report;
    ASSERT_TRUE(HalvernBench::runLoad(load, report)) << report.failure;
    EXPECT_EQ(report.completed, 50u);
    floor.stop();
}

TEST_F(LoadGeneratorTest, ErrorRepliesAndSilenceFailTheRun)
{
    // Without the power controller the battery command is answered with the error header.
    auto load = plan(port->server().port());
    load.commandId = 1004;
    HalvernBench::LoadReportT report;
    EXPECT_FALSE(HalvernBench::runLoad(load, report));
    EXPECT_EQ(report.completed, 0u);
    EXPECT_EQ(report.badReplies, 50u);

    // An id without a handler gets no reply at all: the run ends after the reply time-out.
    load.commandId = 1045;
    load.requests = 4;
    load.replyTimeoutMs = 100;
    EXPECT_FALSE(HalvernBench::runLoad(load, report));
    EXPECT_EQ(report.completed, 0u);
    EXPECT_FALSE(report.failure.empty());
}

TEST(LoadPlanTest, RefusesOtherThanLoopbackAndMoreThanTenConnections)
{
    HalvernBench::LoadPlanT load;
    load.port = 55557;
    load.requests = 1;
    std::string failure;
    EXPECT_TRUE(HalvernBench::checkLoadPlan(load, failure));
    load.address = 0xC0A80201;  // the sensor board's 192.168.2.1
    EXPECT_FALSE(HalvernBench::checkLoadPlan(load, failure));
    load.address = platform::kLoopbackAddress;
    load.connections = 11;
    EXPECT_FALSE(HalvernBench::checkLoadPlan(load, failure));
    load.connections = 10;
    load.requests = 0;
    EXPECT_FALSE(HalvernBench::checkLoadPlan(load, failure));
}

}  // namespace
}  // namespace halvern::test
