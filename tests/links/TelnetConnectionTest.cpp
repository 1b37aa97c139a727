// The telnet client against a shell server scripted in the test: what a user of the sensor board link
// sees when the board's server is silent, half-answering or answers with something unreadable.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "app/Log.h"
#include "links/TelnetConnection.h"
#include "platform/Socket.h"
#include "tests/support/TestEnvironment.h"

namespace halvern::test {
namespace {

using links::TelnetConnection;

// A loopback shell server for one connection.
// Below the real time that the brief clock gives each wait, so that its prompt still arrives in time.
constexpr int kPromptGapMs = 150;

class ScriptedShellServerC {
public:
    // `negotiation` and `prompt` are sent after accepting (an empty one is not sent); `answer` is sent once
    // the client's command line has arrived.
    ScriptedShellServerC(std::string negotiation, std::string prompt, std::string answer)
    {
        m_listening = platform::createTcpSocket();
        EXPECT_TRUE(platform::bindSocket(m_listening.get(), platform::kLoopbackAddress, 0));
        EXPECT_TRUE(platform::listenSocket(m_listening.get(), 1));
        m_port = platform::localPort(m_listening.get());
        m_thread = std::thread([this, listening = m_listening.get(), negotiation, prompt, answer] {
            std::uint32_t peer = 0;
            platform::UniqueSocket client = platform::acceptSocket(listening, peer);
            if (!client) return;
            char bytes[256];
            // The client opens with its option sequence.
            platform::receiveSocket(client.get(), bytes, 3);
            if (!negotiation.empty()) platform::sendSocket(client.get(), negotiation.data(), negotiation.size());
            if (!prompt.empty()) {
                // The client takes the negotiation and the prompt in two reads: a prompt that joins the
                // negotiation in the client's first read leaves its second one waiting out the 5 s. The gap
                // outlasts the client's scheduling delay on a loaded machine (20 ms did not under Wine).
                std::this_thread::sleep_for(std::chrono::milliseconds(kPromptGapMs));
                platform::sendSocket(client.get(), prompt.data(), prompt.size());
            }
            if (platform::receiveSocket(client.get(), bytes, sizeof bytes) > 0 && !answer.empty())
                platform::sendSocket(client.get(), answer.data(), answer.size());
            // Held open until the client closes its side.
            while (!m_stop && platform::receiveSocket(client.get(), bytes, sizeof bytes) > 0) {
            }
        });
        links::setTelnetEndpoint({"127.0.0.1", std::to_string(m_port)});
    }
    ~ScriptedShellServerC()
    {
        m_stop = true;
        // A connection of its own ends an accept that still waits (on both platforms); the listening socket
        // goes only once the thread no longer uses it.
        {
            platform::UniqueSocket wake = platform::createTcpSocket();
            platform::connectSocket(wake.get(), platform::kLoopbackAddress, m_port);
        }
        if (m_thread.joinable()) m_thread.join();
        m_listening.reset();
    }

private:
    platform::UniqueSocket m_listening;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Virtual time that still gives the loopback peer a moment of real time in each wait, so that a 5-second
// negotiation wait ends at once without racing the server's accept.
class BriefWaitClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(std::min<std::uint64_t>(milliseconds, 2 * kPromptGapMs));
    }

private:
    std::atomic<std::uint64_t> m_now{5'000'000};
};

class TelnetConnectionTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        g_networkHelperLogger = NetworkHelperLog;
    }
    void TearDown() override
    {
        g_networkHelperLogger = nullptr;
        links::setTelnetEndpoint({});
        InstrumentTest::TearDown();
    }
    // A fixture member: it outlives the scripted servers of a test, whose threads still wait on it while
    // they end.
    BriefWaitClockC m_briefClock;

    bool logged(const std::string& text)
    {
        for (const auto& message : logMessages())
            if (message.find(text) != std::string::npos) return true;
        return false;
    }
};

