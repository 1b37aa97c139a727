#pragma once
// A SEP port with the instrument's command set and a client that asks it: what a frontend sees.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "client/SepClientC.h"
#include "framework/SerializableI.h"
#include "sep/Crc16.h"
#include "sep/RecordCoding.h"
#include "sep/SerialFramerC.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/server/SepServer.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {

// A reply as the client library reads it: the header, then either the record's reader or the error text.
struct CommandReplyT {
    bool received = false;
    std::int32_t returnCode = 0;
    std::int32_t facility = 0;
    std::uint16_t level = 0;
    std::string errorText;
    SEP::DecodedFrameT frame;
};

// A command frame for `id` with `fields`, as a client library writes it.
inline std::vector<std::uint8_t> commandFrame(std::uint16_t id,
                                              const std::function<bool(SEP::DataWriterI&)>& fields = {},
                                              SEP::CodingE coding = SEP::CodingE::Binary)
{
    return SEP::encodeFrame(coding, id, SEP::MESSAGE_KIND_COMMAND, {}, {}, fields);
}

// The next frame `client` reads, as the reply to command `id`; `received` stays false when none came.
inline CommandReplyT readReply(SEP::SepClientC& client, std::uint16_t id, std::uint32_t waitMs = 10000)
{
    CommandReplyT reply;
    std::vector<std::uint8_t> bytes;
    if (!client.receiveFrame(bytes, waitMs) || !SEP::decodeFrame(bytes, reply.frame)) return reply;
    auto& coder = *reply.frame.coder;
    if (reply.frame.kind != SEP::MESSAGE_KIND_REPLY || reply.frame.messageId != id ||
        !coder.readI32(reply.returnCode) || !coder.readI32(reply.facility) || !coder.readU16(reply.level))
        return reply;
    if (reply.returnCode != HalvernRpc::kReturnCodeSuccess && !coder.readString(reply.errorText)) return reply;
    reply.received = true;
    return reply;
}

class SepCommandPort {
public:
    SepCommandPort()
    {
        BSS::NET::NetTcpIpServerCfgT config = HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(0);
        config.listenAddress = platform::kLoopbackAddress;
        m_server = std::make_unique<HalvernRpc::TcpIpServerChannelSetupC>(config);
        HalvernSepImpl::RegisterHandlers(m_server->channel());
        EXPECT_TRUE(m_server->start(3600000));
        EXPECT_TRUE(m_client.connect("127.0.0.1", m_server->port()));
    }

    // Sends command `id` with `fields` and reads the reply; `received` stays false when none came.
    CommandReplyT ask(std::uint16_t id, const std::function<bool(SEP::DataWriterI&)>& fields = {},
                      SEP::CodingE coding = SEP::CodingE::Binary, std::uint32_t waitMs = 10000)
    {
        return askWire(id, commandFrame(id, fields, coding), waitMs);
    }

    // Sends `wire` as it is (a command frame for `id`) and reads the reply.
    CommandReplyT askWire(std::uint16_t id, const std::vector<std::uint8_t>& wire, std::uint32_t waitMs = 10000)
    {
        if (!m_client.sendBytes(wire)) return {};
        return readReply(m_client, id, waitMs);
    }

    // The same with the fields of `record`, as the command's own record class encodes them.
    CommandReplyT askRecord(std::uint16_t id, MAL::UTI::SerializableI& record)
    {
        return ask(id, [&record](SEP::DataWriterI& writer) { return SEP::encodeRecord(writer, record); });
    }

    HalvernRpc::TcpIpServerChannelSetupC& server() { return *m_server; }
    SEP::SepClientC& client() { return m_client; }

private:
    std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC> m_server;
    SEP::SepClientC m_client;
};

// A binary command frame with `parameters` as they are, also bytes that no coder would write (the
// receiving side takes any byte but the double quote inside a string).
inline std::vector<std::uint8_t> rawBinaryCommand(std::uint16_t id, const std::vector<std::uint8_t>& parameters)
{
    std::vector<std::uint8_t> message{
        0xD3, 0, 0, 0, 0, 0x00, static_cast<std::uint8_t>(id & 0xFF), static_cast<std::uint8_t>(id >> 8)};
    message.insert(message.end(), parameters.begin(), parameters.end());
    message[3] = static_cast<std::uint8_t>(message.size() & 0xFF);
    message[4] = static_cast<std::uint8_t>(message.size() >> 8);
    std::uint16_t crc = SEP::crc16(message.data(), 1);
    crc = SEP::crc16(message.data() + 3, message.size() - 3, crc);
    message[1] = static_cast<std::uint8_t>(crc & 0xFF);
    message[2] = static_cast<std::uint8_t>(crc >> 8);
    std::vector<std::uint8_t> wire;
    MAL::UTI::SerialFramerC::frame(message.data(), message.size(), wire);
    return wire;
}

// An instrument whose command set a client reaches through one port; the system manager goes with the
// test.
class SepPortTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        port = std::make_unique<SepCommandPort>();
    }
    void TearDown() override
    {
        port.reset();
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    std::unique_ptr<SepCommandPort> port;
};

// One client per running port of the instrument, each known to its server (it has had an answer), so
// that an event raised afterwards reaches it.
inline std::vector<std::unique_ptr<SEP::SepClientC>> connectToEveryPort()
{
    std::vector<std::unique_ptr<SEP::SepClientC>> clients;
    forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
        clients.push_back(std::make_unique<SEP::SepClientC>());
        EXPECT_TRUE(clients.back()->connect("127.0.0.1", server.port()));
        std::vector<std::uint8_t> frame;
        EXPECT_TRUE(clients.back()->sendBytes(
            SEP::encodeFrame(SEP::CodingE::Binary, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, {})));
        EXPECT_TRUE(clients.back()->receiveFrame(frame, 10000));
        return true;
    });
    return clients;
}

}  // namespace halvern::test
