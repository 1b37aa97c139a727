// Where received frames go: channels of this node, other nodes, or the log's drop lines; and the
// invariants that stop the program when the set-up is wrong.
#include <gtest/gtest.h>

#include "client/SepClientC.h"
#include "framework/Panic.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/RoutingChannelC.h"
#include "sep/SepTestSupport.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using SEP::AddressC;

constexpr std::uint8_t kNode = 4;

struct RecordedT {
    std::uint32_t kind;
    std::uint16_t id;
    AddressC source;
    AddressC destination;
};

class RecordingChannelC : public SEP::ChannelI {
public:
    explicit RecordingChannelC(std::uint8_t id) : m_id(id) {}
    void receive(SEP::DataReaderI&, const SEP::DataCoderI&, std::uint32_t kind, std::uint16_t id,
                 const AddressC& source, const AddressC& destination, SEP::ConnectionHandlerC&) override
    {
        received.push_back({kind, id, source, destination});
    }
    AddressC sourceAddress() const override { return AddressC(kNode, m_id); }
    AddressC destinationAddress() const override { return {}; }
    std::uint8_t channelId() const override { return m_id; }
    std::vector<RecordedT> received;

private:
    std::uint8_t m_id;
};

class RouterTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        router.setNodeId(kNode);
        router.addCoder(binary);
        router.addCoder(ascii);
    }
    void TearDown() override
    {
        MAL::setPanicHandler(nullptr);
        InstrumentTest::TearDown();
    }
    // Bytes the router would send out on a connection.
    std::unique_ptr<SEP::ConnectionHandlerC> connection(Bytes& sent)
    {
        return std::make_unique<SEP::ConnectionHandlerC>(router, [&sent](const std::uint8_t* data, std::size_t length) {
            sent.insert(sent.end(), data, data + length);
            return true;
        });
    }
    void receive(SEP::ConnectionHandlerC& from, const Bytes& wire) { from.onBytesReceived(wire.data(), wire.size()); }
    static Bytes command(SEP::CodingE coding, std::uint16_t id, const AddressC& source, const AddressC& destination)
    {
        return SEP::encodeFrame(coding, id, SEP::MESSAGE_KIND_COMMAND, source, destination,
                                [](SEP::DataWriterI& w) { return w.writeU32(77); });
    }

    SEP::RouterC router;
    SEP::BinaryCoderC binary;
    SEP::AsciiCoderC ascii;
};