TEST_F(TelnetConnectionTest, ASilentServerFailsTheConnectAtTheInitialSequence)
{
    ScriptedShellServerC server("", "", "");
    platform::setClock(&m_briefClock);
    TelnetConnection connection;
    EXPECT_FALSE(connection.connect(1000));
    EXPECT_TRUE(logged("Timeout occured while waiting for telnet reply from :"));
    EXPECT_TRUE(logged("Failed to receive initial sequence from 127.0.0.1:"));
    // A connection that never came up refuses further use.
    EXPECT_FALSE(connection.send("ls\r\n"));
    EXPECT_TRUE(logged("Tried to send data to :, but socket is not initialized!"));
}

TEST_F(TelnetConnectionTest, AServerWithoutPromptFailsTheConnectAtThePrompt)
{
    ScriptedShellServerC server("\xFF\xFD\x01", "", "");
    platform::setClock(&m_briefClock);
    TelnetConnection connection;
    EXPECT_FALSE(connection.connect(1000));
    EXPECT_TRUE(logged("Failed to receive prompt from 127.0.0.1:"));
}

TEST_F(TelnetConnectionTest, CommandStatusComesFromTheMarkerLine)
{
    ScriptedShellServerC server("\xFF\xFD\x01", "# ",
                                "false\r\necho RESULT: $?\r\n# false\r\n# echo RESULT: $?\r\nRESULT: 1\r\n# ");
    int status = 0;
    std::string reply;
    EXPECT_FALSE(links::runTelnetCommand("false", status, reply));
    EXPECT_EQ(status, 1);
    EXPECT_NE(reply.find("\nRESULT: 1\r\n"), std::string::npos);
    EXPECT_TRUE(logged("Telnet command <false> failed: 1, reply: false"));
}

TEST_F(TelnetConnectionTest, StatusLineParsing)
{
    TelnetConnection connection;
    int status = 7;
    // The echoed command line alone carries no status.
    EXPECT_FALSE(connection.readStatus("echo RESULT: $?\r\n", status));
    EXPECT_FALSE(connection.readStatus("x\nRESULT: 0", status));
    EXPECT_EQ(status, 7);
    EXPECT_TRUE(connection.readStatus("echo RESULT: $?\r\nRESULT: 0\r\n# ", status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(connection.readStatus("x\nRESULT:   -12\r\n", status));
    EXPECT_EQ(status, -12);

    EXPECT_FALSE(connection.readStatus("x\nRESULT: abc\r\n", status));
    EXPECT_TRUE(logged("Failed to parse status code in response from :: x"));
    EXPECT_FALSE(connection.readStatus("x\nRESULT:\n", status));
    EXPECT_FALSE(logged("Failed to get status code"));
    EXPECT_EQ(status, -12);
}

TEST_F(TelnetConnectionTest, UnreadableStatusKeepsReadingUntilTheTimeout)
{
    ScriptedShellServerC server("\xFF\xFD\x01", "# ", "x\r\nRESULT: abc\r\n# ");
    platform::setClock(&m_briefClock);
    TelnetConnection connection;
    ASSERT_TRUE(connection.connect(1000));
    int status = 0;
    std::string reply;
    EXPECT_FALSE(connection.execute("x", reply, status, 1000));
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(logged("Failed to parse status code in response from 127.0.0.1:"));
    EXPECT_TRUE(logged("Timeout occured while waiting for telnet reply from 127.0.0.1:"));
    EXPECT_NE(reply.find("RESULT: abc"), std::string::npos);
}

TEST_F(TelnetConnectionTest, NobodyListeningFailsTheConnect)
{
    platform::UniqueSocket reserved = platform::createTcpSocket();
    ASSERT_TRUE(platform::bindSocket(reserved.get(), platform::kLoopbackAddress, 0));
    links::setTelnetEndpoint({"127.0.0.1", std::to_string(platform::localPort(reserved.get()))});
    int status = 0;
    std::string reply;
    EXPECT_FALSE(links::runTelnetCommand("echo hi", status, reply, 100));
    EXPECT_TRUE(reply.empty());
}

}  // namespace
}  // namespace halvern::test
