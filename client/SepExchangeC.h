#pragma once
// One command and its reply as records: the request is encoded and the reply decoded by the same record
// classes the server uses, so halvernctl cannot disagree with Halvern about a field's place or width.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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
    Refused,       // halvernctl itself refused what was asked, from what the instrument told it
};

// The reply of command `id` on `client`, waiting up to `timeoutMs`; other messages (events, replies to
// other ids) are passed over. On failure `failure` says what happened: the server's refusal text when it
// sent one, else "no reply".
// `tick`, when given, is called about once a second with the time waited so far; events that arrive
// meanwhile go to `events` when given.
bool receiveReply(SepClientC& client, std::uint16_t id, std::uint32_t timeoutMs, DecodedFrameT& reply,
                  std::string& failure, const std::function<void(std::uint32_t)>& tick = {},
                  std::vector<DecodedFrameT>* events = nullptr);

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
    // What to do about it, when this side knows better than the error text's own hint.
    const std::string& hint() const { return m_hint; }
    // Ends a command that asked the instrument first and found the request cannot succeed.
    ExchangeResultE refuse(std::string failure, std::string hint = {});

    // Progress of the long waits below: what is awaited and for how long so far; called about once a
    // second, and with an empty text when the wait is over.
    using ProgressFn = std::function<void(const std::string& what, std::uint32_t elapsedMs)>;
    void setProgress(ProgressFn progress) { m_progress = std::move(progress); }
    // call() with a reply wait of its own, for commands that answer when their work is done.
    ExchangeResultE callWaiting(std::uint16_t id, MAL::UTI::SerializableI* request, MAL::UTI::SerializableI* reply,
                                std::uint32_t timeoutMs, const std::string& what);
    // The next event `id` on this connection (also one that came while a reply was awaited), its record
    // decoded into `record`.
    ExchangeResultE awaitEvent(std::uint16_t id, std::uint32_t timeoutMs, const std::string& what,
                               MAL::UTI::SerializableI& record);
    // Waits until Halvern closes this connection; Done when it did within `timeoutMs`.
    ExchangeResultE awaitClose(std::uint32_t timeoutMs, const std::string& what);
    // The id of the last command asked, 0 before the first.
    std::uint16_t lastId() const { return m_lastId; }

private:
    std::string m_host;
    std::uint16_t m_port;
    CodingE m_coding;
    std::uint32_t m_timeoutMs;
    SepClientC m_client;
    std::string m_failure;
    std::string m_hint;
    std::uint16_t m_lastId = 0;
    ProgressFn m_progress;
    std::vector<DecodedFrameT> m_events;
};

}  // namespace SEP
