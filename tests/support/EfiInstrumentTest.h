#pragma once
// An instrument whose power controller (the simulated EFI service) runs in the test process, with Halvern's
// EFI client connected to it and one SEP port with the instrument's command set: what a frontend talks to.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/StartUpSteps.h"
#include "sep/SepCommandTestSupport.h"
#include "sim/ControlCommands.h"
#include "sim/efi/EfiControlCommands.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {

class EfiInstrumentTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addEfiControlCommands(m_commands, m_model, m_service);
        ASSERT_TRUE(m_service.start());
        ASSERT_TRUE(SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication());
        port = std::make_unique<SepCommandPort>();
    }
    void TearDown() override
    {
        port.reset();
        StopSepServer();
        SysManagerC::DestroyInstance();
        m_service.stop();
        InstrumentTest::TearDown();
    }
    // Acts on the simulated instrument as `halvern-sim ctl` does.
    void simulate(const std::string& command) { ASSERT_EQ(m_commands.execute(command).rfind("OK", 0), 0u) << command; }

    sim::ControlCommandsC m_commands;
    sim::EfiControllerModelC m_model;
    sim::EfiServiceSimC m_service{m_model};
    std::unique_ptr<SepCommandPort> port;
};

}  // namespace halvern::test
