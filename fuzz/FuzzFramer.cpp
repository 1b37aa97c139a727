// The receive state machine on arbitrary byte streams, cut where the input says. The buffer never holds
// more than its capacity, and every framed message comes back unchanged.
#include <cstdlib>
#include <vector>

#include "framework/RingBufferC.h"
#include "fuzz/FuzzTarget.h"
#include "sep/ReaderConnectionC.h"
#include "sep/SerialFramerC.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    MAL::UTI::RingBufferC buffer(512);
    MAL::HAL::ReaderConnectionC reader(buffer);
    std::vector<std::uint8_t> frame;
    std::size_t position = 0;
    while (position < size) {
        const std::size_t chunk = 1 + data[position] % 64;
        const std::size_t length = std::min(chunk, size - position);
        reader.procReadData(data + position, length);
        position += length;
        if (buffer.usedBytes() > buffer.capacity()) std::abort();
        MAL::UTI::RingBufferReadLockC lock(buffer);
        while (buffer.frontMessage(frame))
            buffer.popMessage();
    }

    // Whatever the input, framing it and receiving it again gives it back.
    if (size == 0 || size > 400) return 0;
    std::vector<std::uint8_t> wire;
    MAL::UTI::SerialFramerC::frame(data, size, wire);
    MAL::UTI::RingBufferC clean(1024);
    MAL::HAL::ReaderConnectionC receiver(clean);
    if (receiver.procReadData(wire.data(), wire.size()) != 1) std::abort();
    MAL::UTI::RingBufferReadLockC lock(clean);
    if (!clean.frontMessage(frame) || frame != std::vector<std::uint8_t>(data, data + size)) std::abort();
    return 0;
}
