// The device tool's listing of the driver store, read for the WLAN card's provider.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "net/DriverPackageListing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    const std::string listing(reinterpret_cast<const char*>(data), size);
    halvern::net::parseDriverPackages(listing, "Atheros");
    halvern::net::parseDriverPackages(listing, "");
    return 0;
}
