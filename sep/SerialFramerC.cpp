#include "sep/SerialFramerC.h"

namespace MAL::UTI {

void SerialFramerC::frame(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& out)
{
    out.reserve(out.size() + length + 2);
    std::size_t plain = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (message[i] != CR && message[i] != ESCAPE) continue;
        // The plain bytes before it go in one piece.
        out.insert(out.end(), message + plain, message + i);
        out.push_back(ESCAPE);
        out.push_back(message[i] == CR ? ESCAPED_CR : ESCAPE);
        plain = i + 1;
    }
    out.insert(out.end(), message + plain, message + length);
    out.push_back(CR);
    out.push_back(LF);
}

bool SerialFramerC::takeFramed(RingBufferC& sendBuffer, std::vector<std::uint8_t>& out)
{
    RingBufferReadLockC lock(sendBuffer);
    // Kept by the thread: a reply does not allocate its copy again.
    thread_local std::vector<std::uint8_t> message;
    if (!sendBuffer.frontMessage(message)) return false;
    frame(message.data(), message.size(), out);
    sendBuffer.popMessage();
    return true;
}

}  // namespace MAL::UTI
