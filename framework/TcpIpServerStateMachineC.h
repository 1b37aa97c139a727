#pragma once
// The life cycle of a TCP server: idle, set up, waiting for connections, stopping, stopped. Each state
// change is logged so a field log shows where a server stood.
#include <atomic>
#include <cstdint>

namespace BSS::NET {

class TcpIpServerStateMachineC {
public:
    enum StateE : int {
        STATE_IDLE = 0,
        STATE_SETUP = 1,
        STATE_WAIT_FOR_CONNECTION = 2,
        STATE_STOPPING = 3,
        STATE_STOPPED = 4
    };

    void setPortConfig(std::uint16_t port);
    void goToState(StateE next);
    StateE state() const { return m_state; }
    void logExecState() const;

private:
    std::atomic<StateE> m_state{STATE_IDLE};
    std::uint16_t m_port = 0;
};

}  // namespace BSS::NET
