#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "platform/NamedPipe.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

const wchar_t* const kPipe = L"\\\\.\\pipe\\HalvernNamedPipeTest";

// One server instance with one connected client, both in message read mode.
class NamedPipeTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_server = platform::createPipeServer(kPipe);
        ASSERT_TRUE(m_server) << platform::lastError();
        std::thread accept([this] { m_connected = platform::connectPipeClient(m_server.get()); });
        m_client = platform::openPipe(kPipe);
        accept.join();
        ASSERT_TRUE(m_client) << platform::lastError();
        ASSERT_TRUE(m_connected);
        ASSERT_TRUE(platform::setPipeMessageReadMode(m_client.get()));
    }
    void TearDown() override
    {
        m_client.reset();
        m_server.reset();
        InstrumentTest::TearDown();
    }
    platform::UniqueHandle m_server;
    platform::UniqueHandle m_client;
    bool m_connected = false;
};

TEST_F(NamedPipeTest, MessagesKeepTheirBoundariesAndALongOneIsReadInParts)
{
    ASSERT_TRUE(platform::writePipe(m_server.get(), "first", 5));
    ASSERT_TRUE(platform::writePipe(m_server.get(), "second message", 14));

    char buffer[32] = {};
    std::uint32_t got = 0;
    ASSERT_TRUE(platform::readPipe(m_client.get(), buffer, sizeof buffer, got));
    EXPECT_EQ(std::string(buffer, got), "first");

    // A buffer too short for the message: what fits, "more data", then the rest as the next read.
    EXPECT_FALSE(platform::readPipe(m_client.get(), buffer, 6, got));
    EXPECT_EQ(platform::lastError(), platform::kErrorMoreData);
    EXPECT_EQ(std::string(buffer, got), "second");
    ASSERT_TRUE(platform::readPipe(m_client.get(), buffer, sizeof buffer, got));
    EXPECT_EQ(std::string(buffer, got), " message");
}

TEST_F(NamedPipeTest, TransactionWritesTheRequestAndReadsTheWholeReply)
{
    std::thread server([this] {
        char request[16] = {};
        std::uint32_t got = 0;
        if (platform::readPipe(m_server.get(), request, sizeof request, got) && std::string(request, got) == "PING")
            platform::writePipe(m_server.get(), "PONG", 4);
    });
    char reply[16] = {};
    std::uint32_t got = 0;
    const bool ok = platform::transactPipe(m_client.get(), "PING", 4, reply, sizeof reply, got);
    server.join();
    ASSERT_TRUE(ok) << platform::lastError();
    EXPECT_EQ(std::string(reply, got), "PONG");
}

// Two threads share one client handle, as the command workers of both SEP ports share the EFI link: each
// transaction gets the reply to its own request.
TEST_F(NamedPipeTest, ConcurrentTransactionsOnOneHandleEachGetTheirOwnReply)
{
    std::thread server([this] {
        for (;;) {
            char request[32] = {};
            std::uint32_t got = 0;
            if (!platform::readPipe(m_server.get(), request, sizeof request, got)) return;
            const std::string text(request, got);
            const std::string reply = "re " + text;
            if (!platform::writePipe(m_server.get(), reply.data(), static_cast<std::uint32_t>(reply.size())) ||
                text == "STOP")
                return;
        }
    });
    constexpr int kTransactions = 300;
    std::atomic<int> wrong{0};
    std::atomic<int> failed{0};
    const auto caller = [&](const std::string& request) {
        for (int i = 0; i < kTransactions; ++i) {
            char reply[32] = {};
            std::uint32_t got = 0;
            if (!platform::transactPipe(m_client.get(), request.data(), static_cast<std::uint32_t>(request.size()),
                                        reply, sizeof reply, got))
                ++failed;
            else if (std::string(reply, got) != "re " + request)
                ++wrong;
        }
    };
    std::thread rsoc(caller, "BAT:L:RSOC");
    std::thread voltage(caller, "BAT:H:VOLTAGE");
    rsoc.join();
    voltage.join();
    char reply[32] = {};
    std::uint32_t got = 0;
    EXPECT_TRUE(platform::transactPipe(m_client.get(), "STOP", 4, reply, sizeof reply, got));
    server.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_EQ(wrong.load(), 0) << "replies that belonged to the other caller";
}

TEST_F(NamedPipeTest, TheClientSeesTheServerGoAndACancelledReadEnds)
{
    // A read blocked on another thread ends with "operation aborted" once cancelled.
    bool readOk = true;
    std::uint32_t readError = 0;
    std::atomic<bool> finished{false};
    std::thread reader([&] {
        char buffer[8];
        std::uint32_t got = 0;
        readOk = platform::readPipe(m_client.get(), buffer, sizeof buffer, got);
        readError = platform::lastError();
        finished = true;
    });
    // Cancel until the reader has seen it: it may not have begun its read at the first cancel.
    while (!finished) {
        platform::cancelPipeIo(m_client.get());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    reader.join();
    EXPECT_FALSE(readOk);
    EXPECT_EQ(readError, platform::kErrorOperationAborted);

    // The server closes its end: the client's read reports the broken pipe, every time.
    m_server.reset();
    char buffer[8];
    std::uint32_t got = 0;
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(platform::readPipe(m_client.get(), buffer, sizeof buffer, got));
        EXPECT_EQ(platform::lastError(), platform::kErrorBrokenPipe);
    }
}

TEST(NamedPipeNames, APipeNobodyServesCannotBeOpened)
{
    prepareInstrument();
    EXPECT_FALSE(platform::openPipe(L"\\\\.\\pipe\\HalvernNobodyServesThis"));
    EXPECT_EQ(platform::lastError(), platform::kErrorFileNotFound);
    EXPECT_FALSE(platform::waitNamedPipe(L"\\\\.\\pipe\\HalvernNobodyServesThis", 10));
    releaseInstrument();
}

}  // namespace
}  // namespace halvern::test
