#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/Log.h"
#include "app/StartUp.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using ::testing::ElementsAre;

class StartUpTest : public InstrumentTest {};

TEST_F(StartUpTest, SecondInstanceIsRefusedUntilTheFirstEnds)
{
    platform::UniqueHandle first;
    ASSERT_TRUE(IsSingleInstance(first));
    EXPECT_TRUE(first);

    platform::UniqueHandle second;
    EXPECT_FALSE(IsSingleInstance(second));
    EXPECT_FALSE(second) << "the refused instance keeps no handle";

    first.reset();
    platform::UniqueHandle third;
    EXPECT_TRUE(IsSingleInstance(third));
}

TEST_F(StartUpTest, OnlyTheExactNoUpdateArgumentDisablesUpdates)
{
    EXPECT_TRUE(UpdatesEnabled({L"Halvern.exe"}));
    EXPECT_FALSE(UpdatesEnabled({L"Halvern.exe", L"-noupdate"}));
    EXPECT_FALSE(UpdatesEnabled({L"Halvern.exe", L"-x", L"-noupdate"}));
    EXPECT_TRUE(UpdatesEnabled({L"Halvern.exe", L"-NOUPDATE"}));
    EXPECT_TRUE(UpdatesEnabled({L"Halvern.exe", L"-noupdate2"}));
    EXPECT_TRUE(UpdatesEnabled({L"Halvern.exe", L"noupdate"}));
    EXPECT_TRUE(UpdatesEnabled({L"-noupdate"})) << "the program's own name is not an option";
}

TEST_F(StartUpTest, BannerIsFramedByRulesOfItsOwnLength)
{
    LogBanner();
    const std::string text = "======= Halvern Application started, version: 4.0.0.0 =======";
    const std::string rule(text.size(), '=');
    EXPECT_THAT(logMessages(), ElementsAre(rule, text, rule));
}

}  // namespace
}  // namespace halvern::test
