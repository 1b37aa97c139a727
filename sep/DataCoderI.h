#pragma once
// The interfaces of a SEP data coder: a writer that builds one message into a message buffer and a reader
// that decodes one received frame.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "framework/RingBufferC.h"
#include "sep/Address.h"

namespace SEP {

class DataWriterI {
public:
    virtual ~DataWriterI() = default;
    virtual bool writeU8(std::uint8_t value) = 0;
    virtual bool writeU16(std::uint16_t value) = 0;
    virtual bool writeU32(std::uint32_t value) = 0;
    virtual bool writeI8(std::int8_t value) = 0;
    virtual bool writeI16(std::int16_t value) = 0;
    virtual bool writeI32(std::int32_t value) = 0;
    virtual bool writeBool(bool value) = 0;
    virtual bool writeFloat(float value) = 0;
    virtual bool writeDouble(double value) = 0;
    virtual bool writeBytes(const std::uint8_t* data, std::size_t length) = 0;
    virtual bool writeString(const char* text) = 0;
    // Takes the buffer's write lock until endMessage(). Both addresses set or neither.
    virtual bool beginMessage(std::uint16_t messageId, std::uint32_t kind, const AddressC& source,
                              const AddressC& destination) = 0;
    // Patches length and checksum and commits; false (nothing committed) after any failed write.
    virtual bool endMessage() = 0;
};

class DataReaderI {
public:
    virtual ~DataReaderI() = default;
    virtual bool readHeader(std::uint32_t& kind, std::uint16_t& messageId, AddressC& source, AddressC& destination) = 0;
    virtual bool readU8(std::uint8_t& value) = 0;
    virtual bool readU16(std::uint16_t& value) = 0;
    virtual bool readU32(std::uint32_t& value) = 0;
    virtual bool readI8(std::int8_t& value) = 0;
    virtual bool readI16(std::int16_t& value) = 0;
    virtual bool readI32(std::int32_t& value) = 0;
    virtual bool readBool(bool& value) = 0;
    virtual bool readFloat(float& value) = 0;
    virtual bool readDouble(double& value) = 0;
    virtual bool readBytes(std::uint8_t* data, std::size_t length) = 0;
    // Fails when the string with its NUL does not fit `capacity`.
    virtual bool readString(char* buffer, std::size_t capacity) = 0;
    virtual bool readString(std::string& text) = 0;
    // True when every parameter of the frame has been read.
    virtual bool atEnd() const = 0;
};

class DataCoderI : public DataWriterI, public DataReaderI {
public:
    // The buffer that messages are written into; it must outlive the coder's use of it.
    virtual void setWriteBuffer(MAL::UTI::RingBufferC* buffer) = 0;
    // The frame that reads decode (not copied: it must outlive the reads).
    virtual void setReadFrame(const std::uint8_t* data, std::size_t length) = 0;
    // A coder of the same coding with its own state, for another thread or connection.
    virtual std::unique_ptr<DataCoderI> clone() const = 0;
    virtual const char* name() const = 0;
};

}  // namespace SEP
