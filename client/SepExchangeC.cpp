#include "client/SepExchangeC.h"

#include "sep/RecordCoding.h"
#include "sep/server/HalvernSepImpl.h"

namespace SEP {

bool receiveReply(SepClientC& client, std::uint16_t id, std::uint32_t timeoutMs, DecodedFrameT& reply,
                  std::string& failure)
{
    for (;;) {
        std::vector<std::uint8_t> received;
        if (!client.receiveFrame(received, timeoutMs)) {
            // A server that turns a client away writes one NUL-terminated line without framing.
            const auto& raw = client.rawBytes();
            if (!raw.empty() && raw.back() == 0)
                failure = reinterpret_cast<const char*>(raw.data());
            else
                failure = "no reply";
            return false;
        }
        if (!decodeFrame(received, reply)) continue;
        if (reply.kind == MESSAGE_KIND_REPLY && reply.messageId == id) return true;
    }
}

bool readReplyHeader(DataReaderI& reader, bool& success, std::string* failure)
{
    std::int32_t code = 0, facility = 0;
    std::uint16_t level = 0;
    if (!reader.readI32(code) || !reader.readI32(facility) || !reader.readU16(level)) return false;
    constexpr std::uint16_t kHighestNotificationLevel = 2;
    if (level > kHighestNotificationLevel) {
        if (failure != nullptr) *failure = "Invalid NotificationLevel: " + std::to_string(level);
        return false;
    }
    success = code == HalvernRpc::kReturnCodeSuccess && facility == HalvernRpc::kFacility;
    return true;
}

SepExchangeC::SepExchangeC(std::string host, std::uint16_t port, CodingE coding, std::uint32_t timeoutMs)
    : m_host(std::move(host)), m_port(port), m_coding(coding), m_timeoutMs(timeoutMs)
{}

ExchangeResultE SepExchangeC::call(std::uint16_t id, MAL::UTI::SerializableI* request, MAL::UTI::SerializableI* reply)
{
    m_failure.clear();
    m_lastId = id;
    const auto frame = encodeFrame(m_coding, id, MESSAGE_KIND_COMMAND, {}, {}, [request](DataWriterI& writer) {
        return request == nullptr || encodeRecord(writer, *request);
    });
    if (frame.empty()) {
        m_failure = "the request cannot be coded (a text with a control character?)";
        return ExchangeResultE::NotEncodable;
    }
    if (!m_client.isConnected() && !m_client.connect(m_host, m_port)) {
        m_failure = "cannot connect to " + m_host + ":" + std::to_string(m_port);
        return ExchangeResultE::NoConnection;
    }
    if (!m_client.sendBytes(frame)) {
        m_failure = "sending failed";
        return ExchangeResultE::NoConnection;
    }
    DecodedFrameT decoded;
    if (!receiveReply(m_client, id, m_timeoutMs, decoded, m_failure)) return ExchangeResultE::NoReply;
    bool success = false;
    if (!readReplyHeader(*decoded.coder, success, &m_failure)) {
        if (m_failure.empty()) m_failure = "the reply has no complete header";
        return ExchangeResultE::ShortReply;
    }
    if (!success) {
        if (!decoded.coder->readString(m_failure)) m_failure = "error reply without its text";
        return ExchangeResultE::ErrorReply;
    }
    if (reply != nullptr && decodeRecord(*decoded.coder, *reply) != DecodeResultE::Ok) {
        m_failure = "the reply does not hold the whole record";
        return ExchangeResultE::ShortReply;
    }
    return ExchangeResultE::Done;
}

}  // namespace SEP
