// Commands a client sends in one write: each gets its own reply, in order and in the coding it came in,
// also when the last of them has no reply of its own to carry the others out.
#include <gtest/gtest.h>

#include "sep/SepCommandTestSupport.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

class PipelinedCommandsTest : public InstrumentTest {
protected:
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
};

TEST_F(PipelinedCommandsTest, EachCommandOfOneWriteIsAnsweredInItsOwnCodingAndOrder)
{
    SepCommandPort port;
    std::vector<std::uint8_t> batch;
    const auto append = [&batch](SEP::CodingE coding, std::uint16_t id) {
        const auto frame = SEP::encodeFrame(coding, id, SEP::MESSAGE_KIND_COMMAND, {}, {}, {});
        batch.insert(batch.end(), frame.begin(), frame.end());
    };
    append(SEP::CodingE::Binary, 1001);
    append(SEP::CodingE::Ascii, 1020);
    append(SEP::CodingE::Binary, 1001);
    // An id without a handler ends the write: the default callback answers nothing.
    append(SEP::CodingE::Binary, 1045);
    ASSERT_TRUE(port.client().sendBytes(batch));

    const std::pair<SEP::CodingE, std::uint16_t> expected[] = {
        {SEP::CodingE::Binary, 1001}, {SEP::CodingE::Ascii, 1020}, {SEP::CodingE::Binary, 1001}};
    for (const auto& [coding, id] : expected) {
        std::vector<std::uint8_t> bytes;
        ASSERT_TRUE(port.client().receiveFrame(bytes, 10000)) << "no reply to " << id;
        SEP::DecodedFrameT reply;
        ASSERT_TRUE(SEP::decodeFrame(bytes, reply));
        EXPECT_EQ(reply.messageId, id);
        EXPECT_EQ(reply.kind, SEP::MESSAGE_KIND_REPLY);
        EXPECT_EQ(reply.coding, coding) << id;
    }
}

}  // namespace
}  // namespace halvern::test
