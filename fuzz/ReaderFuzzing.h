#pragma once
// Drives a reader over one frame: the header, then reads of the types that the input's own bytes choose,
// until one fails. Every accepted string must fit the buffer it was read into.
#include <cstdlib>
#include <string>

#include "sep/DataCoderI.h"

namespace halvern::fuzz {

inline void readEverything(SEP::DataCoderI& coder, const std::uint8_t* data, std::size_t size)
{
    coder.setReadFrame(data, size);
    std::uint32_t kind = 0;
    std::uint16_t id = 0;
    SEP::AddressC source, destination;
    if (!coder.readHeader(kind, id, source, destination)) return;
    if (kind < SEP::MESSAGE_KIND_COMMAND || kind > SEP::MESSAGE_KIND_REPLY) std::abort();
    if (source.isValid() != destination.isValid()) std::abort();
    for (std::size_t step = 0; step < 64; ++step) {
        const std::uint8_t choice = size > 0 ? data[step % size] : 0;
        bool ok = false;
        switch (choice % 12) {
            case 0: {
                std::uint8_t v;
                ok = coder.readU8(v);
                break;
            }
            case 1: {
                std::uint16_t v;
                ok = coder.readU16(v);
                break;
            }
            case 2: {
                std::uint32_t v;
                ok = coder.readU32(v);
                break;
            }
            case 3: {
                std::int8_t v;
                ok = coder.readI8(v);
                break;
            }
            case 4: {
                std::int16_t v;
                ok = coder.readI16(v);
                break;
            }
            case 5: {
                std::int32_t v;
                ok = coder.readI32(v);
                break;
            }
            case 6: {
                bool v;
                ok = coder.readBool(v);
                break;
            }
            case 7: {
                float v;
                ok = coder.readFloat(v);
                break;
            }
            case 8: {
                double v;
                ok = coder.readDouble(v);
                break;
            }
            case 9: {
                std::uint8_t bytes[16];
                ok = coder.readBytes(bytes, choice % 17);
                break;
            }
            case 10: {
                char text[8];
                ok = coder.readString(text, sizeof text);
                if (ok && std::string(text).size() >= sizeof text) std::abort();
                break;
            }
            default: {
                std::string text;
                ok = coder.readString(text);
                break;
            }
        }
        if (!ok) return;
    }
}

}  // namespace halvern::fuzz
