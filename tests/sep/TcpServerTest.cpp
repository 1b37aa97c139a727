// A SEP port as clients meet it over loopback TCP: the client limit with its exact refusal, the allowed
// address range, damaged input next to good frames, endless input, events and stop.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "app/Log.h"
#include "client/SepClientC.h"
#include "platform/Clock.h"
#include "sep/SepTestSupport.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "support/Eventually.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

constexpr std::uint32_t kWaitMs = 10000;
constexpr std::uint16_t kIncrement = 1001;
// The text and its NUL.
const std::string kRefusal("connection refused: too many clients or address not in range", 61);

class TcpServerTest : public InstrumentTest {
protected:
    void start(const std::vector<BSS::NET::AddressRangeT>& allowed = BSS::NET::defaultAllowedRanges(),
               bool singleReplacedClient = false, std::uint32_t writeTimeoutMs = 5000)
    {
        BSS::NET::NetTcpIpServerCfgT config = HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(0);
        config.writeTimeoutMs = writeTimeoutMs;
        if (singleReplacedClient) {
            config.maxClients = 1;
            config.replaceSingleClient = true;
        }
        config.listenAddress = platform::kLoopbackAddress;
        config.allowedRanges = allowed;
        server = std::make_unique<HalvernRpc::TcpIpServerChannelSetupC>(config);
        server->channel().registerCommandHandler(kIncrement, [](SEP::ReceivedCommandC& command) {
            std::uint32_t value = 0;
            if (!command.reader().readU32(value)) return;
            command.sendReply([&](SEP::DataWriterI& w) { return w.writeU32(value + 1); });
        });
        ASSERT_TRUE(server->start(3600000));
        ASSERT_NE(server->port(), 0);
    }
    void TearDown() override
    {
        server.reset();
        InstrumentTest::TearDown();
    }
    std::unique_ptr<SEP::SepClientC> connect()
    {
        auto client = std::make_unique<SEP::SepClientC>();
        EXPECT_TRUE(client->connect("127.0.0.1", server->port()));
        return client;
    }
    // Sends `value` to the increment command and answers what came back, or -1.
    static long increment(SEP::SepClientC& client, std::uint32_t value, SEP::CodingE coding = SEP::CodingE::Binary,
                          const Bytes& before = {})
    {
        Bytes wire = before;
        const Bytes frame = SEP::encodeFrame(coding, kIncrement, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                             [&](SEP::DataWriterI& w) { return w.writeU32(value); });
        wire.insert(wire.end(), frame.begin(), frame.end());
        if (!client.sendBytes(wire)) return -1;
        Bytes reply;
        SEP::DecodedFrameT decoded;
        std::uint32_t answer = 0;
        if (!client.receiveFrame(reply, kWaitMs) || !SEP::decodeFrame(reply, decoded)) return -1;
        if (decoded.kind != SEP::MESSAGE_KIND_REPLY || decoded.messageId != kIncrement || decoded.coding != coding ||
            !decoded.coder->readU32(answer))
            return -1;
        return answer;
    }
    // Waits until the server closes the client; answers everything that it received.
    static std::string drainUntilClosed(SEP::SepClientC& client)
    {
        Bytes ignored;
        while (client.receiveFrame(ignored, kWaitMs)) {
        }
        EXPECT_TRUE(client.closed());
        return std::string(client.rawBytes().begin(), client.rawBytes().end());
    }
    static bool logHasPrefix(const std::string& prefix)
    {
        for (const auto& message : logMessages())
            if (message.rfind(prefix, 0) == 0) return true;
        return false;
    }

    std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC> server;
};

TEST_F(TcpServerTest, ServesTenClientsAndRefusesTheEleventhWithTheExactText)
{
    start();
    std::vector<std::unique_ptr<SEP::SepClientC>> clients;
    for (std::uint32_t i = 0; i < 10; ++i) {
        clients.push_back(connect());
        EXPECT_EQ(increment(*clients.back(), i, i % 2 ? SEP::CodingE::Ascii : SEP::CodingE::Binary), i + 1);
    }
    auto eleventh = connect();
    EXPECT_EQ(drainUntilClosed(*eleventh), kRefusal);
    EXPECT_TRUE(logHasPrefix("acceptOrReceive: new connection denied "));
    EXPECT_TRUE(logHasPrefix("poOnlineSubject->notify(0, BSS::BIO::NEW_CLIENT_CONNECTION_ACCEPTED);"));

    // A place that frees up is given to the next client, once the server has seen the close.
    clients.front()->close();
    long answer = -1;
    for (int attempt = 0; attempt < 50 && answer < 0; ++attempt) {
        auto next = connect();
        answer = increment(*next, 41);
        if (answer >= 0) clients.push_back(std::move(next));
    }
    EXPECT_EQ(answer, 42);
    for (std::size_t i = 1; i < clients.size(); ++i)
        EXPECT_EQ(increment(*clients[i], 1), 2) << i;
}

