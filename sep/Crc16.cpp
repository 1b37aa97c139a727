#include "sep/Crc16.h"

#include <algorithm>
#include <array>

namespace SEP {
namespace {

constexpr std::array<std::uint16_t, 256> makeTable()
{
    std::array<std::uint16_t, 256> table{};
    for (unsigned value = 0; value < 256; ++value) {
        std::uint16_t crc = static_cast<std::uint16_t>(value);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
        table[value] = crc;
    }
    return table;
}

constexpr std::array<std::uint16_t, 256> kTable = makeTable();

}  // namespace

std::uint16_t crc16Update(std::uint16_t crc, std::uint8_t byte)
{
    return static_cast<std::uint16_t>(kTable[(crc ^ byte) & 0xFF] ^ (crc >> 8));
}

std::uint16_t crc16(const std::uint8_t* data, std::size_t length, std::uint16_t crc)
{
    for (std::size_t i = 0; i < length; ++i)
        crc = crc16Update(crc, data[i]);
    return crc;
}

std::uint16_t crc16OfMessage(const MAL::UTI::RingBufferC& buffer, std::size_t begin, std::size_t end, std::uint16_t crc)
{
    std::uint8_t block[256];
    while (begin < end) {
        const std::size_t length = std::min(sizeof block, end - begin);
        if (!buffer.copyFromMessage(begin, block, length)) break;
        crc = crc16(block, length, crc);
        begin += length;
    }
    return crc;
}

}  // namespace SEP
