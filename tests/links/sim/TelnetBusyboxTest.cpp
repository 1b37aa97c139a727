// The telnet client against a telnet server nobody on this project wrote: busybox's telnetd with a
// login-free shell on a loopback port, as the sensor board serves one.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "app/Log.h"
#include "links/ProcRunner.h"
#include "links/TelnetConnection.h"
#include "platform/Socket.h"
#include "platform/sim/SimRoot.h"
#include "tests/links/sim/ExternalToolC.h"
#include "tests/support/TestEnvironment.h"

namespace halvern::test {
namespace {

std::uint16_t freeLoopbackPort()
{
    platform::UniqueSocket probe = platform::createTcpSocket();
    if (!probe || !platform::bindSocket(probe.get(), platform::kLoopbackAddress, 0)) return 0;
    return platform::localPort(probe.get());
}

bool acceptsConnections(std::uint16_t port)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        platform::UniqueSocket socket = platform::createTcpSocket();
        if (platform::connectSocket(socket.get(), platform::kLoopbackAddress, port)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

class TelnetBusyboxTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        if (!ExternalToolC::printsLine("busybox --list", "telnetd"))
            GTEST_SKIP() << "busybox with telnetd is not installed (Debian package busybox-static)";
        // Busybox's own shell, as the sensor board runs it: it edits its input line itself, so each echoed
        // command line follows its prompt.
        const std::string shell = platform::sim::root() + "/sh";
        std::error_code error;
        std::filesystem::create_symlink(ExternalToolC::locate("busybox"), shell, error);
        ASSERT_FALSE(error) << error.message();
        const std::uint16_t port = freeLoopbackPort();
        ASSERT_NE(port, 0);
        m_server = std::make_unique<ExternalToolC>(std::vector<std::string>{
            "busybox", "telnetd", "-F", "-p", std::to_string(port), "-b", "127.0.0.1", "-l", shell});
        ASSERT_TRUE(m_server->started());
        ASSERT_TRUE(acceptsConnections(port));
        links::setTelnetEndpoint({"127.0.0.1", std::to_string(port)});
        g_networkHelperLogger = NetworkHelperLog;
    }
    void TearDown() override
    {
        g_networkHelperLogger = nullptr;
        links::setTelnetEndpoint({});
        m_server.reset();
        InstrumentTest::TearDown();
    }

    static bool loggedStartingWith(const std::string& text)
    {
        for (const auto& message : logMessages())
            if (message.rfind(text, 0) == 0) return true;
        return false;
    }

    std::unique_ptr<ExternalToolC> m_server;
};

TEST_F(TelnetBusyboxTest, FailingCommandReportsItsStatusAndReply)
{
    int status = 0;
    std::string reply;
    EXPECT_FALSE(links::runTelnetCommand("false", status, reply));
    EXPECT_EQ(status, 1) << reply;
    EXPECT_NE(reply.find("RESULT: 1"), std::string::npos) << reply;
    EXPECT_TRUE(loggedStartingWith("Telnet command <false> failed: 1, reply: "))
        << ::testing::PrintToString(logMessages());
}

TEST_F(TelnetBusyboxTest, SucceedingCommandCarriesItsOutput)
{
    int status = -1;
    std::string reply;
    EXPECT_TRUE(links::runTelnetCommand("echo hi", status, reply));
    EXPECT_EQ(status, 0);
    EXPECT_NE(reply.find("\nhi\r\n"), std::string::npos) << reply;
}

TEST_F(TelnetBusyboxTest, BoardCommandsRunInTheirDirectoryAndFailOnAnyStatus)
{
    std::string output;
    int status = -1;
    EXPECT_TRUE(links::runMoraCommand("pwd", output, status, 0, "/proc"));
    EXPECT_EQ(status, 0);
    EXPECT_NE(output.find("\n/proc\r\n"), std::string::npos) << output;

    EXPECT_FALSE(links::runMoraCommand("test -d missing", output, status, 0, "/proc"));
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(loggedStartingWith("Telnet command <cd /proc && test -d missing> failed: 1, reply: "));
}

}  // namespace
}  // namespace halvern::test
