#pragma once
// Helpers of the SEP tests: a message written by a coder, as the bytes of its message buffer.
#include <functional>
#include <string>
#include <vector>

#include "framework/RingBufferC.h"
#include "sep/DataCoderI.h"

namespace halvern::test {

using Bytes = std::vector<std::uint8_t>;

// Begins a message, lets `fields` write, ends it; answers the committed message, or nothing when a step
// failed.
inline bool encode(SEP::DataCoderI& coder, std::uint16_t id, std::uint32_t kind, const SEP::AddressC& source,
                   const SEP::AddressC& destination, const std::function<bool(SEP::DataWriterI&)>& fields,
                   Bytes& message)
{
    MAL::UTI::RingBufferC buffer(0x10002);
    coder.setWriteBuffer(&buffer);
    if (!coder.beginMessage(id, kind, source, destination)) return false;
    const bool written = !fields || fields(coder);
    const bool ended = coder.endMessage();
    if (!written || !ended) return false;
    MAL::UTI::RingBufferReadLockC lock(buffer);
    return buffer.frontMessage(message);
}

inline Bytes bytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

}  // namespace halvern::test
