// A connection's buffers are written by one thread and read by another (replies built on the command
// thread, framed and sent by whichever thread flushes): the positions alone hand the bytes over.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "framework/RingBufferC.h"

namespace halvern::test {
namespace {

using MAL::UTI::RingBufferC;

std::vector<std::uint8_t> messageNumber(std::uint32_t number)
{
    // Lengths from 1 to 41 bytes: messages end at every offset of the small buffer, across its wrap.
    std::vector<std::uint8_t> message(1 + number % 41);
    for (std::size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<std::uint8_t>(number * 7 + i);
    return message;
}

TEST(RingBufferThreadsTest, AWriterAndAReaderOnTwoThreadsPassEveryMessageWholeAndInOrder)
{
    constexpr std::uint32_t kMessages = 20000;
    RingBufferC buffer(64);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::thread writer([&] {
        for (std::uint32_t number = 0; number < kMessages && std::chrono::steady_clock::now() < deadline;) {
            const auto message = messageNumber(number);
            MAL::UTI::RingBufferWriteLockC lock(buffer);
            if (buffer.beginMessage() && buffer.write(message.data(), message.size()) && buffer.commitMessage()) {
                ++number;
                continue;
            }
            // Full: the reader frees room.
            buffer.resetMessage();
            std::this_thread::yield();
        }
    });
    std::uint32_t received = 0;
    std::uint32_t wrong = 0;
    std::vector<std::uint8_t> message;
    while (received < kMessages && std::chrono::steady_clock::now() < deadline) {
        MAL::UTI::RingBufferReadLockC lock(buffer);
        if (!buffer.frontMessage(message)) {
            std::this_thread::yield();
            continue;
        }
        buffer.popMessage();
        if (message != messageNumber(received)) ++wrong;
        ++received;
    }
    writer.join();
    EXPECT_EQ(received, kMessages);
    EXPECT_EQ(wrong, 0u) << "messages came torn, out of order or mixed";
    EXPECT_EQ(buffer.usedBytes(), 0u);
}

}  // namespace
}  // namespace halvern::test
