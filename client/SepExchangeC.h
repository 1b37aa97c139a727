#pragma once
// One command and its reply as records: the request is encoded and the reply decoded by the same record
// classes the server uses, so halvernctl cannot disagree with Halvern about a field's place or width.
#include <cstdint>
#include <string>

#include "client/SepClientC.h"
#include "framework/SerializableI.h"

namespace SEP {

enum class ExchangeResultE {
    Done,          // success reply, record decoded
    NotEncodable,  // the request could not be coded (nothing was sent)
    NoConnection,  // could not connect or send
    NoReply,       // no reply in time, the connection closed, or the server refused the client
    ErrorReply,    // the server answered with its error header and text
    ShortReply,    // success header, but the reply does not hold the whole record
};

// The reply of command `id` on `client`, waiting up to `timeoutMs`; other messages (events, replies to
// other ids) are passed over. On failure `failure` says what happened: the server's refusal text when it
// sent one, else "no reply".
bool receiveReply(SepClientC& client, std::uint16_t id, std::uint32_t timeoutMs, DecodedFrameT& reply,
                  std::string& failure);

// Reads the reply header; true with `success` set when it could be read. A notification level above the
// three the protocol knows (0..2) is no header either: `failure` then says "Invalid NotificationLevel: "
// and the level.
bool readReplyHeader(DataReaderI& reader, bool& success, std::string* failure = nullptr);

class SepExchangeC {
public:
    SepExchangeC(std::string host, std::uint16_t port, CodingE coding, std::uint32_t timeoutMs);

    // Connects on first use and keeps the connection for the commands that follow. `request` and `reply`
    // are null for a command without that record.
    ExchangeResultE call(std::uint16_t id, MAL::UTI::SerializableI* request, MAL::UTI::SerializableI* reply);
    // After a failed call: the server's error text, or what went wrong on this side.
    const std::string& failure() const { return m_failure; }
    // The id of the last command asked, 0 before the first.
    std::uint16_t lastId() const { return m_lastId; }

private:
    std::string m_host;
    std::uint16_t m_port;
    CodingE m_coding;
    std::uint32_t m_timeoutMs;
    SepClientC m_client;
    std::string m_failure;
    std::uint16_t m_lastId = 0;
};

}  // namespace SEP
