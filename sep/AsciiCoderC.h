#pragma once
// The printable SEP coding: "S", kind letter, decimal id, optional "@" address block, "," four checksum
// characters ":", then the parameters separated by ",".
#include "sep/CoderBaseC.h"

namespace SEP {

class AsciiCoderC final : public CoderBaseC {
public:
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

    std::unique_ptr<DataCoderI> clone() const override { return std::make_unique<AsciiCoderC>(); }
    const char* name() const override { return "ascii"; }

    // The four checksum characters of a CRC as the line carries them.
    static std::string checksumText(std::uint16_t crc);

private:
    bool patchTrailer(MAL::UTI::RingBufferC& buffer) override;
    bool putSeparator();
    bool putUnsigned(unsigned long value);
    bool putSigned(long value);
    bool putReal(double value, bool single);
    bool tryHeaderAt(std::size_t start, std::uint32_t& kind, std::uint16_t& messageId, AddressC& source,
                     AddressC& destination);
    // The text of the next value up to "," or the frame's end; consumes it and its separator.
    bool nextToken(std::string& token);
    bool readUnsignedIn(unsigned long& value, unsigned long maximum);
    bool readSignedIn(long& value, long minimum, long maximum);
    bool afterValue();

    std::size_t m_checksumOffset = 0;
    std::size_t m_parameters = 0;
    bool m_pastLastValue = false;
};

}  // namespace SEP
