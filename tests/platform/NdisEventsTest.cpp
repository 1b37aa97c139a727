// The driver's NDIS indications as the platform subscribes to them. Where nothing serves them (a fresh
// simulated instrument without its WLAN driver; Wine, whose WMI may lack the NDIS classes) the
// subscription must name the step that failed with its error, and leave nothing behind that a later try
// or the end of the process trips over.
#include <gtest/gtest.h>

#include <atomic>

#include "platform/WlanDriver.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class NdisEventsTest : public InstrumentTest {};

TEST_F(NdisEventsTest, StartEitherSubscribesOrNamesTheFailedStepAndCanBeTriedAgain)
{
    std::atomic<int> delivered{0};
    for (int attempt = 0; attempt < 2; ++attempt) {
        platform::NdisEventSourceC source;
        const platform::NdisSubscribeResultT result = source.start([&](const platform::NdisEventT&) { ++delivered; });
        if (result.failedStep == platform::NdisSubscribeStepE::None) {
            EXPECT_EQ(result.code, 0u);
            source.stop();
        } else {
            EXPECT_NE(result.code, 0u) << "step " << static_cast<int>(result.failedStep);
        }
        source.stop();
    }
}

}  // namespace
}  // namespace halvern::test
