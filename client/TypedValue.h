#pragma once
// Typed parameter values as halvernctl takes them on its command line ("u8:3", "i32:-1", "str:text",
// "f64:1.5", "bool:1", "bytes:0A0B") and prints them.
#include <cstdint>
#include <string>
#include <vector>

#include "sep/DataCoderI.h"

namespace SEP {

enum class ValueTypeE { U8, U16, U32, I8, I16, I32, Bool, F32, F64, Bytes, Str };

struct TypedValueT {
    ValueTypeE type = ValueTypeE::U8;
    std::uint64_t unsignedValue = 0;
    std::int64_t signedValue = 0;
    double realValue = 0;
    std::vector<std::uint8_t> bytes;  // also the length of a byte array to read
    std::string text;
};

// "u8", "str" ...; false for an unknown name.
bool parseValueType(const std::string& name, ValueTypeE& type);
const char* valueTypeName(ValueTypeE type);

// "TYPE:VALUE"; `error` says what is wrong.
bool parseTypedValue(const std::string& argument, TypedValueT& value, std::string& error);
// A type to read in a reply: "u32", "str", "bytes:6" (byte arrays need their length).
bool parseReadSpec(const std::string& argument, TypedValueT& value, std::string& error);

bool writeTypedValue(DataWriterI& writer, const TypedValueT& value);
bool readTypedValue(DataReaderI& reader, TypedValueT& value);

// The value as text ("3", "-1", "\"x\"", "0A0B") and as a JSON value.
std::string formatValue(const TypedValueT& value);
std::string formatJsonValue(const TypedValueT& value);
std::string jsonString(const std::string& text);

}  // namespace SEP