TEST_F(RouterTest, UnaddressedFramesReachTheDefaultChannelAddressedOnesTheirChannel)
{
    RecordingChannelC fallback(SEP::INVALID_CHANNEL_ID), seven(7);
    router.setDefaultChannel(fallback);
    ASSERT_TRUE(router.registerChannel(seven));
    Bytes sent;
    auto from = connection(sent);
    receive(*from, command(SEP::CodingE::Binary, 1001, {}, {}));
    receive(*from, command(SEP::CodingE::Ascii, 1002, AddressC(9, 1), AddressC(kNode, 7)));
    receive(*from, command(SEP::CodingE::Binary, 1003, AddressC(9, 1), AddressC(kNode, SEP::INVALID_CHANNEL_ID)));
    ASSERT_EQ(fallback.received.size(), 2u);
    EXPECT_EQ(fallback.received[0].id, 1001);
    EXPECT_EQ(fallback.received[1].id, 1003);
    ASSERT_EQ(seven.received.size(), 1u);
    EXPECT_EQ(seven.received[0].source, AddressC(9, 1));
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(RouterTest, DropsWhatHasNoPlaceWithItsLogLine)
{
    RecordingChannelC fallback(SEP::INVALID_CHANNEL_ID);
    Bytes sent;
    auto from = connection(sent);
    receive(*from, command(SEP::CodingE::Binary, 1, AddressC(9, 1), AddressC(kNode, 3)));
    router.setDefaultChannel(fallback);
    receive(*from, command(SEP::CodingE::Binary, 2, AddressC(9, 1), AddressC(SEP::INVALID_NODE_ID, 3)));
    receive(*from, command(SEP::CodingE::Ascii, 3, AddressC(9, 1), AddressC(12, 3)));
    receive(*from, Bytes{'h', 'e', 'l', 'l', 'o', 0x0D, 0x0A});
    EXPECT_TRUE(fallback.received.empty());
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(logMessages(),
              (std::vector<std::string>{
                  "SEP::RouterC::handleIncomingMessage ignore message (destination channel not registered or default "
                  "channel not set)",
                  "SEP::RouterC::handleIncomingMessage ignore message",
                  "SEP::RouterC::handleIncomingMessage ignore message (destination node not in routing table)",
                  "SEP::RouterC::handleIncomingMessage ignore message (no installed coder can parse it) - size: 5"}));
}

TEST_F(RouterTest, ForwardsFramesForAKnownNodeByteForByte)
{
    Bytes fromSent, routeSent;
    auto from = connection(fromSent);
    auto route = connection(routeSent);
    ASSERT_TRUE(router.addRoute(12, *route));
    for (auto coding : {SEP::CodingE::Binary, SEP::CodingE::Ascii}) {
        routeSent.clear();
        const Bytes wire = command(coding, 1005, AddressC(9, 1), AddressC(12, 3));
        receive(*from, wire);
        EXPECT_EQ(routeSent, wire);
    }
    EXPECT_TRUE(fromSent.empty());
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(RouterTest, AnsweredCommandsGoBackInTheirCodingToTheirSender)
{
    SEP::RoutingChannelC channel(router, 2, AddressC(9, 1));
    ASSERT_TRUE(channel.isValid());
    ASSERT_TRUE(router.registerChannel(channel));
    channel.registerCommandHandler(1001, [](SEP::ReceivedCommandC& request) {
        std::uint32_t value = 0;
        ASSERT_TRUE(request.reader().readU32(value));
        request.sendReply([&](SEP::DataWriterI& w) { return w.writeU32(value + 1); });
    });
    Bytes sent;
    auto from = connection(sent);
    receive(*from, command(SEP::CodingE::Ascii, 1001, AddressC(9, 1), AddressC(kNode, 2)));
    const Bytes expected = SEP::encodeFrame(SEP::CodingE::Ascii, 1001, SEP::MESSAGE_KIND_REPLY, AddressC(kNode, 2),
                                            AddressC(9, 1), [](SEP::DataWriterI& w) { return w.writeU32(78); });
    EXPECT_EQ(sent, expected);
}

TEST_F(RouterTest, BrokenInvariantsPanicNamingTheCondition)
{
    std::vector<std::string> panics;
    MAL::setPanicHandler([&](const std::string& condition, const char*, int) { panics.push_back(condition); });
    SEP::RouterC fresh;
    RecordingChannelC channel(3), other(SEP::INVALID_CHANNEL_ID);
    Bytes sent;
    auto handler = connection(sent);
    EXPECT_FALSE(fresh.registerChannel(channel));
    SEP::ConnectionHandlerC freshHandler(fresh, nullptr);
    EXPECT_FALSE(fresh.addRoute(5, freshHandler));
    router.setDefaultChannel(channel);
    EXPECT_FALSE(router.removeDefaultChannel(other));
    EXPECT_FALSE(router.removeDefaultConnectionHandler(*handler));
    SEP::RoutingChannelC invalid(router, 3, AddressC());
    EXPECT_FALSE(invalid.isValid());
    EXPECT_EQ(panics, (std::vector<std::string>{
                          "m_nodeId != INVALID_NODE_ID || channelId == INVALID_CHANNEL_ID",
                          "m_nodeId != INVALID_NODE_ID || destinationNodeId == INVALID_NODE_ID",
                          "m_defaultChannel == &channel", "m_defaultConnectionHandler == &connectionHandler",
                          "(id != INVALID_CHANNEL_ID && destinationAddress.isValid() && destinationAddress.getNodeId() "
                          "!= INVALID_NODE_ID && destinationAddress.getChannelId() != INVALID_CHANNEL_ID) || (id == "
                          "INVALID_CHANNEL_ID && !destinationAddress.isValid())"}));
}

}  // namespace
}  // namespace halvern::test
