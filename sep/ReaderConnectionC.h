#pragma once
// The receiving half of the framing: a byte state machine that removes the escapes and commits one
// message to the receive buffer per CR LF. A frame that does not fit is discarded up to the next LF, so a
// peer that never sends CR LF cannot grow the buffer.
#include <cstddef>
#include <cstdint>

#include "framework/DebugLog.h"
#include "framework/RingBufferC.h"

namespace MAL::HAL {

class ReaderConnectionC {
public:
    enum class StateE { InFrame, AfterCr, AfterEscape, Discard };

    explicit ReaderConnectionC(MAL::UTI::RingBufferC& receiveBuffer, BSS::LogLimiterC* limiter = nullptr)
        : m_buffer(receiveBuffer), m_limiter(limiter)
    {}

    // Feeds received bytes; answers how many frames were completed.
    std::size_t procReadData(const std::uint8_t* data, std::size_t length);
    StateE state() const { return m_state; }

private:
    // False (and discarding) when the bytes do not fit the frame.
    bool append(const std::uint8_t* bytes, std::size_t length);
    bool append(std::uint8_t byte) { return append(&byte, 1); }
    void unexpectedByte();

    MAL::UTI::RingBufferC& m_buffer;
    // Limits the "Unexpected byte" lines of one connection; none: every one is written.
    BSS::LogLimiterC* m_limiter;
    StateE m_state = StateE::InFrame;
};

}  // namespace MAL::HAL
