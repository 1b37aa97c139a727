// Which driver store packages the WLAN driver management takes for its provider's, from the device tool's
// package listing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "net/DriverPackageListing.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using net::parseDriverPackages;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DriverPackageListingTest : public InstrumentTest {};

const char* const kListing =
    "The following 3rd party Driver Packages are on this machine:\r\n"
    "oem1.inf\r\n"
    "    Provider: Intel\r\n"
    "    Class: Network adapters\r\n"
    "oem3.inf\r\n"
    "    Provider: Qualcomm Atheros\r\n"
    "    Class: Network adapters\r\n"
    "    Date: 11/02/2016\r\n"
    "    Version: 10.0.0.340\r\n"
    "oem7.inf\r\n"
    "    Provider: Atheros Communications Inc.\r\n";

TEST_F(DriverPackageListingTest, ThePackagesOfTheProviderAreTakenAndLogged)
{
    EXPECT_THAT(parseDriverPackages(kListing, "Atheros"), ElementsAre("oem3.inf", "oem7.inf"));
    EXPECT_THAT(logMessages(), ElementsAre("Found matching driver: oem3.inf", "Found matching driver: oem7.inf"));
    EXPECT_THAT(parseDriverPackages(kListing, "atheros"), IsEmpty()) << "the provider is compared as written";
}

TEST_F(DriverPackageListingTest, AnotherVendorsPackagesAndPackagesWithoutProviderAreLeft)
{
    EXPECT_THAT(parseDriverPackages("oem1.inf\n    Provider: Intel\n    Class: Net\n", "Atheros"), IsEmpty());
    // The package line after the match has no provider line of its own: nothing of it may be removed.
    EXPECT_THAT(parseDriverPackages("oem3.inf\n    Provider: Qualcomm Atheros\noem4.inf\n    Class: Net\n", "Atheros"),
                ElementsAre("oem3.inf"));
    EXPECT_THAT(parseDriverPackages("    Provider: Qualcomm Atheros\noem5.inf\n", "Atheros"), IsEmpty())
        << "a provider line before any package names none";
    // The provider's name in a field other than the provider is no match.
    EXPECT_THAT(parseDriverPackages("oem6.inf\n    Class: Atheros adapters\n", "Atheros"), IsEmpty());
}

TEST_F(DriverPackageListingTest, OddOutputNamesNothingItShouldNot)
{
    EXPECT_THAT(parseDriverPackages("", "Atheros"), IsEmpty());
    EXPECT_THAT(parseDriverPackages("No 3rd party Driver Packages found on this machine.\n", "Atheros"), IsEmpty());
    // The last line needs no line feed, and blanks around a package name are not part of it.
    EXPECT_THAT(parseDriverPackages("  \toem9.inf \r\nProvider:Atheros", "Atheros"), ElementsAre("oem9.inf"));
    EXPECT_THAT(parseDriverPackages("oem9.inf\nProvider Atheros\n", "Atheros"), IsEmpty())
        << "a line without a colon is never a provider line";
}

}  // namespace
}  // namespace halvern::test
