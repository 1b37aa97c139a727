#pragma once
// The board side of a simulated serial port: a pseudo-terminal whose slave side is linked as
// <root>/dev/COMn for Halvern to open, and whose master side a device model reads and writes on a thread
// of its own. Halvern opens and closes the port for every exchange; the model keeps a slave descriptor
// open itself so that the master never sees a hang-up, and watches the opens of the slave so that what
// it sends while nobody listens is lost, as it is on a real line.
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "platform/sim/UniqueFd.h"

namespace halvern::sim {

using platform::sim::UniqueFd;

class PseudoTerminalC {
public:
    // What Halvern wrote, as it arrived.
    using ReceiveFn = std::function<void(const std::string& bytes)>;
    // Called at least every tick so that a model can move its own time line on.
    using TickFn = std::function<void()>;

    PseudoTerminalC() = default;
    ~PseudoTerminalC() { close(); }
    PseudoTerminalC(const PseudoTerminalC&) = delete;
    PseudoTerminalC& operator=(const PseudoTerminalC&) = delete;

    // Makes the terminal and the link <root>/dev/<portName>; false with a message in `error`.
    bool open(const std::string& root, const std::string& portName, std::string& error);
    bool start(ReceiveFn onReceive, TickFn onTick, int tickMs, std::string& error);
    // Ends the thread and removes the port from the sim root.
    void close();

    // Sends to whoever has the port open; dropped when nobody has, or when the line is full.
    void send(const std::string& bytes);
    // Whether someone other than the model has the port open.
    bool listened() const { return m_openers.load() > 0; }

private:
    void run();
    void readOpenEvents();

    UniqueFd m_master;
    UniqueFd m_slave;
    UniqueFd m_opens;
    UniqueFd m_wake;
    std::string m_link;
    ReceiveFn m_onReceive;
    TickFn m_onTick;
    int m_tickMs = 20;
    std::atomic<int> m_openers{0};
    std::mutex m_sendLock;
    std::thread m_thread;
};

}  // namespace halvern::sim
