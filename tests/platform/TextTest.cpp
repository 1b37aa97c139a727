#include <gtest/gtest.h>

#include "platform/Text.h"

namespace halvern::test {
namespace {

TEST(TextTest, RoundTripsAcrossPlanes)
{
    const std::string text = "Zentor \xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA1 WIM";
    const std::wstring wide = platform::widen(text);
    EXPECT_EQ(wide.substr(0, 7), L"Zentor ");
    EXPECT_EQ(platform::narrow(wide), text);
}

TEST(TextTest, BrokenInputNeitherCrashesNorLosesBytes)
{
    EXPECT_EQ(platform::widen("a\xFF"
                              "b"),
              std::wstring(L"a\u00FF"
                           L"b"));
    std::wstring unpaired = L"x";
    unpaired.push_back(static_cast<wchar_t>(0xD800));
    EXPECT_FALSE(platform::narrow(unpaired).has_value());
}

}  // namespace
}  // namespace halvern::test
