#include "framework/TcpIpServerStateMachineC.h"

#include "framework/DebugLog.h"

namespace BSS::NET {

void TcpIpServerStateMachineC::setPortConfig(std::uint16_t port)
{
    m_port = port;
    debugLog(kDebugLevelDetail, "setPortConfig: port %d\n", port);
}

void TcpIpServerStateMachineC::goToState(StateE next)
{
    const StateE previous = m_state.exchange(next);
    debugLog(kDebugLevelDetail, "goToState: %d -> %d\n", previous, next);
    debugLog(kDebugLevelDetail, "state-change: %d -> %d\n", previous, next);
}

void TcpIpServerStateMachineC::logExecState() const
{
    debugLog(kDebugLevelDetail, "execState: %d, port %d\n", static_cast<int>(m_state.load()), m_port);
}

}  // namespace BSS::NET
