#include "sep/SerialFramerC.h"

namespace MAL::UTI {

namespace {

// Appends `length` bytes with CR and the escape byte escaped; the plain runs between them go in one piece.
void appendEscaped(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& out)
{
    std::size_t plain = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (message[i] != SerialFramerC::CR && message[i] != SerialFramerC::ESCAPE) continue;
        out.insert(out.end(), message + plain, message + i);
        out.push_back(SerialFramerC::ESCAPE);
        out.push_back(message[i] == SerialFramerC::CR ? SerialFramerC::ESCAPED_CR : SerialFramerC::ESCAPE);
        plain = i + 1;
    }
    out.insert(out.end(), message + plain, message + length);
}

}  // namespace

void SerialFramerC::frame(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& out)
{
    out.reserve(out.size() + length + 2);
    appendEscaped(message, length, out);
    out.push_back(CR);
    out.push_back(LF);
}

bool SerialFramerC::takeFramed(RingBufferC& sendBuffer, std::vector<std::uint8_t>& out)
{
    RingBufferReadLockC lock(sendBuffer);
    // Framed where it lies in the buffer: no copy of the message first.
    RingBufferC::SpanT first, second;
    if (!sendBuffer.frontMessageSpans(first, second)) return false;
    out.reserve(out.size() + first.length + second.length + 2);
    appendEscaped(first.data, first.length, out);
    appendEscaped(second.data, second.length, out);
    out.push_back(CR);
    out.push_back(LF);
    sendBuffer.popMessage();
    return true;
}

}  // namespace MAL::UTI
