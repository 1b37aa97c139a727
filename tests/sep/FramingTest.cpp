// The byte stream between client and server: escapes, CR LF, damaged bytes and streams that never end a
// frame.
#include <gtest/gtest.h>

#include <algorithm>

#include "framework/RingBufferC.h"
#include "sep/ReaderConnectionC.h"
#include "sep/SepTestSupport.h"
#include "sep/SerialFramerC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using MAL::UTI::RingBufferC;
using MAL::UTI::SerialFramerC;

std::vector<Bytes> framesOf(RingBufferC& buffer)
{
    std::vector<Bytes> frames;
    Bytes frame;
    MAL::UTI::RingBufferReadLockC lock(buffer);
    while (buffer.frontMessage(frame)) {
        frames.push_back(frame);
        buffer.popMessage();
    }
    return frames;
}

class FramingTest : public InstrumentTest {};

TEST_F(FramingTest, EscapedBytesSurviveTheRoundTripInAnySplit)
{
    const Bytes message = {0x41, 0x0D, 0xDD, 0x0A, 0x02, 0xDD, 0x0D};
    Bytes wire;
    SerialFramerC::frame(message.data(), message.size(), wire);
    EXPECT_EQ(wire, (Bytes{0x41, 0xDD, 0x02, 0xDD, 0xDD, 0x0A, 0x02, 0xDD, 0xDD, 0xDD, 0x02, 0x0D, 0x0A}));

    // Whatever way TCP cuts the stream, the frames come out whole.
    for (std::size_t cut = 0; cut <= wire.size(); ++cut) {
        RingBufferC buffer(1024);
        MAL::HAL::ReaderConnectionC reader(buffer);
        const std::size_t frames =
            reader.procReadData(wire.data(), cut) + reader.procReadData(wire.data() + cut, wire.size() - cut);
        EXPECT_EQ(frames, 1u);
        EXPECT_EQ(framesOf(buffer), std::vector<Bytes>{message}) << "cut at " << cut;
    }
    EXPECT_TRUE(logMessages().empty());
}

TEST_F(FramingTest, LoneCrAndBadEscapeAreLoggedAndTheFrameGoesOn)
{
    RingBufferC buffer(1024);
    MAL::HAL::ReaderConnectionC reader(buffer);
    const Bytes wire = {0x31, 0x0D, 0x41, 0x32, 0xDD, 0x07, 0x33, 0x0D, 0x0A};
    EXPECT_EQ(reader.procReadData(wire.data(), wire.size()), 1u);
    EXPECT_EQ(framesOf(buffer), std::vector<Bytes>{(Bytes{0x31, 0x0D, 0x32, 0x33})});
    EXPECT_EQ(logMessages(),
              (std::vector<std::string>{"MAL::HAL::ReaderConnectionC::procReadData Unexpected byte received.",
                                        "MAL::HAL::ReaderConnectionC::procReadData Unexpected byte received."}));
}

TEST_F(FramingTest, AStreamWithoutLineEndStaysWithinTheBufferAndTheNextFrameArrives)
{
    RingBufferC buffer(4096);
    MAL::HAL::ReaderConnectionC reader(buffer);
    const Bytes chunk(1024, 0x55);
    for (int i = 0; i < 200; ++i)
        reader.procReadData(chunk.data(), chunk.size());
    EXPECT_LE(buffer.usedBytes(), buffer.capacity());
    EXPECT_EQ(reader.state(), MAL::HAL::ReaderConnectionC::StateE::Discard);
    const Bytes tail = {0x0D, 0x0A, 0x42, 0x0D, 0x0A};
    EXPECT_EQ(reader.procReadData(tail.data(), tail.size()), 1u);
    EXPECT_EQ(framesOf(buffer), std::vector<Bytes>{Bytes{0x42}});
    EXPECT_EQ(buffer.usedBytes(), 0u);
}

TEST_F(FramingTest, AFrameTooLargeForTheBufferIsDroppedUpToTheLineFeedAfterItWhateverTheReadSizes)
{
    // 14 bytes fit behind the length prefix; the LF among them is payload, the one after the overflow
    // ends the discarding.
    Bytes stream(4, 0x41);
    stream.push_back(0x0A);
    stream.insert(stream.end(), 15, 0x41);
    stream.insert(stream.end(), {0x0A, 0x43, 0x0D, 0x0A});
    for (std::size_t piece : {std::size_t{1}, std::size_t{3}, stream.size()}) {
        RingBufferC buffer(16);
        MAL::HAL::ReaderConnectionC reader(buffer);
        for (std::size_t at = 0; at < stream.size(); at += piece)
            reader.procReadData(stream.data() + at, std::min(piece, stream.size() - at));
        EXPECT_EQ(framesOf(buffer), std::vector<Bytes>{Bytes{0x43}}) << "read size " << piece;
    }
}

TEST(RingBufferTest, KeepsWholeMessagesAcrossTheWrapAndDropsEmptyOnes)
{
    RingBufferC buffer(16);
    for (int round = 0; round < 10; ++round) {
        MAL::UTI::RingBufferWriteLockC lock(buffer);
        ASSERT_TRUE(buffer.beginMessage());
        const Bytes message = {static_cast<std::uint8_t>(round), 1, 2, 3, 4};
        ASSERT_TRUE(buffer.write(message.data(), message.size()));
        ASSERT_TRUE(buffer.commitMessage());
        ASSERT_TRUE(buffer.beginMessage());
        EXPECT_FALSE(buffer.commitMessage()) << "an empty message is not committed";
        EXPECT_EQ(framesOf(buffer), std::vector<Bytes>{message});
    }
    MAL::UTI::RingBufferWriteLockC lock(buffer);
    ASSERT_TRUE(buffer.beginMessage());
    const Bytes large(20, 1);
    EXPECT_FALSE(buffer.write(large.data(), large.size()));
    buffer.resetMessage();
    EXPECT_EQ(buffer.usedBytes(), 0u);
}

TEST(RingBufferTest, AMessageIsFramedStraightFromTheBufferWhereverItWraps)
{
    // 13-byte messages in a 16-byte buffer: every start offset comes round, with CR and the escape byte
    // on either side of the wrap.
    RingBufferC buffer(16);
    for (int round = 0; round < 20; ++round) {
        const Bytes message = {static_cast<std::uint8_t>(round), SerialFramerC::CR, 1, SerialFramerC::ESCAPE, 2,
                               SerialFramerC::CR, SerialFramerC::CR, 3, SerialFramerC::ESCAPE, 4, 5,
                               SerialFramerC::LF, SerialFramerC::CR};
        {
            MAL::UTI::RingBufferWriteLockC lock(buffer);
            ASSERT_TRUE(buffer.beginMessage());
            ASSERT_TRUE(buffer.write(message.data(), message.size()));
            ASSERT_TRUE(buffer.commitMessage());
        }
        Bytes framed, expected;
        ASSERT_TRUE(SerialFramerC::takeFramed(buffer, framed));
        SerialFramerC::frame(message.data(), message.size(), expected);
        EXPECT_EQ(framed, expected) << "round " << round;
        EXPECT_FALSE(SerialFramerC::takeFramed(buffer, framed)) << "the message left the buffer";
    }
}

}  // namespace
}  // namespace halvern::test
