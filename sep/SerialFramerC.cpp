#include "sep/SerialFramerC.h"

namespace MAL::UTI {

void SerialFramerC::frame(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& out)
{
    out.reserve(out.size() + length + 2);
    for (std::size_t i = 0; i < length; ++i) {
        if (message[i] == CR) {
            out.push_back(ESCAPE);
            out.push_back(ESCAPED_CR);
        } else if (message[i] == ESCAPE) {
            out.push_back(ESCAPE);
            out.push_back(ESCAPE);
        } else {
            out.push_back(message[i]);
        }
    }
    out.push_back(CR);
    out.push_back(LF);
}

bool SerialFramerC::takeFramed(RingBufferC& sendBuffer, std::vector<std::uint8_t>& out)
{
    RingBufferReadLockC lock(sendBuffer);
    std::vector<std::uint8_t> message;
    if (!sendBuffer.frontMessage(message)) return false;
    frame(message.data(), message.size(), out);
    sendBuffer.popMessage();
    return true;
}

}  // namespace MAL::UTI
