// The instrument-name, calibration and desktop commands against the simulated instrument.
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
