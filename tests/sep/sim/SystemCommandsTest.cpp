// The instrument-name, calibration and desktop commands against the simulated instrument.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/sim/SimRoot.h"
#include "sep/SepCommandTestSupport.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

std::string firstLine(const std::string& relative)
{
    std::ifstream in(platform::sim::root() + "/sim/" + relative);
    std::string line;
    std::getline(in, line);
    return line;
}

class SystemCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    static std::function<bool(SEP::DataWriterI&)> name(const std::string& text)
    {
        return [text](SEP::DataWriterI& w) { return w.writeString(text.c_str()); };
    }
};

TEST_F(SystemCommandsTest, TheInstrumentNameIsCheckedAppliedForTheNextBootAndReadBack)
{
    auto reply = port->ask(1021, name(std::string(256, 'Z')));
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( new name)");
    for (const char* bad : {"", "ZENTOR 1", "-ZENTOR", "12345", "ZENTOR-10000000000"}) {
        reply = port->ask(1021, name(bad));
        EXPECT_EQ(reply.returnCode, 889) << bad;
        EXPECT_EQ(reply.errorText, "Invalid set of the instrument's name.") << bad;
    }
    EXPECT_EQ(firstLine("computer/pending-dns"), "") << "a refused name changes nothing";

    reply = port->ask(1021, name("ZENTOR-1000042"));
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(firstLine("computer/pending-dns"), "ZENTOR-1000042");
    EXPECT_EQ(firstLine("computer/pending-netbios"), "ZENTOR-1000042");
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"[SysManagerC::SetInstrumentName]: Instrument name is set to [ZENTOR-1000042]",
         "[SysManagerC::SetInstrumentName]: Applying UWF configuration", "UWF configuration applied successfuly"}));

    // The new name is the next boot's; until then the computer answers with its current one.
    reply = port->ask(1020);
    ASSERT_EQ(reply.returnCode, 1097);
    std::string current;
    ASSERT_TRUE(reply.frame.coder->readString(current));
    EXPECT_EQ(current, "ZENTOR-1000001");
}

TEST_F(SystemCommandsTest, TwoClientsRenamingAtOnceLeaveBothNamesOfTheOneThatCameLast)
{
    // The NetBIOS name goes into a pipe here: the first rename stops between its two names until the test
    // reads them, as a slow disk could stop it.
    const std::string netbios = platform::sim::root() + "/sim/computer/pending-netbios";
    ASSERT_TRUE(platform::sim::makeDirectories(platform::sim::root() + "/sim/computer"));
    ASSERT_EQ(::mkfifo(netbios.c_str(), 0600), 0);
    ASSERT_TRUE(port->client().sendBytes(commandFrame(1021, name("ZENTOR-1000042"))));
    for (int wait = 0; wait < 300 && firstLine("computer/pending-dns") != "ZENTOR-1000042"; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(firstLine("computer/pending-dns"), "ZENTOR-1000042");

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    ASSERT_TRUE(second.sendBytes(commandFrame(1021, name("ZENTOR-1000043"))));
    bool mixed = false;
    for (int wait = 0; wait < 50 && !mixed; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        mixed = firstLine("computer/pending-dns") == "ZENTOR-1000043";
    }
    EXPECT_FALSE(mixed) << "the second rename wrote its DNS name while the first had only written one of its names";

    // Open until both have answered: each rename's NetBIOS name lands in the pipe in the order written.
    const int reader = ::open(netbios.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_EQ(readReply(port->client(), 1021).returnCode, 1097);
    EXPECT_EQ(readReply(second, 1021).returnCode, 1097);
    std::string written(256, '\0');
    const ssize_t read = ::read(reader, &written[0], written.size());
    ::close(reader);
    written.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
    EXPECT_EQ(written, "ZENTOR-1000042\nZENTOR-1000043\n");
    EXPECT_EQ(firstLine("computer/pending-dns"), "ZENTOR-1000043");
}

TEST_F(SystemCommandsTest, CalibrationApplicationsStartOnTheDesktopOrSayTheyCouldNot)
{
    auto reply = port->ask(1013);
    EXPECT_EQ(reply.returnCode, 1097);
    reply = port->ask(1042);
    EXPECT_EQ(reply.returnCode, 1097);
    // Both applications are launched without waiting for them; each notes its start when it runs.
    std::string started;
    const auto bothStarted = [&started] {
        return started.find("touch-calibration started") != std::string::npos &&
               started.find("voltage-calibration started") != std::string::npos;
    };
    for (int wait = 0; wait < 1000 && !bothStarted(); ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream in(platform::sim::root() + "/sim/apps/log");
        started.assign(std::istreambuf_iterator<char>(in), {});
    }
    EXPECT_NE(started.find("touch-calibration started"), std::string::npos);
    EXPECT_NE(started.find("voltage-calibration started"), std::string::npos);

    std::remove((platform::sim::root() + "/D/ZentorTools/TouchCalibrationApp.exe").c_str());
    reply = port->ask(1013);
    EXPECT_EQ(reply.errorText, "General failure ( Touch Calibration Application Startup)");
    // The simulated instrument has no Windows shell whose desktop could be shown.
    reply = port->ask(1028);
    EXPECT_EQ(reply.errorText, "General failure ( show desktop)");
    EXPECT_NE(findMessage(logMessages(), "Received request to show desktop."), -1);
}

}  // namespace
}  // namespace halvern::test
