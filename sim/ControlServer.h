#pragma once
// The control socket of the simulated instrument: a Unix stream socket at <root>/sim/control taking one
// command per line and answering each with one line. `halvern-sim ctl` is its client.
#include <atomic>
#include <string>
#include <thread>

#include "platform/sim/UniqueFd.h"
#include "sim/ControlCommands.h"

namespace halvern::sim {

std::string controlSocketPath(const std::string& root);

class ControlServerC {
public:
    explicit ControlServerC(ControlCommandsC& commands) : m_commands(commands) {}
    ~ControlServerC();
    ControlServerC(const ControlServerC&) = delete;
    ControlServerC& operator=(const ControlServerC&) = delete;

    // False with a message in `error` when the socket cannot be made.
    bool start(const std::string& root, std::string& error);
    void stop();

private:
    void serve();
    void serveConnection(int fd);

    ControlCommandsC& m_commands;
    platform::sim::UniqueFd m_listener;
    platform::sim::UniqueFd m_wakeRead;
    platform::sim::UniqueFd m_wakeWrite;
    std::string m_path;
    std::thread m_thread;
};

// Sends one command line to the instrument at `root` and puts its reply in `reply`; false when the
// instrument cannot be reached (the reason is in `reply`).
bool sendControlCommand(const std::string& root, const std::string& line, std::string& reply);

}  // namespace halvern::sim
