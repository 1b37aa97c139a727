// The serial port against a pseudo-terminal pair made by socat: the test holds the board's end and sees
// what a board would see.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "links/SerialPortC.h"
#include "platform/sim/SimRoot.h"
#include "tests/links/sim/ExternalToolC.h"
#include "tests/support/TestEnvironment.h"

namespace halvern::test {
namespace {

using links::SerialPortC;

// What the listener saw, for a test thread to wait on.
struct DeliveriesT {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::string> messages;
    SerialPortC* port = nullptr;
    bool writeFromListener = false;
    bool writeResult = true;

    bool waitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, std::chrono::seconds(5), [&] { return messages.size() >= count; });
    }
    static void record(void* context, const std::string& message)
    {
        auto* self = static_cast<DeliveriesT*>(context);
        bool result = true;
        if (self->writeFromListener) result = self->port->write("answer\r\n");
        std::lock_guard<std::mutex> guard(self->lock);
        self->writeResult = result;
        self->messages.push_back(message);
        self->changed.notify_all();
    }
};

class SerialPortSocatTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        if (ExternalToolC::locate("socat").empty()) GTEST_SKIP() << "socat is not installed (Debian package socat)";
        const std::string root = platform::sim::root();
        std::filesystem::create_directories(root + "/dev");
        const std::string port = root + "/dev/" + m_portName;
        m_boardEnd = root + "/board";
        m_socat = std::make_unique<ExternalToolC>(
            std::vector<std::string>{"socat", "pty,raw,echo=0,link=" + port, "pty,raw,echo=0,link=" + m_boardEnd});
        ASSERT_TRUE(m_socat->started());
        for (int attempt = 0; attempt < 250; ++attempt) {
            if (std::filesystem::exists(port) && std::filesystem::exists(m_boardEnd)) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        m_board = ::open(m_boardEnd.c_str(), O_RDWR | O_NOCTTY);
        ASSERT_GE(m_board, 0) << m_boardEnd;
    }
    void TearDown() override
    {
        if (m_board >= 0) ::close(m_board);
        m_socat.reset();
        InstrumentTest::TearDown();
    }
    void boardSends(const std::string& text)
    {
        ASSERT_EQ(::write(m_board, text.data(), text.size()), ssize_t(text.size()));
    }
    std::string boardReceives(std::size_t bytes)
    {
        std::string received;
        while (received.size() < bytes) {
            char chunk[256];
            const ssize_t got = ::read(m_board, chunk, std::min(sizeof chunk, bytes - received.size()));
            if (got <= 0) break;
            received.append(chunk, static_cast<std::size_t>(got));
        }
        return received;
    }

    bool boardReceivedNothing()
    {
        pollfd waiting{m_board, POLLIN, 0};
        return ::poll(&waiting, 1, 100) == 0;
    }

    std::string m_portName = "COM3";
    std::unique_ptr<ExternalToolC> m_socat;
    std::string m_boardEnd;
    int m_board = -1;
};

TEST_F(SerialPortSocatTest, MessagesAreCutAtTheTerminator)
{
    DeliveriesT deliveries;
    SerialPortC port(L"COM3");
    port.setListener(DeliveriesT::record, &deliveries, "\r\n");
    ASSERT_TRUE(port.open("115200,n,8,1"));

    boardSends("first\r\nsecond\r\n");
    ASSERT_TRUE(deliveries.waitFor(2));
    boardSends("thi");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    boardSends("rd\r\nfou");
    ASSERT_TRUE(deliveries.waitFor(3));
    EXPECT_TRUE(port.close());
    EXPECT_EQ(deliveries.messages, (std::vector<std::string>{"first\r\n", "second\r\n", "third\r\n"}));
}

TEST_F(SerialPortSocatTest, WritesReachTheBoardButNotFromTheListener)
{
    DeliveriesT deliveries;
    SerialPortC port(L"COM3");
    deliveries.port = &port;
    deliveries.writeFromListener = true;
    port.setListener(DeliveriesT::record, &deliveries, "\n");
    ASSERT_TRUE(port.open("115200,n,8,1"));
    // A second opener is turned away while the port is held.
    SerialPortC second(L"COM3");
    EXPECT_FALSE(second.open("115200,n,8,1"));

    ASSERT_TRUE(port.write("uname -o\r\n"));
    EXPECT_EQ(boardReceives(10), "uname -o\r\n");
    boardSends("GNU/Linux\n");
    ASSERT_TRUE(deliveries.waitFor(1));
    EXPECT_FALSE(deliveries.writeResult);
    EXPECT_TRUE(port.close());
    EXPECT_NE(findMessage(logMessages(), "Cannot issue write requests from event thread!"), -1);
    EXPECT_NE(findMessage(logMessages(), "Failed to open port COM3"), -1);
    // Closed, the port takes no writes.
    EXPECT_FALSE(port.write("late\r\n"));
}

TEST_F(SerialPortSocatTest, TransactionCollectsTheBoardsAnswer)
{
    std::thread board([this] {
        if (boardReceives(10) == "uname -o\r\n") boardSends("uname -o\r\nGNU/Linux\r\n");
    });
    std::string reply;
    const bool done = links::comPortTransaction("MORA", "\n", "uname -o\r\n", reply, 300);
    board.join();
    EXPECT_TRUE(done);
    EXPECT_EQ(reply, "uname -o\r\nGNU/Linux\r\n");

    // The HMI board's port is not there.
    EXPECT_FALSE(links::comPortTransaction("DIVO", "", "G2B\r\n", reply, 300));
    EXPECT_NE(findMessage(logMessages(), "[ERROR]: Failed to open COM port COM5"), -1);
}

// The EFI controller's port has no terminator of its own: a transaction must bring one.
class EfiSerialPortSocatTest : public SerialPortSocatTest {
protected:
    EfiSerialPortSocatTest() { m_portName = "COM4"; }
};

TEST_F(EfiSerialPortSocatTest, WithoutATerminatorNothingIsSentAndTheTransactionFails)
{
    std::string reply;
    EXPECT_FALSE(links::comPortTransaction("EFI", "", "BAT:L:RSOC\r\n", reply, 100));
    EXPECT_TRUE(boardReceivedNothing());
    EXPECT_NE(findMessage(logMessages(), "[ERROR]: No terminator to cut the reply of COM port COM4 at"), -1);

    std::thread board([this] {
        if (boardReceives(12) == "BAT:L:RSOC\r\n") boardSends("85\r\n");
    });
    const bool done = links::comPortTransaction("EFI", "\r\n", "BAT:L:RSOC\r\n", reply, 300);
    board.join();
    EXPECT_TRUE(done);
    EXPECT_EQ(reply, "85\r\n");
}

}  // namespace
}  // namespace halvern::test
