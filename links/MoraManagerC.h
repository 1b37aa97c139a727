#pragma once
// Whether the sensor board is up, asked at three levels: the power controller's view of its FPGA and
// processor, its Linux console on the UART, and its telnet port over Ethernet; and the repair of the
// Ethernet link by restarting this computer's adapter towards the board. Stateless: any thread may call,
// each call blocks for at most its timeout.
#include <string>

class EFIServiceIPC;

namespace halvern::links {

class MoraManagerC {
public:
    static bool verifyMoraSignals();
    static bool verifyEFIMode();
    static bool verifyMoraUBootState();
    static bool waitForBootUart(int timeoutMs);
    static bool waitForEth(int timeoutMs);
    static bool fixEth(int timeoutMs);
    static bool verifyEth(int verifyTimeoutMs, int fixTimeoutMs);
    static bool writeKernelLog(const std::string& text);
    static void enableMoraEthernet(bool enable);
    // The power controller's link that the board's state is asked through; its owner sets it and takes it
    // back (nullptr) before the link goes. Without one the board counts as down.
    static void setEfiService(EFIServiceIPC* service);
};

}  // namespace halvern::links
