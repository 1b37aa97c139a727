#include <gtest/gtest.h>

#include <filesystem>

#include "app/Log.h"
#include "app/StartUp.h"
#include "platform/Registry.h"
#include "platform/WinError.h"
#include "platform/sim/SimRegistry.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using platform::RegHive;

class RegistryTest : public InstrumentTest {
protected:
    void setDword(const char* name, std::uint32_t value)
    {
        ASSERT_TRUE(platform::sim::writeValue(RegHive::CurrentUser, "SOFTWARE\\Vexar\\Halvern", name,
                                              {platform::kRegDword, std::to_string(value)}));
    }
};

TEST_F(RegistryTest, ValuesAreReadWithWindowsResults)
{
    ASSERT_TRUE(
        platform::sim::writeValue(RegHive::LocalMachine, "SOFTWARE\\Test", "Count", {platform::kRegDword, "0x2A"}));
    ASSERT_TRUE(
        platform::sim::writeValue(RegHive::LocalMachine, "SOFTWARE\\Test", "Name", {platform::kRegSz, "long text"}));
    platform::UniqueRegKey key;
    ASSERT_EQ(platform::regOpenKeyRead(RegHive::LocalMachine, L"software\\TEST", key), 0);
    std::uint32_t value = 0;
    std::uint32_t type = 0;
    EXPECT_EQ(platform::regQueryDword(key, L"count", value, type), 0);
    EXPECT_EQ(value, 42u);
    EXPECT_EQ(type, platform::kRegDword);
    EXPECT_EQ(platform::regQueryDword(key, L"Name", value, type),
              static_cast<platform::RegStatus>(platform::kErrorMoreData));
    EXPECT_EQ(platform::regQueryDword(key, L"Missing", value, type),
              static_cast<platform::RegStatus>(platform::kErrorFileNotFound));

    platform::UniqueRegKey missing;
    EXPECT_EQ(platform::regOpenKeyRead(RegHive::CurrentUser, L"SOFTWARE\\Nobody", missing),
              static_cast<platform::RegStatus>(platform::kErrorFileNotFound));
    EXPECT_FALSE(missing);
}

TEST_F(RegistryTest, SubkeysAreEnumeratedByNameAndValuesKeepTheirTypes)
{
    for (const char* name : {"beta", "Alpha", "gamma\\Inner"})
        ASSERT_TRUE(platform::sim::writeValue(RegHive::LocalMachine, std::string("SOFTWARE\\Test\\") + name, "Text",
                                              {platform::kRegSz, name}));
    ASSERT_TRUE(platform::sim::writeValue(RegHive::LocalMachine, "SOFTWARE\\Test", "Bytes",
                                          {platform::kRegBinary, "c4 ff,FF ff 00"}));
    platform::UniqueRegKey key;
    ASSERT_EQ(platform::regOpenKeyRead(RegHive::LocalMachine, L"SOFTWARE\\Test", key), 0);
    std::vector<std::wstring> names;
    std::wstring name;
    std::uint32_t index = 0;
    for (; platform::regEnumKey(key, index, name) == 0; ++index)
        names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Alpha", L"beta", L"gamma"})) << "keys only, without regard to case";
    EXPECT_EQ(platform::regEnumKey(key, index, name), static_cast<platform::RegStatus>(platform::kErrorNoMoreItems));

    platform::UniqueRegKey inner;
    ASSERT_EQ(platform::regOpenKeyRead(key, L"GAMMA\\inner", inner), 0);
    std::wstring text;
    EXPECT_EQ(platform::regQueryString(inner, L"Text", text), 0);
    EXPECT_EQ(text, L"gamma\\Inner");
    std::vector<std::uint8_t> bytes;
    EXPECT_EQ(platform::regQueryBinary(key, L"Bytes", bytes), 0);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{0xC4, 0xFF, 0xFF, 0xFF, 0x00}));
    EXPECT_EQ(platform::regQueryString(key, L"Bytes", text),
              static_cast<platform::RegStatus>(platform::kErrorUnsupportedType));
    EXPECT_EQ(platform::regQueryBinary(inner, L"Text", bytes),
              static_cast<platform::RegStatus>(platform::kErrorUnsupportedType));
    EXPECT_EQ(platform::regQueryString(inner, L"Missing", text),
              static_cast<platform::RegStatus>(platform::kErrorFileNotFound));
    platform::UniqueRegKey missing;
    EXPECT_EQ(platform::regOpenKeyRead(key, L"delta", missing),
              static_cast<platform::RegStatus>(platform::kErrorFileNotFound));
}

TEST_F(RegistryTest, StartUpSettingsDefaultWithoutTheKey)
{
    std::filesystem::remove_all(platform::sim::keyFolder(RegHive::CurrentUser, "SOFTWARE\\Vexar"));
    platform::ManualClockC clock;
    platform::setClock(&clock);
    const std::uint64_t start = clock.tickCount64();
    const StartUpSettings settings = ReadStartUpSettings();
    EXPECT_EQ(settings.backendToFrontendDelay, 1000u);
    EXPECT_TRUE(settings.allowMxApplicationStartup);
    EXPECT_FALSE(settings.efiServiceIpcConnectionDelay.has_value());
    EXPECT_EQ(clock.tickCount64(), start) << "no extra wait";
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(RegistryTest, StartUpSettingsComeFromTheUserKey)
{
    setDword("BackendToFrontendDelay", 2500);
    setDword("AllowMxApplicationStartup", 0);
    setDword("EFIServiceIPCConnectionDelay", 3000);
    platform::ManualClockC clock;
    platform::setClock(&clock);
    const std::uint64_t start = clock.tickCount64();
    const StartUpSettings settings = ReadStartUpSettings();
    EXPECT_EQ(settings.backendToFrontendDelay, 2500u);
    EXPECT_FALSE(settings.allowMxApplicationStartup);
    EXPECT_EQ(settings.efiServiceIpcConnectionDelay, 3000u);
    EXPECT_EQ(clock.tickCount64() - start, 3000u);
    EXPECT_EQ(logMessages(),
              std::vector<std::string>{"Halvern [wWinMain]: Waiting 3000 msec before Zentor Application start"});
}

TEST_F(RegistryTest, AnyNonZeroValueAllowsTheApplications)
{
    setDword("AllowMxApplicationStartup", 7);
    EXPECT_TRUE(ReadStartUpSettings().allowMxApplicationStartup);
}

}  // namespace
}  // namespace halvern::test