TEST_F(TcpServerTest, RefusesAClientOutsideTheAllowedRange)
{
    start({{0xC0A80200, 0xFFFFFF00}});
    auto client = connect();
    EXPECT_EQ(drainUntilClosed(*client), kRefusal);
    EXPECT_EQ(server->server().clientCount(), 0u);
}

TEST_F(TcpServerTest, ASingleClientServerHandsTheConnectionToTheNewcomer)
{
    start(BSS::NET::defaultAllowedRanges(), true);
    auto first = connect();
    ASSERT_EQ(increment(*first, 1), 2);
    auto second = connect();
    EXPECT_EQ(increment(*second, 2), 3);
    const std::string received = drainUntilClosed(*first);
    const std::string notice("connection closed: too many clients", 36);
    ASSERT_GE(received.size(), notice.size());
    EXPECT_EQ(received.substr(received.size() - notice.size()), notice) << "after its earlier reply";
}

TEST_F(TcpServerTest, DropsGarbageAndStillAnswersTheGoodFramesOfTheConnection)
{
    start();
    auto client = connect();
    EXPECT_EQ(increment(*client, 1, SEP::CodingE::Binary, bytesOf("garbage\r\n")), 2);
    EXPECT_EQ(increment(*client, 5, SEP::CodingE::Ascii, bytesOf("SC1001,FFFF:1\r\n")), 6);
    const auto messages = logMessages();
    EXPECT_GE(
        findMessage(messages,
                    "SEP::RouterC::handleIncomingMessage ignore message (no installed coder can parse it) - size: 7"),
        0);
    EXPECT_GE(
        findMessage(messages,
                    "SEP::RouterC::handleIncomingMessage ignore message (no installed coder can parse it) - size: 13"),
        0);
}

TEST_F(TcpServerTest, EndlessInputWithoutLineEndIsDiscardedAndTheConnectionRecovers)
{
    start();
    auto client = connect();
    // Four times what one connection may buffer, without a single CR LF.
    const Bytes flood(4 * SEP::ConnectionHandlerC::kBufferCapacity, 'A');
    ASSERT_TRUE(client->sendBytes(flood));
    EXPECT_EQ(increment(*client, 7, SEP::CodingE::Binary, Bytes{0x0D, 0x0A}), 8);
}

TEST_F(TcpServerTest, AGarbageFloodIsSummarisedAndLeavesTheEarlierHistoryInTheLog)
{
    start();
    WriteLog("history before the flood");
    auto client = connect();
    // A lone CR before every other byte: one "Unexpected byte" line per two bytes, 50 KB of them.
    Bytes flood;
    for (int i = 0; i < 25000; ++i) {
        flood.push_back(0x0D);
        flood.push_back('g');
    }
    ASSERT_TRUE(client->sendBytes(flood));
    EXPECT_EQ(increment(*client, 1, SEP::CodingE::Binary, Bytes{0x0D, 0x0A}), 2);
    client.reset();
    const std::string summary = "... 24990 further lines like this suppressed";
    for (int i = 0; i < 500 && findMessage(logMessages(), summary) < 0; ++i)
        platform::sleepMs(10);
    const auto messages = logMessages();
    EXPECT_GE(findMessage(messages, summary), 0);
    EXPECT_GE(findMessage(messages, "history before the flood"), 0);
    EXPECT_EQ(std::count(messages.begin(), messages.end(),
                         "MAL::HAL::ReaderConnectionC::procReadData Unexpected byte received."),
              10);
}

