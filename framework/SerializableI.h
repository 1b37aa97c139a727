#pragma once
// A record that lists its fields once, in wire order; the same list encodes and decodes it, so the two
// directions cannot drift apart.
#include <cstddef>
#include <cstdint>

namespace MAL::UTI {

class FieldVisitorI {
public:
    virtual ~FieldVisitorI() = default;
    virtual bool field(bool& value) = 0;
    virtual bool field(std::uint16_t& value) = 0;
    virtual bool field(std::uint32_t& value) = 0;
    virtual bool field(std::int8_t& value) = 0;
    virtual bool field(std::int32_t& value) = 0;
    virtual bool bytes(std::uint8_t* data, std::size_t length) = 0;
    // `capacity` is the receiving buffer with its NUL.
    virtual bool string(char* buffer, std::size_t capacity) = 0;
    // Called before the values of the record's `index`-th declared field (an array field has several
    // values); visitors that only move values ignore it.
    virtual void beginField(std::size_t /*index*/) {}
};

class SerializableI {
public:
    virtual ~SerializableI() = default;
    // Stops at the first field that the visitor refuses.
    virtual bool visit(FieldVisitorI& visitor) = 0;
    // The declared fields' names, comma-separated in wire order, as tools that show records need them.
    virtual const char* fieldNames() const { return ""; }
};

}  // namespace MAL::UTI
