#include "sep/ReaderConnectionC.h"

#include "framework/DebugLog.h"
#include "sep/SerialFramerC.h"

namespace MAL::HAL {

using MAL::UTI::SerialFramerC;

void ReaderConnectionC::append(std::uint8_t byte)
{
    if (!m_buffer.inMessage() && !m_buffer.beginMessage()) {
        m_state = StateE::Discard;
        return;
    }
    if (!m_buffer.write(byte)) m_state = StateE::Discard;
}

void ReaderConnectionC::unexpectedByte()
{
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
                else
                    append(byte);
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
