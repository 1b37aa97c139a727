// The user's time offset file as start-up reads it: offset, zone name and daylight-saving lines.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "sysmanager/TimeKeepingInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    std::int64_t offset = 0;
    std::string name;
    bool daylightSaving = false;
    halvern::time::parseOffsetFile(std::string(reinterpret_cast<const char*>(data), size), offset, name,
                                   daylightSaving);
    return 0;
}
