// The information elements of scanned beacons, as any access point in radio range may send them.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "net/WlanChanSelector.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    std::uint32_t primaryChannel = 0;
    std::uint32_t widthCode = halvern::net::kChanWidthHt20;
    halvern::net::WlanChanSelector::parseInformationElements(data, size, primaryChannel, widthCode);
    // The whole beacon as the selector reads it: the name from the first bytes, the elements after them.
    platform::WlanBssEntryT bss;
    const std::size_t nameBytes = size > 0 ? data[0] % 33 : 0;
    if (size > nameBytes) {
        bss.ssid.assign(reinterpret_cast<const char*>(data + 1), nameBytes);
        bss.informationElements.assign(data + 1 + nameBytes, data + size);
    }
    bss.centerFrequencyKhz = 5180000;
    halvern::net::WlanChanSelector::observe(bss);
    return 0;
}
