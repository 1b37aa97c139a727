#pragma once
// How the simulated instrument delivers the WLAN driver's NDIS indications, in place of WMI's "ROOT\WMI"
// namespace. The instrument listens on the SOCK_SEQPACKET socket sim/wmi/ndis of the sim root; connecting
// to it is connecting to the namespace. A subscriber sends one message per notification query (the query's
// text, e.g. "SELECT * FROM MSNdis_StatusMediaConnect") and gets one message back: a little-endian u32
// Windows error, 0 when the query was registered. From then on each indication of a registered class is
// one message: the class name, a zero byte, then the value of "NdisStatusMediaSpecificIndication" when the
// object carries one (a message without the zero byte is an object without that property).
#include <cstddef>
#include <string>

namespace platform::sim {

constexpr const char* kNdisWireSocket = "/sim/wmi/ndis";
constexpr const char* kNdisQueryPrefix = "SELECT * FROM ";
constexpr const char* kNdisClassMediaConnect = "MSNdis_StatusMediaConnect";
constexpr const char* kNdisClassMediaDisconnect = "MSNdis_StatusMediaDisconnect";
constexpr const char* kNdisClassSpecificIndication = "MSNdis_StatusMediaSpecificIndicationEx";
constexpr std::size_t kNdisWireMaxMessage = 4096;

inline std::string ndisWireSocketPath(const std::string& root)
{
    return root + kNdisWireSocket;
}

}  // namespace platform::sim
