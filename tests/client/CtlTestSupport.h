#pragma once
// halvernctl run in-process as a technician runs it, and a SEP port serving the instrument's command set.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "client/HalvernCtl.h"

namespace halvern::test {

struct CtlRunT {
    int exitCode = -1;
    std::string out;
    std::string err;
    // The printed output as JSON; a discarded value when it is not JSON.
    nlohmann::json json() const { return nlohmann::json::parse(out, nullptr, false); }
};

inline CtlRunT runCtl(std::uint16_t port, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"halvernctl", "--port", std::to_string(port)});
    std::vector<const char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(argument.c_str());
    std::ostringstream out, err;
    CtlRunT run;
    run.exitCode = SEP::runHalvernCtl(static_cast<int>(argv.size()), argv.data(), out, err);
    run.out = out.str();
    run.err = err.str();
    return run;
}

}  // namespace halvern::test
