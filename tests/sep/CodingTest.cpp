// The wire format as outside clients rely on it: byte-exact messages in both codings and every frame the
// readers must refuse.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/Crc16.h"
#include "sep/SepTestSupport.h"

namespace halvern::test {
namespace {

using SEP::AddressC;
using SEP::DataWriterI;

// CRC-16/ARC bit by bit, written from the polynomial, to check the table-driven one against.
std::uint16_t bitwiseCrc16(const Bytes& data)
{
    std::uint16_t crc = 0;
    for (std::uint8_t byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
    }
    return crc;
}

const AddressC kSource(1, 2);
const AddressC kDestination(7, 3);

bool replyHeader(DataWriterI& writer)
{
    return writer.writeI32(1097) && writer.writeI32(10) && writer.writeU16(0);
}

TEST(Crc16Test, IsCrc16ArcAndAgreesWithABitwiseImplementation)
{
    EXPECT_EQ(SEP::crc16(bytesOf("123456789").data(), 9), 0xBB3D);
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        Bytes data(random() % 300);
        for (auto& byte : data)
            byte = static_cast<std::uint8_t>(random());
        EXPECT_EQ(SEP::crc16(data.data(), data.size()), bitwiseCrc16(data));
    }
}

TEST(BinaryCoderTest, EncodesCommandEventAndRepliesByteForByte)
{
    SEP::BinaryCoderC coder;
    Bytes message;
    ASSERT_TRUE(encode(coder, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, nullptr, message));
    EXPECT_EQ(message, (Bytes{0xD3, 0xFD, 0xF3, 0x08, 0x00, 0x00, 0xE9, 0x03}));

    ASSERT_TRUE(encode(
        coder, 1000, SEP::MESSAGE_KIND_EVENT, kSource, kDestination,
        [](DataWriterI& w) { return replyHeader(w) && w.writeI32(1); }, message));
    EXPECT_EQ(message, (Bytes{0xD3, 0xAB, 0x68, 0x1A, 0x00, 0x81, 0x07, 0x03, 0x01, 0x02, 0xE8, 0x03, 0x49,
                              0x04, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00}));

    const std::uint8_t raw[] = {0x0D, 0xDD};
    ASSERT_TRUE(encode(
        coder, 1001, SEP::MESSAGE_KIND_REPLY, {}, {},
        [&](DataWriterI& w) { return replyHeader(w) && w.writeString("a\"b") && w.writeBytes(raw, 2); }, message));
    EXPECT_EQ(message, (Bytes{0xD3, 0xB9, 0xB3, 0x19, 0x00, 0x02, 0xE9, 0x03, 0x49, 0x04, 0x00, 0x00, 0x0A,
                              0x00, 0x00, 0x00, 0x00, 0x00, 0x22, 0x61, 0x1A, 0x62, 0x22, 0x0D, 0xDD}));

    ASSERT_TRUE(encode(
        coder, 1001, SEP::MESSAGE_KIND_REPLY, kSource, kDestination,
        [](DataWriterI& w) { return replyHeader(w) && w.writeI32(51); }, message));
    EXPECT_EQ(message, (Bytes{0xD3, 0x57, 0x73, 0x1A, 0x00, 0x82, 0x07, 0x03, 0x01, 0x02, 0xE9, 0x03, 0x49,
                              0x04, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x33, 0x00, 0x00, 0x00}));
}

TEST(AsciiCoderTest, EncodesCommandEventAndRepliesCharacterForCharacter)
{
    SEP::AsciiCoderC coder;
    Bytes message;
    ASSERT_TRUE(encode(coder, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, nullptr, message));
    EXPECT_EQ(message, bytesOf("SC1001,B1D4:"));

    ASSERT_TRUE(encode(
        coder, 1000, SEP::MESSAGE_KIND_EVENT, kSource, kDestination,
        [](DataWriterI& w) { return replyHeader(w) && w.writeI32(1); }, message));
    EXPECT_EQ(message, bytesOf("SE1000@7,3,1,2,D093:1097,10,0,1"));

    const std::uint8_t raw[] = {0x0D, 0x0A};
    ASSERT_TRUE(encode(
        coder, 1001, SEP::MESSAGE_KIND_REPLY, {}, {},
        [&](DataWriterI& w) {
            return replyHeader(w) && w.writeString("a\"b") && w.writeFloat(1.5f) &&
                   w.writeDouble(std::numeric_limits<double>::quiet_NaN()) &&
                   w.writeFloat(std::numeric_limits<float>::infinity()) &&
                   w.writeDouble(-std::numeric_limits<double>::infinity()) && w.writeDouble(-0.125) &&
                   w.writeBytes(raw, 2);
        },
        message));
    // The checksum "48D3" is the CRC 0xD348 low byte first.
    EXPECT_EQ(message, bytesOf("SR1001,48D3:1097,10,0,\"a\x1A"
                               "b\",1.50000000e+00,NAN,INF,-INF,-1.2500000000000000e-01,0D0A"));

    ASSERT_TRUE(encode(
        coder, 1001, SEP::MESSAGE_KIND_REPLY, kSource, kDestination,
        [](DataWriterI& w) { return replyHeader(w) && w.writeI32(51); }, message));
    EXPECT_EQ(message, bytesOf("SR1001@7,3,1,2,9DF7:1097,10,0,51"));
}

TEST(CoderTest, RefusesWhatCannotBeCodedAndCommitsNothingOfIt)
{
    SEP::BinaryCoderC binary;
    SEP::AsciiCoderC ascii;
    for (SEP::DataCoderI* coder : {static_cast<SEP::DataCoderI*>(&binary), static_cast<SEP::DataCoderI*>(&ascii)}) {
        Bytes message;
        EXPECT_FALSE(encode(*coder, 1, SEP::MESSAGE_KIND_COMMAND, kSource, {}, nullptr, message)) << coder->name();
        EXPECT_FALSE(encode(*coder, 1, 4, {}, {}, nullptr, message)) << coder->name();
        // Once a write fails every later write and the end fail: nothing reaches the buffer.
        MAL::UTI::RingBufferC buffer(256);
        coder->setWriteBuffer(&buffer);
        ASSERT_TRUE(coder->beginMessage(1, SEP::MESSAGE_KIND_REPLY, {}, {}));
        EXPECT_FALSE(coder->writeString("bell\x07"));
        EXPECT_FALSE(coder->writeU8(1));
        EXPECT_FALSE(coder->endMessage());
        EXPECT_EQ(buffer.usedBytes(), 0u);
        // A message that outgrows its buffer leaves nothing of itself behind either.
        ASSERT_TRUE(coder->beginMessage(2, SEP::MESSAGE_KIND_REPLY, {}, {}));
        const std::string large(300, 'x');
        EXPECT_FALSE(coder->writeString(large.c_str()));
        EXPECT_FALSE(coder->endMessage());
        EXPECT_EQ(buffer.usedBytes(), 0u);
        // The empty string is two quotes and reads back empty.
        ASSERT_TRUE(encode(
            *coder, 3, SEP::MESSAGE_KIND_REPLY, {}, {}, [](DataWriterI& w) { return w.writeString(""); }, message));
        ASSERT_GE(message.size(), 2u);
        EXPECT_EQ(message[message.size() - 1], '"');
        EXPECT_EQ(message[message.size() - 2], '"');
    }
}

// Reads the header of `frame`; the coder then reads the parameters from a copy kept until the next call.
bool header(SEP::DataCoderI& coder, const Bytes& frame, std::uint32_t& kind, std::uint16_t& id, AddressC& source,
            AddressC& destination)
{
    static Bytes kept;
    kept = frame;
    coder.setReadFrame(kept.data(), kept.size());
    return coder.readHeader(kind, id, source, destination);
}

TEST(CoderTest, ReadsBackEveryTypeInBothCodings)
{
    SEP::BinaryCoderC binary;
    SEP::AsciiCoderC ascii;
    for (SEP::DataCoderI* coder : {static_cast<SEP::DataCoderI*>(&binary), static_cast<SEP::DataCoderI*>(&ascii)}) {
        const std::uint8_t raw[] = {0x00, 0xFF, 0x0D};
        Bytes message;
        ASSERT_TRUE(encode(
            *coder, 65535, SEP::MESSAGE_KIND_EVENT, kSource, kDestination,
            [&](DataWriterI& w) {
                return w.writeU8(255) && w.writeU16(65535) && w.writeU32(4294967295u) && w.writeI8(-128) &&
                       w.writeI16(-32768) && w.writeI32(-2147483647 - 1) && w.writeBool(true) && w.writeFloat(-2.5f) &&
                       w.writeDouble(1e-300) && w.writeBytes(raw, 3) && w.writeString("say \"hi\"\t");
            },
            message));
        std::uint32_t kind = 0;
        std::uint16_t id = 0;
        AddressC source, destination;
        ASSERT_TRUE(header(*coder, message, kind, id, source, destination)) << coder->name();
        EXPECT_EQ(kind, SEP::MESSAGE_KIND_EVENT);
        EXPECT_EQ(id, 65535);
        EXPECT_EQ(source, kSource);
        EXPECT_EQ(destination, kDestination);
        std::uint8_t u8 = 0;
        std::uint16_t u16 = 0;
        std::uint32_t u32 = 0;
        std::int8_t i8 = 0;
        std::int16_t i16 = 0;
        std::int32_t i32 = 0;
        bool flag = false;
        float f = 0;
        double d = 0;
        std::uint8_t bytes[3] = {};
        char text[16];
        ASSERT_TRUE(coder->readU8(u8) && coder->readU16(u16) && coder->readU32(u32) && coder->readI8(i8) &&
                    coder->readI16(i16) && coder->readI32(i32) && coder->readBool(flag) && coder->readFloat(f) &&
                    coder->readDouble(d) && coder->readBytes(bytes, 3) && coder->readString(text, sizeof text))
            << coder->name();
        EXPECT_EQ(u8, 255);
        EXPECT_EQ(u16, 65535);
        EXPECT_EQ(u32, 4294967295u);
        EXPECT_EQ(i8, -128);
        EXPECT_EQ(i16, -32768);
        EXPECT_EQ(i32, -2147483647 - 1);
        EXPECT_TRUE(flag);
        EXPECT_EQ(f, -2.5f);
        EXPECT_EQ(d, 1e-300);
        EXPECT_EQ(Bytes(bytes, bytes + 3), Bytes(raw, raw + 3));
        EXPECT_STREQ(text, "say \"hi\"\t");
        EXPECT_TRUE(coder->atEnd());
        EXPECT_FALSE(coder->readU8(u8)) << "nothing is read past the last value";
    }
}

TEST(BinaryCoderTest, RejectsBadChecksumKindThreeAndSkipsLeadingGarbage)
{
    SEP::BinaryCoderC coder;
    Bytes message;
    ASSERT_TRUE(encode(
        coder, 1001, SEP::MESSAGE_KIND_COMMAND, {}, {}, [](DataWriterI& w) { return w.writeU8(9); }, message));
    std::uint32_t kind;
    std::uint16_t id;
    AddressC source, destination;

    Bytes garbage = {0x01, 0xD3, 0x77, 0x00};
    garbage.insert(garbage.end(), message.begin(), message.end());
    ASSERT_TRUE(header(coder, garbage, kind, id, source, destination));
    EXPECT_EQ(id, 1001);
    EXPECT_FALSE(source.isValid());

    Bytes corrupt = message;
    corrupt.back() ^= 0x01;
    EXPECT_FALSE(header(coder, corrupt, kind, id, source, destination));

    // Kind code 3 with a correct checksum is refused.
    Bytes kindThree = message;
    kindThree[5] = 0x03;
    const std::uint16_t crc = static_cast<std::uint16_t>(
        SEP::crc16(kindThree.data() + 3, kindThree.size() - 3, SEP::crc16(kindThree.data(), 1)));
    kindThree[1] = static_cast<std::uint8_t>(crc & 0xFF);
    kindThree[2] = static_cast<std::uint8_t>(crc >> 8);
    EXPECT_FALSE(header(coder, kindThree, kind, id, source, destination));

    // A string too long for its buffer is refused and leaves the position where it was.
    ASSERT_TRUE(encode(
        coder, 1, SEP::MESSAGE_KIND_COMMAND, {}, {}, [](DataWriterI& w) { return w.writeString("abc"); }, message));
    ASSERT_TRUE(header(coder, message, kind, id, source, destination));
    char small[3];
    EXPECT_FALSE(coder.readString(small, sizeof small));
    char fits[4];
    EXPECT_TRUE(coder.readString(fits, sizeof fits));
}

// An ASCII frame with a correct checksum for whatever it says.
Bytes asciiFrame(const std::string& head, const std::string& parameters)
{
    const Bytes unsummed = bytesOf(head.substr(head.find('S')) + "," + ":" + parameters);
    const std::uint16_t crc = SEP::crc16(unsummed.data(), unsummed.size());
    char checksum[5];
    std::snprintf(checksum, sizeof checksum, "%02X%02X", crc & 0xFF, crc >> 8);
    return bytesOf(head + "," + checksum + ":" + parameters);
}

TEST(AsciiCoderTest, RejectsOutOfRangeHeadersAndChecksums)
{
    SEP::AsciiCoderC coder;
    std::uint32_t kind;
    std::uint16_t id;
    AddressC source, destination;
    EXPECT_TRUE(header(coder, asciiFrame("xxSC65535@255,0,1,2", ""), kind, id, source, destination));
    EXPECT_EQ(id, 65535);
    EXPECT_EQ(destination, AddressC(255, 0));
    EXPECT_FALSE(header(coder, asciiFrame("SC65536", ""), kind, id, source, destination));
    EXPECT_FALSE(header(coder, asciiFrame("SC1@256,0,1,2", ""), kind, id, source, destination));
    EXPECT_FALSE(header(coder, asciiFrame("SC1@1,0,1", ""), kind, id, source, destination));
    EXPECT_FALSE(header(coder, asciiFrame("SX1", ""), kind, id, source, destination));
    Bytes swapped = asciiFrame("SC1001", "");
    std::swap(swapped[7], swapped[9]);
    std::swap(swapped[8], swapped[10]);
    EXPECT_FALSE(header(coder, swapped, kind, id, source, destination)) << "the checksum is low byte first";
}

TEST(AsciiCoderTest, RejectsOutOfRangeValuesAndTrailingCharacters)
{
    SEP::AsciiCoderC coder;
    std::uint32_t kind;
    std::uint16_t id;
    AddressC source, destination;
    std::uint8_t u8;
    std::int8_t i8;
    std::int16_t i16;
    std::uint32_t u32;
    std::int32_t i32;

    ASSERT_TRUE(header(coder, asciiFrame("SC1", "256,255"), kind, id, source, destination));
    EXPECT_FALSE(coder.readU8(u8));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "128,-129,32768,-32769,-128,-32768"), kind, id, source, destination));
    EXPECT_FALSE(coder.readI8(i8));
    ASSERT_TRUE(coder.readI32(i32));
    ASSERT_TRUE(coder.readI32(i32));
    EXPECT_EQ(i32, -129);
    EXPECT_FALSE(coder.readI16(i16));
    ASSERT_TRUE(coder.readI32(i32));
    EXPECT_FALSE(coder.readI16(i16));
    ASSERT_TRUE(coder.readI32(i32));
    EXPECT_TRUE(coder.readI8(i8));
    EXPECT_EQ(i8, -128);
    EXPECT_TRUE(coder.readI16(i16));
    EXPECT_EQ(i16, -32768);
    EXPECT_FALSE(coder.readI32(i32)) << "no value after the last one";

    ASSERT_TRUE(header(coder, asciiFrame("SC1", "4294967296"), kind, id, source, destination));
    EXPECT_FALSE(coder.readU32(u32));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "2147483648"), kind, id, source, destination));
    EXPECT_FALSE(coder.readI32(i32));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "12x"), kind, id, source, destination));
    EXPECT_FALSE(coder.readU32(u32)) << "a value must end at a comma or the frame's end";
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "\"ab\"x"), kind, id, source, destination));
    std::string text;
    EXPECT_FALSE(coder.readString(text));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "1.5x"), kind, id, source, destination));
    double d;
    EXPECT_FALSE(coder.readDouble(d));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "\"open,1"), kind, id, source, destination));
    EXPECT_FALSE(coder.readString(text)) << "a string needs its closing quote";
    std::uint8_t bytes[2];
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "0A0"), kind, id, source, destination));
    EXPECT_FALSE(coder.readBytes(bytes, 2));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "0A0G"), kind, id, source, destination));
    EXPECT_FALSE(coder.readBytes(bytes, 2));
    ASSERT_TRUE(header(coder, asciiFrame("SC1", "-INF,NAN"), kind, id, source, destination));
    ASSERT_TRUE(coder.readDouble(d));
    EXPECT_TRUE(std::isinf(d) && d < 0);
    ASSERT_TRUE(coder.readDouble(d));
    EXPECT_TRUE(std::isnan(d));
}

}  // namespace
}  // namespace halvern::test
