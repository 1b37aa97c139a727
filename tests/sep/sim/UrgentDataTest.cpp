// A peer that sends urgent (out-of-band) TCP data: no SEP client does, and the condition stays raised until
// the byte is read, so the port closes that connection once instead of meeting it on every pass.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "client/SepClientC.h"
#include "platform/sim/UniqueFd.h"
#include "sep/SepTestSupport.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

constexpr std::uint16_t kEcho = 1001;

class UrgentDataTest : public InstrumentTest {};

TEST_F(UrgentDataTest, AConnectionWithUrgentDataIsClosedOnceAndTheOthersAreServed)
{
    auto config = HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(0);
    config.listenAddress = platform::kLoopbackAddress;
    HalvernRpc::TcpIpServerChannelSetupC server(config);
    server.channel().registerCommandHandler(kEcho, [](SEP::ReceivedCommandC& command) {
        command.sendReply([](SEP::DataWriterI&) { return true; });
    });
    ASSERT_TRUE(server.start(3600000));

    platform::sim::UniqueFd peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(peer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(peer.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const char urgent = '!';
    ASSERT_EQ(::send(peer.get(), &urgent, 1, MSG_OOB), 1);

    // The server ends the connection: the peer reads its end within the bound.
    bool ended = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!ended && std::chrono::steady_clock::now() < deadline) {
        pollfd watched{peer.get(), POLLIN, 0};
        if (::poll(&watched, 1, 100) <= 0) continue;
        char byte = 0;
        const ssize_t received = ::recv(peer.get(), &byte, 1, 0);
        ended = received == 0 || (received < 0 && errno != EAGAIN && errno != EINTR);
    }
    EXPECT_TRUE(ended) << "the connection with urgent data stayed open";
    const auto messages = logMessages();
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& line) {
                                return line.rfind("acceptOrReceive: exception on connection ", 0) == 0;
                            }),
              1);

    SEP::SepClientC other;
    ASSERT_TRUE(other.connect("127.0.0.1", server.port()));
    ASSERT_TRUE(other.sendBytes(SEP::encodeFrame(SEP::CodingE::Binary, kEcho, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                                 [](SEP::DataWriterI&) { return true; })));
    Bytes reply;
    SEP::DecodedFrameT decoded;
    ASSERT_TRUE(other.receiveFrame(reply, 10000));
    ASSERT_TRUE(SEP::decodeFrame(reply, decoded));
    EXPECT_EQ(decoded.kind, SEP::MESSAGE_KIND_REPLY);
    EXPECT_EQ(decoded.messageId, kEcho);
}

}  // namespace
}  // namespace halvern::test
