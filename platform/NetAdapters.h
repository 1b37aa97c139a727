#pragma once
// The computer's network adapters as GetAdaptersAddresses lists them: description, physical address and
// unicast addresses with their family. On the simulation platform the adapters are those of the file
// $HALVERN_ROOT/sim/network/adapters: blocks of "description=", "mac=" (hex bytes joined by "-") and
// "address=" lines, each block begun by a line "adapter".
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

constexpr int kAddressFamilyIpv4 = 2;
constexpr int kAddressFamilyIpv6 = 23;

struct UnicastAddressT {
    int family = kAddressFamilyIpv4;
    std::wstring text;  // as WSAAddressToString writes it
};

struct NetAdapterT {
    std::wstring description;
    std::vector<std::uint8_t> physicalAddress;
    std::vector<UnicastAddressT> unicastAddresses;
};

// All adapters of every family into a buffer of `bufferBytes`. Answers the Windows error: kErrorBufferOverflow
// with `bufferBytes` set to the size needed when the list does not fit, kErrorNotEnoughMemory when the
// buffer cannot be had.
std::uint32_t getAdaptersAddresses(std::uint32_t& bufferBytes, std::vector<NetAdapterT>& adapters);

}  // namespace platform
