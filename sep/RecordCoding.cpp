#include "sep/RecordCoding.h"

#include <cstring>

namespace SEP {
namespace {

class EncodingVisitorC : public MAL::UTI::FieldVisitorI {
public:
    explicit EncodingVisitorC(DataWriterI& writer) : m_writer(writer) {}
    bool field(bool& value) override { return m_writer.writeBool(value); }
    bool field(std::uint16_t& value) override { return m_writer.writeU16(value); }
    bool field(std::uint32_t& value) override { return m_writer.writeU32(value); }
    bool field(std::int8_t& value) override { return m_writer.writeI8(value); }
    bool field(std::int32_t& value) override { return m_writer.writeI32(value); }
    bool bytes(std::uint8_t* data, std::size_t length) override { return m_writer.writeBytes(data, length); }
    bool string(char* buffer, std::size_t capacity) override
    {
        return std::memchr(buffer, '\0', capacity) != nullptr && m_writer.writeString(buffer);
    }

private:
    DataWriterI& m_writer;
};

class DecodingVisitorC : public MAL::UTI::FieldVisitorI {
public:
    explicit DecodingVisitorC(DataReaderI& reader) : m_reader(reader) {}
    bool field(bool& value) override { return m_reader.readBool(value); }
    bool field(std::uint16_t& value) override { return m_reader.readU16(value); }
    bool field(std::uint32_t& value) override { return m_reader.readU32(value); }
    bool field(std::int8_t& value) override { return m_reader.readI8(value); }
    bool field(std::int32_t& value) override { return m_reader.readI32(value); }
    bool bytes(std::uint8_t* data, std::size_t length) override { return m_reader.readBytes(data, length); }
    bool string(char* buffer, std::size_t capacity) override { return m_reader.readString(buffer, capacity); }

private:
    DataReaderI& m_reader;
};

}  // namespace

bool encodeRecord(DataWriterI& writer, MAL::UTI::SerializableI& record)
{
    EncodingVisitorC visitor(writer);
    return record.visit(visitor);
}

bool decodeRecord(DataReaderI& reader, MAL::UTI::SerializableI& record)
{
    DecodingVisitorC visitor(reader);
    return record.visit(visitor);
}

}  // namespace SEP
