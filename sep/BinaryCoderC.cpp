#include "sep/BinaryCoderC.h"

#include <cstring>

#include "sep/Crc16.h"

namespace SEP {
namespace {

constexpr std::size_t kChecksumOffset = 1;
constexpr std::size_t kLengthOffset = 3;
constexpr std::size_t kFlagsOffset = 5;
constexpr std::uint8_t kAddressBlockFlag = 0x80;
constexpr std::uint8_t kKindMask = 0x03;
constexpr std::uint8_t kRejectedKindCode = 3;

}  // namespace

bool BinaryCoderC::putLittleEndian(std::uint64_t value, std::size_t width)
{
    std::uint8_t bytes[8];
    for (std::size_t i = 0; i < width; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    return put(bytes, width);
}

bool BinaryCoderC::writeU8(std::uint8_t value)
{
    return putLittleEndian(value, 1);
}
bool BinaryCoderC::writeU16(std::uint16_t value)
{
    return putLittleEndian(value, 2);
}
bool BinaryCoderC::writeU32(std::uint32_t value)
{
    return putLittleEndian(value, 4);
}
bool BinaryCoderC::writeI8(std::int8_t value)
{
    return putLittleEndian(static_cast<std::uint8_t>(value), 1);
}
bool BinaryCoderC::writeI16(std::int16_t value)
{
    return putLittleEndian(static_cast<std::uint16_t>(value), 2);
}
bool BinaryCoderC::writeI32(std::int32_t value)
{
    return putLittleEndian(static_cast<std::uint32_t>(value), 4);
}
bool BinaryCoderC::writeBool(bool value)
{
    return putLittleEndian(value ? 1 : 0, 1);
}
bool BinaryCoderC::writeFloat(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return putLittleEndian(bits, 4);
}
bool BinaryCoderC::writeDouble(double value)
{
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return putLittleEndian(bits, 8);
}
bool BinaryCoderC::writeBytes(const std::uint8_t* data, std::size_t length)
{
    if (length > 0 && data == nullptr) return fail();
    return put(data, length);
}
bool BinaryCoderC::writeString(const char* text)
{
    return putQuotedString(text);
}

bool BinaryCoderC::beginMessage(std::uint16_t messageId, std::uint32_t kind, const AddressC& source,
                                const AddressC& destination)
{
    if (kind < MESSAGE_KIND_COMMAND || kind > MESSAGE_KIND_REPLY) return fail();
    if (source.isValid() != destination.isValid()) return fail();
    if (!startMessage()) return false;
    const bool addressed = source.isValid();
    std::uint8_t flags = static_cast<std::uint8_t>(kind - 1);
    if (addressed) flags |= kAddressBlockFlag;
    const std::uint8_t head[] = {START_BYTE, 0, 0, 0, 0, flags};
    if (!put(head, sizeof head)) return false;
    if (addressed) {
        const std::uint8_t block[] = {destination.getNodeId(), destination.getChannelId(), source.getNodeId(),
                                      source.getChannelId()};
        if (!put(block, sizeof block)) return false;
    }
    return writeU16(messageId);
}

bool BinaryCoderC::patchTrailer(MAL::UTI::RingBufferC& buffer)
{
    const std::size_t length = buffer.messageLength();
    buffer.patch(kLengthOffset, static_cast<std::uint8_t>(length & 0xFF));
    buffer.patch(kLengthOffset + 1, static_cast<std::uint8_t>(length >> 8));
    const std::uint16_t crc = crc16OfMessage(buffer, kChecksumOffset + 2, length, crc16Update(0, buffer.byteAt(0)));
    buffer.patch(kChecksumOffset, static_cast<std::uint8_t>(crc & 0xFF));
    buffer.patch(kChecksumOffset + 1, static_cast<std::uint8_t>(crc >> 8));
    return true;
}

BinaryCoderC::HeaderMatch BinaryCoderC::tryHeaderAt(std::size_t start, std::uint32_t& kind, std::uint16_t& messageId,
                                                    AddressC& source, AddressC& destination)
{
    const std::uint8_t* message = m_frame + start;
    const std::size_t length = m_frameLength - start;
    if (length < kFlagsOffset + 1 + 2) return HeaderMatch::NoMatch;
    std::uint16_t crc = crc16Update(0, message[0]);
    crc = crc16(message + kChecksumOffset + 2, length - kChecksumOffset - 2, crc);
    const std::uint16_t stored = static_cast<std::uint16_t>(message[1] | (message[2] << 8));
    if (crc != stored) return HeaderMatch::NoMatch;
    const std::uint8_t flags = message[kFlagsOffset];
    if ((flags & kKindMask) == kRejectedKindCode) return HeaderMatch::Rejected;
    m_position = start + kFlagsOffset + 1;
    if (flags & kAddressBlockFlag) {
        if (length < kFlagsOffset + 1 + 4 + 2) return HeaderMatch::Rejected;
        destination.set(message[6], message[7]);
        source.set(message[8], message[9]);
        m_position += 4;
    }
    std::uint64_t id = 0;
    if (!getLittleEndian(id, 2)) return HeaderMatch::Rejected;
    messageId = static_cast<std::uint16_t>(id);
    kind = (flags & kKindMask) + 1u;
    return HeaderMatch::Ok;
}

bool BinaryCoderC::readHeader(std::uint32_t& kind, std::uint16_t& messageId, AddressC& source, AddressC& destination)
{
    for (std::size_t start = 0; start < m_frameLength; ++start) {
        if (m_frame[start] != START_BYTE) continue;
        AddressC foundSource, foundDestination;
        switch (tryHeaderAt(start, kind, messageId, foundSource, foundDestination)) {
            case HeaderMatch::Ok:
                source = foundSource;
                destination = foundDestination;
                return true;
            case HeaderMatch::Rejected:
                return false;
            case HeaderMatch::NoMatch:
                break;
        }
    }
    return false;
}

bool BinaryCoderC::getLittleEndian(std::uint64_t& value, std::size_t width)
{
    if (m_frameLength - m_position < width || m_position > m_frameLength) return false;
    value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value |= static_cast<std::uint64_t>(m_frame[m_position + i]) << (8 * i);
    m_position += width;
    return true;
}

bool BinaryCoderC::readU8(std::uint8_t& value)
{
    std::uint64_t raw;
    if (!getLittleEndian(raw, 1)) return false;
    value = static_cast<std::uint8_t>(raw);
    return true;
}
bool BinaryCoderC::readU16(std::uint16_t& value)
{
    std::uint64_t raw;
    if (!getLittleEndian(raw, 2)) return false;
    value = static_cast<std::uint16_t>(raw);
    return true;
}
bool BinaryCoderC::readU32(std::uint32_t& value)
{
    std::uint64_t raw;
    if (!getLittleEndian(raw, 4)) return false;
    value = static_cast<std::uint32_t>(raw);
    return true;
}
bool BinaryCoderC::readI8(std::int8_t& value)
{
    std::uint8_t raw;
    if (!readU8(raw)) return false;
    value = static_cast<std::int8_t>(raw);
    return true;
}
bool BinaryCoderC::readI16(std::int16_t& value)
{
    std::uint16_t raw;
    if (!readU16(raw)) return false;
    value = static_cast<std::int16_t>(raw);
    return true;
}
bool BinaryCoderC::readI32(std::int32_t& value)
{
    std::uint32_t raw;
    if (!readU32(raw)) return false;
    value = static_cast<std::int32_t>(raw);
    return true;
}
bool BinaryCoderC::readBool(bool& value)
{
    std::uint8_t raw;
    if (!readU8(raw)) return false;
    value = raw != 0;
    return true;
}
bool BinaryCoderC::readFloat(float& value)
{
    std::uint32_t raw;
    if (!readU32(raw)) return false;
    std::memcpy(&value, &raw, sizeof value);
    return true;
}
bool BinaryCoderC::readDouble(double& value)
{
    std::uint64_t raw;
    if (!getLittleEndian(raw, 8)) return false;
    std::memcpy(&value, &raw, sizeof value);
    return true;
}
bool BinaryCoderC::readBytes(std::uint8_t* data, std::size_t length)
{
    if (m_position > m_frameLength || m_frameLength - m_position < length) return false;
    if (length > 0) std::memcpy(data, m_frame + m_position, length);
    m_position += length;
    return true;
}
bool BinaryCoderC::readString(std::string& text)
{
    return getQuotedString(text);
}
bool BinaryCoderC::readString(char* buffer, std::size_t capacity)
{
    const std::size_t saved = m_position;
    std::string text;
    if (!getQuotedString(text)) return false;
    if (text.size() + 1 > capacity) {
        m_position = saved;
        return false;
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

}  // namespace SEP
