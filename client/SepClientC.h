#pragma once
// The client end of SEP over TCP: the same coders and framing as the server, a blocking connection and
// decoding of what comes back.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/RingBufferC.h"
#include "platform/Socket.h"
#include "sep/DataCoderI.h"
#include "sep/ReaderConnectionC.h"

namespace SEP {

enum class CodingE { Binary, Ascii };

std::unique_ptr<DataCoderI> makeCoder(CodingE coding);

// One message ready to go on the wire (escaped, with CR LF), or empty when the writer refused it.
std::vector<std::uint8_t> encodeFrame(CodingE coding, std::uint16_t messageId, std::uint32_t kind,
                                      const AddressC& source, const AddressC& destination,
                                      const std::function<bool(DataWriterI&)>& fields);

// A received frame with its header decoded by whichever coding could read it; `coder` then reads the
// parameters.
struct DecodedFrameT {
    std::vector<std::uint8_t> bytes;
    std::unique_ptr<DataCoderI> coder;
    CodingE coding = CodingE::Binary;
    std::uint32_t kind = 0;
    std::uint16_t messageId = 0;
    AddressC source;
    AddressC destination;
};

// Decodes the header of `frame` (binary tried first, as the server does); false when neither coding can.
bool decodeFrame(std::vector<std::uint8_t> frame, DecodedFrameT& decoded);

class SepClientC {
public:
    SepClientC();
    // Blocking connect to a dotted-quad address ("localhost" is 127.0.0.1).
    bool connect(const std::string& host, std::uint16_t port);
    bool isConnected() const { return static_cast<bool>(m_socket); }
    void close() { m_socket.reset(); }

    bool sendBytes(const std::vector<std::uint8_t>& bytes);
    // The next complete frame, waiting up to `timeoutMs` of the installed clock; false on time-out or
    // when the server closed the connection (see closed()).
    bool receiveFrame(std::vector<std::uint8_t>& frame, std::uint32_t timeoutMs);
    // Every byte received so far as it came off the wire (for texts the server sends without framing).
    const std::vector<std::uint8_t>& rawBytes() const { return m_raw; }
    bool closed() const { return m_closed; }

private:
    bool pump(std::uint32_t timeoutMs);

    platform::UniqueSocket m_socket;
    MAL::UTI::RingBufferC m_receiveBuffer;
    MAL::HAL::ReaderConnectionC m_readerConnection;
    std::vector<std::uint8_t> m_raw;
    bool m_closed = false;
};

}  // namespace SEP
