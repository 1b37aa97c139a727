#include <winsock2.h>
#include <ws2tcpip.h>
// After the socket headers, which must come before windows.h.
#include <iphlpapi.h>

#include <vector>

#include "platform/NetAdapters.h"
#include "platform/WinError.h"

namespace platform {

std::uint32_t getAdaptersAddresses(std::uint32_t& bufferBytes, std::vector<NetAdapterT>& adapters)
{
    adapters.clear();
    std::vector<BYTE> buffer;
    try {
        buffer.resize(bufferBytes);
    } catch (const std::bad_alloc&) {
        return kErrorNotEnoughMemory;
    }
    auto* first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    ULONG size = bufferBytes;
    const ULONG status = GetAdaptersAddresses(AF_UNSPEC, 0, nullptr, first, &size);
    if (status != ERROR_SUCCESS) {
        bufferBytes = size;
        return status;
    }
    for (const IP_ADAPTER_ADDRESSES* adapter = first; adapter != nullptr; adapter = adapter->Next) {
        NetAdapterT entry;
        entry.description = adapter->Description != nullptr ? adapter->Description : L"";
        entry.physicalAddress.assign(adapter->PhysicalAddress,
                                     adapter->PhysicalAddress + adapter->PhysicalAddressLength);
        for (const IP_ADAPTER_UNICAST_ADDRESS* unicast = adapter->FirstUnicastAddress; unicast != nullptr;
             unicast = unicast->Next) {
            UnicastAddressT address;
            address.family = unicast->Address.lpSockaddr->sa_family;
            wchar_t text[128] = {};
            DWORD length = 128;
            if (WSAAddressToStringW(unicast->Address.lpSockaddr, unicast->Address.iSockaddrLength, nullptr, text,
                                    &length) == 0)
                address.text = text;
            entry.unicastAddresses.push_back(address);
        }
        adapters.push_back(std::move(entry));
    }
    return kErrorSuccess;
}

}  // namespace platform
