#pragma once
// A program of the simulated instrument's Windows side that a test writes as a shell script: installed at
// a Windows path in the sim root, it prints and exits as the test tells it.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/sim/SimRoot.h"

namespace halvern::test {

inline void installScriptProgram(const std::string& windowsPath, const std::string& script)
{
    const std::string path = platform::sim::resolveWindowsPath(windowsPath);
    ASSERT_TRUE(platform::sim::makeDirectories(path.substr(0, path.rfind('/'))));
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
}

}  // namespace halvern::test
