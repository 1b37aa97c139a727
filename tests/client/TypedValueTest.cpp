// halvernctl's TYPE:VALUE parameters: what a typo must not turn into on the wire.
#include <gtest/gtest.h>

#include "client/TypedValue.h"

namespace halvern::test {
namespace {

bool parses(const std::string& argument, SEP::TypedValueT& value)
{
    std::string error;
    return SEP::parseTypedValue(argument, value, error);
}

TEST(TypedValueTest, AcceptsEachTypeOnlyWithinItsRange)
{
    SEP::TypedValueT value;
    for (const char* good :
         {"u8:255", "u16:65535", "u32:4294967295", "i8:-128", "i16:32767", "i32:-2147483648", "bool:0", "bool:1",
          "f32:1.5", "f64:-1e-300", "bytes:", "bytes:00ff0D", "str:", "str:a:b, c"})
        EXPECT_TRUE(parses(good, value)) << good;
    for (const char* bad :
         {"u8:256", "u8:-1", "u16:65536", "u32:4294967296", "i8:128", "i16:-32769", "i32:2147483648", "bool:2",
          "f32:1.5x", "f64:", "bytes:0", "bytes:0G", "u8:", "x8:1", "u8", "u32:+1", "u32: 1"})
        EXPECT_FALSE(parses(bad, value)) << bad;

    ASSERT_TRUE(parses("str:a:b, c", value));
    EXPECT_EQ(value.text, "a:b, c");
    ASSERT_TRUE(parses("bytes:00ff0D", value));
    EXPECT_EQ(value.bytes, (std::vector<std::uint8_t>{0x00, 0xFF, 0x0D}));
}

TEST(TypedValueTest, ReplyFieldsNeedALengthOnlyForByteArrays)
{
    SEP::TypedValueT shape;
    std::string error;
    EXPECT_TRUE(SEP::parseReadSpec("bytes:6", shape, error));
    EXPECT_EQ(shape.bytes.size(), 6u);
    EXPECT_TRUE(SEP::parseReadSpec("i32", shape, error));
    EXPECT_FALSE(SEP::parseReadSpec("bytes", shape, error));
    EXPECT_FALSE(SEP::parseReadSpec("i32:4", shape, error));
    EXPECT_FALSE(SEP::parseReadSpec("int", shape, error));
}

}  // namespace
}  // namespace halvern::test
