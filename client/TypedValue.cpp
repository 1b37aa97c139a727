#include "client/TypedValue.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace SEP {
namespace {

struct TypeNameT {
    ValueTypeE type;
    const char* name;
};

constexpr TypeNameT kTypeNames[] = {{ValueTypeE::U8, "u8"},       {ValueTypeE::U16, "u16"}, {ValueTypeE::U32, "u32"},
                                    {ValueTypeE::I8, "i8"},       {ValueTypeE::I16, "i16"}, {ValueTypeE::I32, "i32"},
                                    {ValueTypeE::Bool, "bool"},   {ValueTypeE::F32, "f32"}, {ValueTypeE::F64, "f64"},
                                    {ValueTypeE::Bytes, "bytes"}, {ValueTypeE::Str, "str"}};

bool parseUnsigned(const std::string& text, std::uint64_t maximum, std::uint64_t& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    if (errno != 0 || parsed > maximum) return false;
    value = parsed;
    return true;
}

bool parseSigned(const std::string& text, std::int64_t minimum, std::int64_t maximum, std::int64_t& value)
{
    const std::size_t digits = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    if (text.size() == digits || text.find_first_not_of("0123456789", digits) != std::string::npos) return false;
    errno = 0;
    const long long parsed = std::strtoll(text.c_str(), nullptr, 10);
    if (errno != 0 || parsed < minimum || parsed > maximum) return false;
    value = parsed;
    return true;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

bool parseValueType(const std::string& name, ValueTypeE& type)
{
    for (const auto& entry : kTypeNames) {
        if (name == entry.name) {
            type = entry.type;
            return true;
        }
    }
    return false;
}

const char* valueTypeName(ValueTypeE type)
{
    for (const auto& entry : kTypeNames)
        if (entry.type == type) return entry.name;
    return "?";
}

bool parseTypedValue(const std::string& argument, TypedValueT& value, std::string& error)
{
    const std::size_t colon = argument.find(':');
    if (colon == std::string::npos || !parseValueType(argument.substr(0, colon), value.type)) {
        error = "expected TYPE:VALUE with TYPE one of u8 u16 u32 i8 i16 i32 bool f32 f64 bytes str: " + argument;
        return false;
    }
    const std::string text = argument.substr(colon + 1);
    bool ok = true;
    switch (value.type) {
        case ValueTypeE::U8:
            ok = parseUnsigned(text, 0xFF, value.unsignedValue);
            break;
        case ValueTypeE::U16:
            ok = parseUnsigned(text, 0xFFFF, value.unsignedValue);
            break;
        case ValueTypeE::U32:
            ok = parseUnsigned(text, 0xFFFFFFFF, value.unsignedValue);
            break;
        case ValueTypeE::Bool:
            ok = parseUnsigned(text, 1, value.unsignedValue);
            break;
        case ValueTypeE::I8:
            ok = parseSigned(text, -128, 127, value.signedValue);
            break;
        case ValueTypeE::I16:
            ok = parseSigned(text, -32768, 32767, value.signedValue);
            break;
        case ValueTypeE::I32:
            ok = parseSigned(text, -2147483648LL, 2147483647LL, value.signedValue);
            break;
        case ValueTypeE::F32:
        case ValueTypeE::F64: {
            char* end = nullptr;
            value.realValue = std::strtod(text.c_str(), &end);
            ok = !text.empty() && end == text.c_str() + text.size();
            break;
        }
        case ValueTypeE::Bytes:
            value.bytes.clear();
            ok = text.size() % 2 == 0;
            for (std::size_t i = 0; ok && i < text.size(); i += 2) {
                const int high = hexDigit(text[i]);
                const int low = hexDigit(text[i + 1]);
                ok = high >= 0 && low >= 0;
                if (ok) value.bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
            }
            break;
        case ValueTypeE::Str:
            value.text = text;
            break;
    }
    if (!ok) error = "not a valid " + std::string(valueTypeName(value.type)) + " value: " + argument;
    return ok;
}

bool parseReadSpec(const std::string& argument, TypedValueT& value, std::string& error)
{
    const std::size_t colon = argument.find(':');
    if (!parseValueType(argument.substr(0, colon), value.type)) {
        error = "unknown type: " + argument;
        return false;
    }
    if (value.type != ValueTypeE::Bytes) {
        if (colon == std::string::npos) return true;
        error = "only bytes take a length: " + argument;
        return false;
    }
    std::uint64_t length = 0;
    if (colon == std::string::npos || !parseUnsigned(argument.substr(colon + 1), 0xFFFF, length)) {
        error = "bytes need their length, e.g. bytes:6: " + argument;
        return false;
    }
    value.bytes.assign(static_cast<std::size_t>(length), 0);
    return true;
}

bool writeTypedValue(DataWriterI& writer, const TypedValueT& value)
{
    switch (value.type) {
        case ValueTypeE::U8:
            return writer.writeU8(static_cast<std::uint8_t>(value.unsignedValue));
        case ValueTypeE::U16:
            return writer.writeU16(static_cast<std::uint16_t>(value.unsignedValue));
        case ValueTypeE::U32:
            return writer.writeU32(static_cast<std::uint32_t>(value.unsignedValue));
        case ValueTypeE::Bool:
            return writer.writeBool(value.unsignedValue != 0);
        case ValueTypeE::I8:
            return writer.writeI8(static_cast<std::int8_t>(value.signedValue));
        case ValueTypeE::I16:
            return writer.writeI16(static_cast<std::int16_t>(value.signedValue));
        case ValueTypeE::I32:
            return writer.writeI32(static_cast<std::int32_t>(value.signedValue));
        case ValueTypeE::F32:
            return writer.writeFloat(static_cast<float>(value.realValue));
        case ValueTypeE::F64:
            return writer.writeDouble(value.realValue);
        case ValueTypeE::Bytes:
            return writer.writeBytes(value.bytes.data(), value.bytes.size());
        case ValueTypeE::Str:
            return writer.writeString(value.text.c_str());
    }
    return false;
}

bool readTypedValue(DataReaderI& reader, TypedValueT& value)
{
    bool ok = false;
    switch (value.type) {
        case ValueTypeE::U8: {
            std::uint8_t v = 0;
            ok = reader.readU8(v);
            value.unsignedValue = v;
            break;
        }
        case ValueTypeE::U16: {
            std::uint16_t v = 0;
            ok = reader.readU16(v);
            value.unsignedValue = v;
            break;
        }
        case ValueTypeE::U32: {
            std::uint32_t v = 0;
            ok = reader.readU32(v);
            value.unsignedValue = v;
            break;
        }
        case ValueTypeE::Bool: {
            bool v = false;
            ok = reader.readBool(v);
            value.unsignedValue = v ? 1 : 0;
            break;
        }
        case ValueTypeE::I8: {
            std::int8_t v = 0;
            ok = reader.readI8(v);
            value.signedValue = v;
            break;
        }
        case ValueTypeE::I16: {
            std::int16_t v = 0;
            ok = reader.readI16(v);
            value.signedValue = v;
            break;
        }
        case ValueTypeE::I32: {
            std::int32_t v = 0;
            ok = reader.readI32(v);
            value.signedValue = v;
            break;
        }
        case ValueTypeE::F32: {
            float v = 0;
            ok = reader.readFloat(v);
            value.realValue = v;
            break;
        }
        case ValueTypeE::F64:
            ok = reader.readDouble(value.realValue);
            break;
        case ValueTypeE::Bytes:
            ok = reader.readBytes(value.bytes.data(), value.bytes.size());
            break;
        case ValueTypeE::Str:
            ok = reader.readString(value.text);
            break;
    }
    return ok;
}

std::string formatValue(const TypedValueT& value)
{
    char text[64];
    switch (value.type) {
        case ValueTypeE::U8:
        case ValueTypeE::U16:
        case ValueTypeE::U32:
        case ValueTypeE::Bool:
            std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value.unsignedValue));
            return text;
        case ValueTypeE::I8:
        case ValueTypeE::I16:
        case ValueTypeE::I32:
            std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value.signedValue));
            return text;
        case ValueTypeE::F32:
        case ValueTypeE::F64:
            if (std::isnan(value.realValue)) return "NAN";
            if (std::isinf(value.realValue)) return value.realValue > 0 ? "INF" : "-INF";
            std::snprintf(text, sizeof text, "%.17g", value.realValue);
            return text;
        case ValueTypeE::Bytes: {
            std::string hex;
            for (std::uint8_t byte : value.bytes) {
                std::snprintf(text, sizeof text, "%02X", byte);
                hex += text;
            }
            return hex;
        }
        case ValueTypeE::Str:
            return "\"" + value.text + "\"";
    }
    return "";
}

std::string jsonString(const std::string& text)
{
    std::string json = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", c);
            json += escaped;
        } else {
            json += static_cast<char>(c);
        }
    }
    return json + "\"";
}

std::string formatJsonValue(const TypedValueT& value)
{
    switch (value.type) {
        case ValueTypeE::Bool:
            return value.unsignedValue ? "true" : "false";
        case ValueTypeE::F32:
        case ValueTypeE::F64:
            // JSON has no infinities or NaN: they travel as the coding's own words.
            if (std::isnan(value.realValue) || std::isinf(value.realValue)) return jsonString(formatValue(value));
            return formatValue(value);
        case ValueTypeE::Bytes:
            return jsonString(formatValue(value));
        case ValueTypeE::Str:
            return jsonString(value.text);
        default:
            return formatValue(value);
    }
}

}  // namespace SEP
