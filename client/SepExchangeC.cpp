#include "client/SepExchangeC.h"

#include <algorithm>

#include "sep/RecordCoding.h"
#include "sep/CommandSet.h"

namespace SEP {

bool receiveReply(SepClientC& client, std::uint16_t id, std::uint32_t timeoutMs, DecodedFrameT& reply,
                  std::string& failure, const std::function<void(std::uint32_t)>& tick,
                  std::vector<DecodedFrameT>* events)
{
    std::uint32_t waited = 0;
    for (;;) {
        std::vector<std::uint8_t> received;
        // With a tick the wait goes in slices of a second; the last slice ends the whole wait.
        const std::uint32_t slice = tick ? std::min<std::uint32_t>(1000, timeoutMs - waited) : timeoutMs;
        if (!client.receiveFrame(received, slice)) {
            if (tick && !client.closed() && waited + slice < timeoutMs) {
                waited += slice;
                tick(waited);
                continue;
            }
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
        if (reply.kind == MESSAGE_KIND_EVENT && events != nullptr) events->push_back(std::move(reply));
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
    return callWaiting(id, request, reply, m_timeoutMs, {});
}

ExchangeResultE SepExchangeC::callWaiting(std::uint16_t id, MAL::UTI::SerializableI* request,
                                          MAL::UTI::SerializableI* reply, std::uint32_t timeoutMs,
                                          const std::string& what)
{
    m_failure.clear();
    m_hint.clear();
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
    std::function<void(std::uint32_t)> tick;
    if (!what.empty() && m_progress) tick = [this, &what](std::uint32_t waited) { m_progress(what, waited); };
    const bool replied = receiveReply(m_client, id, timeoutMs, decoded, m_failure, tick, &m_events);
    if (tick) m_progress({}, 0);
    if (!replied) return ExchangeResultE::NoReply;
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

ExchangeResultE SepExchangeC::awaitEvent(std::uint16_t id, std::uint32_t timeoutMs, const std::string& what,
                                         MAL::UTI::SerializableI& record)
{
    m_failure.clear();
    m_hint.clear();
    const auto decode = [&](DecodedFrameT& event) {
        bool success = false;
        if (!readReplyHeader(*event.coder, success) || !success ||
            decodeRecord(*event.coder, record) != DecodeResultE::Ok) {
            m_failure = "event " + std::to_string(id) + " does not hold its record";
            return ExchangeResultE::ShortReply;
        }
        return ExchangeResultE::Done;
    };
    for (auto it = m_events.begin(); it != m_events.end(); ++it)
        if (it->messageId == id) {
            DecodedFrameT event = std::move(*it);
            m_events.erase(it);
            return decode(event);
        }
    for (std::uint32_t waited = 0; waited < timeoutMs;) {
        std::vector<std::uint8_t> received;
        const std::uint32_t slice = std::min<std::uint32_t>(1000, timeoutMs - waited);
        if (!m_client.receiveFrame(received, slice)) {
            if (m_client.closed()) break;
            waited += slice;
            if (m_progress) m_progress(what, waited);
            continue;
        }
        DecodedFrameT event;
        if (!decodeFrame(received, event) || event.kind != MESSAGE_KIND_EVENT || event.messageId != id) continue;
        if (m_progress) m_progress({}, 0);
        return decode(event);
    }
    if (m_progress) m_progress({}, 0);
    m_failure = m_client.closed() ? "the connection closed before " + what + " ended"
                                  : "no outcome of " + what + " within " + std::to_string(timeoutMs / 1000) + " s";
    return ExchangeResultE::NoReply;
}

ExchangeResultE SepExchangeC::awaitClose(std::uint32_t timeoutMs, const std::string& what)
{
    m_failure.clear();
    m_hint.clear();
    for (std::uint32_t waited = 0; waited < timeoutMs && !m_client.closed();) {
        std::vector<std::uint8_t> received;
        const std::uint32_t slice = std::min<std::uint32_t>(1000, timeoutMs - waited);
        if (!m_client.receiveFrame(received, slice) && !m_client.closed()) {
            waited += slice;
            if (m_progress) m_progress(what, waited);
        }
    }
    if (m_progress) m_progress({}, 0);
    if (m_client.closed()) return ExchangeResultE::Done;
    m_failure = "Halvern kept running for " + std::to_string(timeoutMs / 1000) + " s after " + what + " began";
    return ExchangeResultE::NoReply;
}

ExchangeResultE SepExchangeC::refuse(std::string failure, std::string hint)
{
    m_failure = std::move(failure);
    m_hint = std::move(hint);
    return ExchangeResultE::Refused;
}

}  // namespace SEP
