#pragma once
// The SEP checksum: CRC-16/ARC (reflected polynomial 0xA001, initial value 0, no final XOR).
#include <cstddef>
#include <cstdint>

#include "framework/RingBufferC.h"

namespace SEP {

std::uint16_t crc16Update(std::uint16_t crc, std::uint8_t byte);
std::uint16_t crc16(const std::uint8_t* data, std::size_t length, std::uint16_t crc = 0);
// Continues `crc` over bytes [begin, end) of the message being written into `buffer`.
std::uint16_t crc16OfMessage(const MAL::UTI::RingBufferC& buffer, std::size_t begin, std::size_t end,
                             std::uint16_t crc);

}  // namespace SEP
