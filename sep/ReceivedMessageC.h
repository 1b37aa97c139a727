#pragma once
// A decoded message as a handler sees it: its header, the reader positioned at its first parameter and,
// for a command, the way back for the one reply.
#include <cstdint>
#include <functional>

#include "sep/Address.h"
#include "sep/ConnectionHandlerC.h"
#include "sep/DataCoderI.h"

namespace SEP {

class ReceivedEventC {
public:
    ReceivedEventC(DataReaderI& reader, std::uint16_t messageId, const AddressC& source, const AddressC& destination)
        : m_reader(reader), m_messageId(messageId), m_source(source), m_destination(destination)
    {}
    DataReaderI& reader() { return m_reader; }
    std::uint16_t messageId() const { return m_messageId; }
    const AddressC& source() const { return m_source; }
    const AddressC& destination() const { return m_destination; }

private:
    DataReaderI& m_reader;
    std::uint16_t m_messageId;
    AddressC m_source;
    AddressC m_destination;
};

class ReceivedCommandC : public ReceivedEventC {
public:
    using FieldsFn = ConnectionHandlerC::FieldsFn;

    ReceivedCommandC(DataReaderI& reader, std::uint16_t messageId, const AddressC& source, const AddressC& destination,
                     ConnectionHandlerC& connection)
        : ReceivedEventC(reader, messageId, source, destination), m_connection(connection)
    {}

    enum class ReplyResultE { Sent, NotEncoded, NotSent };

    // Writes the reply (same id, kind reply; for an addressed command addressed back to its sender, with
    // the command's two addresses swapped) in the command's coding and sends it on the connection that it
    // came from. NotEncoded: the coding refused a field (a string with a character it cannot carry, a
    // message above 64 KiB), nothing was sent; NotSent: the connection could not take it.
    ReplyResultE reply(const FieldsFn& fields);
    bool sendReply(const FieldsFn& fields) { return reply(fields) == ReplyResultE::Sent; }

private:
    ConnectionHandlerC& m_connection;
};

}  // namespace SEP
