#pragma once
// Carries whole messages on a byte stream: 0x0D is sent as 0xDD 0x02, 0xDD as 0xDD 0xDD, and every
// message ends in CR LF.
#include <cstdint>
#include <vector>

#include "framework/RingBufferC.h"

namespace MAL::UTI {

class SerialFramerC {
public:
    static constexpr std::uint8_t CR = 0x0D;
    static constexpr std::uint8_t LF = 0x0A;
    static constexpr std::uint8_t ESCAPE = 0xDD;
    static constexpr std::uint8_t ESCAPED_CR = 0x02;

    // Appends the framed bytes of one message to `out`.
    static void frame(const std::uint8_t* message, std::size_t length, std::vector<std::uint8_t>& out);
    // Frames the oldest message of `sendBuffer` into `out` and releases it; false when there is none.
    static bool takeFramed(RingBufferC& sendBuffer, std::vector<std::uint8_t>& out);
};

}  // namespace MAL::UTI
