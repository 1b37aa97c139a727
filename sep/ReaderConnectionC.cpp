#include "sep/ReaderConnectionC.h"

#include "framework/DebugLog.h"
#include "sep/SerialFramerC.h"

namespace MAL::HAL {

using MAL::UTI::SerialFramerC;

bool ReaderConnectionC::append(const std::uint8_t* bytes, std::size_t length)
{
    if ((!m_buffer.inMessage() && !m_buffer.beginMessage()) || !m_buffer.write(bytes, length)) {
        m_state = StateE::Discard;
        return false;
    }
    return true;
}

void ReaderConnectionC::unexpectedByte()
{
    if (m_limiter != nullptr && !m_limiter->allow()) return;
    BSS::debugLog(BSS::kDebugLevelDetail, "%s Unexpected byte received.", "MAL::HAL::ReaderConnectionC::procReadData");
}

std::size_t ReaderConnectionC::procReadData(const std::uint8_t* data, std::size_t length)
{
    MAL::UTI::RingBufferWriteLockC lock(m_buffer);
    std::size_t frames = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const std::uint8_t byte = data[i];
        switch (m_state) {
            case StateE::InFrame:
                if (byte == SerialFramerC::CR)
                    m_state = StateE::AfterCr;
                else if (byte == SerialFramerC::ESCAPE)
                    m_state = StateE::AfterEscape;
                else {
                    // The bytes up to the next CR or escape need no decision each: one write takes them.
                    std::size_t end = i + 1;
                    while (end < length && data[end] != SerialFramerC::CR && data[end] != SerialFramerC::ESCAPE)
                        ++end;
                    if (!append(data + i, end - i)) {
                        // They do not all fit: byte by byte, so that discarding starts after the very byte
                        // that did not fit.
                        m_state = StateE::InFrame;
                        while (i < end && append(data[i]))
                            ++i;
                        if (i < end) end = i + 1;
                    }
                    i = end - 1;
                }
                break;
            case StateE::AfterCr:
                m_state = StateE::InFrame;
                if (byte == SerialFramerC::LF) {
                    if (m_buffer.commitMessage()) ++frames;
                } else {
                    // A sender never produces a lone CR: the byte after it is given up on purpose.
                    append(SerialFramerC::CR);
                    unexpectedByte();
                }
                break;
            case StateE::AfterEscape:
                m_state = StateE::InFrame;
                if (byte == SerialFramerC::ESCAPED_CR)
                    append(SerialFramerC::CR);
                else if (byte == SerialFramerC::ESCAPE)
                    append(SerialFramerC::ESCAPE);
                else
                    unexpectedByte();
                break;
            case StateE::Discard:
                if (byte == SerialFramerC::LF) {
                    m_buffer.resetMessage();
                    m_state = StateE::InFrame;
                }
                break;
        }
    }
    return frames;
}

}  // namespace MAL::HAL