TEST_F(TcpServerTest, AQueueThatTheClientDoesNotTakeIsDroppedAfterTheWriteTimeOut)
{
    start();
    auto client = connect();
    ASSERT_EQ(increment(*client, 0), 1);
    const auto connections = server->server().connections();
    ASSERT_EQ(connections.size(), 1u);
    // What the socket buffers of both ends take, and then some in the queue, within its hard limit: each
    // write answers at once, whatever the client does.
    const Bytes bulk(128 * 1024, 'x');
    for (int i = 0; i < 400 && server->server().queuedBytes(connections.front()) < 512 * 1024; ++i)
        ASSERT_TRUE(server->server().writeData(connections.front(), bulk.data(), bulk.size()));
    ASSERT_GE(server->server().queuedBytes(connections.front()), 512u * 1024);
    // The client takes nothing: on a virtual clock the write time-out runs out at once, and the task drops
    // the connection, with one line saying so.
    ScriptedClockC clock;
    platform::setClock(&clock);
    for (int i = 0; i < 2000 && server->server().clientCount() != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    platform::setClock(nullptr);
    const auto messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "NetTcpIpServerC::writeData timeout (5000ms) exceeded"), 1);
    EXPECT_FALSE(server->server().writeData(connections.front(), bulk.data(), 1))
        << "a dropped connection takes nothing";
    drainUntilClosed(*client);
    auto other = connect();
    EXPECT_EQ(increment(*other, 2), 3);
    EXPECT_EQ(server->server().clientCount(), 1u);
}

TEST_F(TcpServerTest, EventsBeyondTheHardLimitOfAQueueDropItsClientAtOnceAndNobodyWaits)
{
    start();
    auto silent = connect();
    auto other = connect();
    ASSERT_EQ(increment(*silent, 0), 1);
    ASSERT_EQ(increment(*other, 0), 1);
    // Events of 60 000 bytes for clients of which one never reads: the sender never waits, and the silent
    // client is dropped once its queue passes the hard limit (beyond what its socket buffers took).
    const Bytes payload(60000, 'e');
    bool refused = false;
    for (int i = 0; i < 2000 && !refused; ++i) {
        refused = !server->readerWriter().sendToAll(1000, SEP::MESSAGE_KIND_EVENT, [&](SEP::DataWriterI& w) {
            return w.writeBytes(payload.data(), payload.size());
        });
        Bytes frame;
        ASSERT_TRUE(other->receiveFrame(frame, kWaitMs));
    }
    EXPECT_TRUE(refused);
    EXPECT_GE(
        findMessage(logMessages(), "NetTcpIpServerC::writeData: dropping connection 1 (its output queue is full)"), 0);
    EXPECT_EQ(increment(*other, 4), 5);
}

