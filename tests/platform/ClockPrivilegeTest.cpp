// Setting the clock asks for SeSystemtimePrivilege on both builds, as Windows does: a caller that forgets to
// enable it fails with ERROR_PRIVILEGE_NOT_HELD and the clock stays. With it, the simulated instrument's
// clock is set; under Wine the call is refused before it reaches the machine running the tests.
#include <gtest/gtest.h>

#include "platform/Privilege.h"
#include "platform/Time.h"
#include "platform/WinError.h"
#include "support/ClockSupport.h"
#include "support/TestEnvironment.h"
#include "sysmanager/TimeKeepingInternal.h"

namespace halvern::test {
namespace {

using ClockPrivilegeTest = InstrumentTest;

TEST_F(ClockPrivilegeTest, WithoutThePrivilegeTheClockIsNotSet)
{
    ASSERT_FALSE(platform::privilegeEnabled(platform::kSeSystemtimePrivilege)) << "Windows holds it disabled";
    const platform::SystemTime before = platform::systemTime();
    platform::setLastError(0);
    EXPECT_FALSE(platform::setSystemTime(aDayAhead()));
    EXPECT_EQ(platform::lastError(), platform::kErrorPrivilegeNotHeld);
    platform::setLastError(0);
    EXPECT_FALSE(platform::setLocalTime(aDayAhead()));
    EXPECT_EQ(platform::lastError(), platform::kErrorPrivilegeNotHeld);
    EXPECT_NEAR(secondsOf(platform::systemTime()), secondsOf(before), kClockSlackSeconds);
}

TEST_F(ClockPrivilegeTest, TheSystemManagersClockSetHoldsThePrivilegeForTheCallOnly)
{
    const platform::SystemTime before = platform::systemTime();
    const platform::SystemTime ahead = aDayAhead();
    platform::setLastError(0);
    const bool set = halvern::time::setSystemClock(ahead);
    const std::uint32_t error = platform::lastError();
    EXPECT_FALSE(platform::privilegeEnabled(platform::kSeSystemtimePrivilege)) << "disabled again after the call";
    EXPECT_NE(error, platform::kErrorPrivilegeNotHeld) << "the call was made without SeSystemtimePrivilege";
    if (clockCanBeSet()) {
        EXPECT_TRUE(set) << error;
        EXPECT_NEAR(secondsOf(platform::systemTime()), secondsOf(ahead), kClockSlackSeconds);
    } else {
        EXPECT_FALSE(set);
        EXPECT_EQ(error, platform::kErrorAccessDenied) << "refused under Wine";
        EXPECT_NEAR(secondsOf(platform::systemTime()), secondsOf(before), kClockSlackSeconds)
            << "the host's clock moved";
    }
}

}  // namespace
}  // namespace halvern::test
