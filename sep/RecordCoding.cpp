#include "sep/RecordCoding.h"

#include <cstring>
#include <string>

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
    bool string(char* buffer, std::size_t capacity) override
    {
        std::string text;
        if (!m_reader.readString(text)) return false;
        ++m_strings;
        if (text.size() + 1 > capacity) {
            m_notTerminated = true;
            return false;
        }
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return true;
    }
    bool notTerminated() const { return m_notTerminated; }
    int lastString() const { return m_strings - 1; }

private:
    DataReaderI& m_reader;
    int m_strings = 0;
    bool m_notTerminated = false;
};

}  // namespace

bool encodeRecord(DataWriterI& writer, MAL::UTI::SerializableI& record)
{
    EncodingVisitorC visitor(writer);
    return record.visit(visitor);
}

DecodeResultE decodeRecord(DataReaderI& reader, MAL::UTI::SerializableI& record, int* badString)
{
    DecodingVisitorC visitor(reader);
    if (record.visit(visitor)) return DecodeResultE::Ok;
    if (!visitor.notTerminated()) return DecodeResultE::Truncated;
    if (badString != nullptr) *badString = visitor.lastString();
    return DecodeResultE::NotTerminated;
}

}  // namespace SEP