TEST_F(TcpServerTest, TenClientsPipeliningAtOnceEachGetTheirOwnRepliesInOrder)
{
    start();
    // Each client's commands are decoded on its own thread, side by side with the others': every reply
    // must answer the client's own command, in its order.
    std::vector<std::thread> clients;
    std::atomic<int> wrong{0};
    for (std::uint32_t c = 0; c < 10; ++c) {
        clients.emplace_back([this, c, &wrong] {
            auto client = connect();
            Bytes batch;
            for (std::uint32_t i = 0; i < 300; ++i) {
                const Bytes frame =
                    SEP::encodeFrame(c % 2 ? SEP::CodingE::Ascii : SEP::CodingE::Binary, kIncrement,
                                     SEP::MESSAGE_KIND_COMMAND, {}, {},
                                     [&](SEP::DataWriterI& w) { return w.writeU32(c * 100000 + i); });
                batch.insert(batch.end(), frame.begin(), frame.end());
            }
            if (!client->sendBytes(batch)) ++wrong;
            for (std::uint32_t i = 0; i < 300; ++i) {
                Bytes reply;
                SEP::DecodedFrameT decoded;
                std::uint32_t answer = 0;
                if (!client->receiveFrame(reply, kWaitMs) || !SEP::decodeFrame(reply, decoded) ||
                    !decoded.coder->readU32(answer) || answer != c * 100000 + i + 1) {
                    ++wrong;
                    return;
                }
            }
        });
    }
    for (auto& client : clients)
        client.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(TcpServerTest, EightClientsThatNeverReadDoNotHoldBackANinthClientsReplies)
{
    start();
    constexpr std::uint16_t kBulk = 1002;
    server->channel().registerCommandHandler(kBulk, [](SEP::ReceivedCommandC& command) {
        const Bytes payload(60000, 'b');
        command.sendReply([&](SEP::DataWriterI& w) { return w.writeBytes(payload.data(), payload.size()); });
    });
    // Each silent client asks for far more than its socket buffers hold and reads none of it.
    std::vector<std::unique_ptr<SEP::SepClientC>> silent;
    Bytes requests;
    for (int i = 0; i < 250; ++i) {
        const Bytes frame = SEP::encodeFrame(SEP::CodingE::Binary, kBulk, SEP::MESSAGE_KIND_COMMAND, {}, {}, {});
        requests.insert(requests.end(), frame.begin(), frame.end());
    }
    for (int i = 0; i < 8; ++i) {
        silent.push_back(connect());
        ASSERT_TRUE(silent.back()->sendBytes(requests));
    }
    auto reader = connect();
    for (std::uint32_t i = 0; i < 20; ++i)
        ASSERT_EQ(increment(*reader, i), static_cast<long>(i) + 1) << "held back behind the silent clients";
}

TEST_F(TcpServerTest, AClientThatNeverReadsItsRepliesIsDroppedWhileOthersAreServed)
{
    start(BSS::NET::defaultAllowedRanges(), false, 50);
    auto silent = connect();
    auto other = connect();
    ASSERT_EQ(increment(*other, 0), 1);
    // Requests whose replies the silent client never reads, until the server gives up on it: what it holds
    // for the client is bounded by the socket buffers, and the other client keeps being answered.
    Bytes requests;
    for (std::uint32_t i = 0; i < 4096; ++i) {
        const Bytes frame = SEP::encodeFrame(SEP::CodingE::Binary, kIncrement, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                             [&](SEP::DataWriterI& w) { return w.writeU32(i); });
        requests.insert(requests.end(), frame.begin(), frame.end());
    }
    bool dropped = false;
    for (std::uint32_t round = 0; round < 500 && !dropped; ++round) {
        dropped = !silent->sendBytes(requests) ||
                  findMessage(logMessages(), "NetTcpIpServerC::writeData timeout (50ms) exceeded") >= 0;
        EXPECT_EQ(increment(*other, round), round + 1);
    }
    EXPECT_TRUE(dropped);
    drainUntilClosed(*silent);
    EXPECT_EQ(increment(*other, 9), 10);
    EXPECT_EQ(server->server().clientCount(), 1u);
}

// A busy client's next command is read by its connection's own thread; a pause gives the reads back to the
// port's I/O task. Nothing may be lost at either hand-over, and an end seen by either reader closes the
// connection.
TEST_F(TcpServerTest, AClientThatKeepsSendingOrPausesOrLeavesRightAfterAReplyIsServedAndItsEndIsSeen)
{
    start();
    auto busy = connect();
    for (std::uint32_t value = 0; value < 300; ++value)
        ASSERT_EQ(increment(*busy, value), value + 1) << "closed loop, command " << value;
    // Longer than the thread reads on: the next command reaches the I/O task first.
    platform::sleepMs(100);
    EXPECT_EQ(increment(*busy, 7, SEP::CodingE::Ascii), 8);
    EXPECT_EQ(increment(*busy, 8), 9);

    // Gone while its thread waits on the socket for more.
    busy.reset();
    auto other = connect();
    ASSERT_EQ(increment(*other, 1), 2);
    EXPECT_TRUE(eventually([&] { return server->server().clientCount() == 1; }))
        << "the closed client was not seen: " << server->server().clientCount() << " clients";

    // Stopped while a thread waits on its client's socket: the stop does not wait for the client.
    ASSERT_EQ(increment(*other, 2), 3);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(server->stop());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    drainUntilClosed(*other);
}

TEST_F(TcpServerTest, EventsReachEveryClientAndStopClosesThem)
{
    start();
    auto first = connect();
    auto second = connect();
    ASSERT_EQ(increment(*first, 0), 1);
    ASSERT_EQ(increment(*second, 0, SEP::CodingE::Ascii), 1);
    EXPECT_TRUE(server->readerWriter().sendToAll(1000, SEP::MESSAGE_KIND_EVENT, [](SEP::DataWriterI& w) {
        return w.writeI32(1097) && w.writeI32(10) && w.writeU16(0) && w.writeI32(1);
    }));
    for (auto* client : {first.get(), second.get()}) {
        Bytes frame;
        SEP::DecodedFrameT event;
        ASSERT_TRUE(client->receiveFrame(frame, kWaitMs));
        ASSERT_TRUE(SEP::decodeFrame(frame, event));
        EXPECT_EQ(event.kind, SEP::MESSAGE_KIND_EVENT);
        EXPECT_EQ(event.messageId, 1000);
    }

    EXPECT_TRUE(server->stop());
    drainUntilClosed(*first);
    drainUntilClosed(*second);
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"stop", "Stopping", "onStop", "cleanup"}));
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& line) {
                                return line.rfind("acceptOrReceive: connection closed by closeClientConnections ", 0) ==
                                       0;
                            }),
              2)
        << "one line for each connection the stop closed";
}

}  // namespace
}  // namespace halvern::test
