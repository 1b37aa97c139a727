#pragma once
// The compact binary SEP coding: start byte 0xD3, CRC-16, length, flags with the kind and the address
// block bit, optional addresses, id, then the parameters little-endian.
#include "sep/CoderBaseC.h"

namespace SEP {

class BinaryCoderC final : public CoderBaseC {
public:
    static constexpr std::uint8_t START_BYTE = 0xD3;

    bool writeU8(std::uint8_t value) override;
    bool writeU16(std::uint16_t value) override;
    bool writeU32(std::uint32_t value) override;
    bool writeI8(std::int8_t value) override;
    bool writeI16(std::int16_t value) override;
    bool writeI32(std::int32_t value) override;
    bool writeBool(bool value) override;
    bool writeFloat(float value) override;
    bool writeDouble(double value) override;
    bool writeBytes(const std::uint8_t* data, std::size_t length) override;
    bool writeString(const char* text) override;
    bool beginMessage(std::uint16_t messageId, std::uint32_t kind, const AddressC& source,
                      const AddressC& destination) override;

    bool readHeader(std::uint32_t& kind, std::uint16_t& messageId, AddressC& source, AddressC& destination) override;
    bool readU8(std::uint8_t& value) override;
    bool readU16(std::uint16_t& value) override;
    bool readU32(std::uint32_t& value) override;
    bool readI8(std::int8_t& value) override;
    bool readI16(std::int16_t& value) override;
    bool readI32(std::int32_t& value) override;
    bool readBool(bool& value) override;
    bool readFloat(float& value) override;
    bool readDouble(double& value) override;
    bool readBytes(std::uint8_t* data, std::size_t length) override;
    bool readString(char* buffer, std::size_t capacity) override;
    bool readString(std::string& text) override;

    std::unique_ptr<DataCoderI> clone() const override { return std::make_unique<BinaryCoderC>(); }
    const char* name() const override { return "binary"; }

private:
    bool patchTrailer(MAL::UTI::RingBufferC& buffer) override;
    bool putLittleEndian(std::uint64_t value, std::size_t width);
    bool getLittleEndian(std::uint64_t& value, std::size_t width);
    enum class HeaderMatch { NoMatch, Rejected, Ok };
    HeaderMatch tryHeaderAt(std::size_t start, std::uint32_t& kind, std::uint16_t& messageId, AddressC& source,
                            AddressC& destination);
};

}  // namespace SEP
