#pragma once
// The network observer: in the device modes that must not route traffic beyond the instrument, a thread
// deletes every persistent default route at its start and at each change of the route table, until it is
// stopped. Stopping may release and renew the leases so that a gateway comes back.
#include <string>

#include "platform/Handle.h"

class NetworkObserverC {
public:
    NetworkObserverC() = default;
    // The thread ends before its event goes.
    ~NetworkObserverC();
    NetworkObserverC(const NetworkObserverC&) = delete;
    NetworkObserverC& operator=(const NetworkObserverC&) = delete;

    bool startNetworkObserver();
    // `renew`: release and renew the DHCP leases once the observer has ended, so that a gateway can come
    // back. False only when the thread did not end in time.
    bool stopNetworkObserver(bool renew);
    // Without an instance: the observer's thread runs them while the system manager may be going away.
    static bool removeGateways();
    static bool runIpconfigCMD(const std::wstring& parameters);

private:
    // Both empty while the network observer does not run.
    platform::UniqueHandle m_networkObserverThread;
    platform::UniqueHandle m_networkObserverExit;
};
