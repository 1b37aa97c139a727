// The HMI board's answers to the two register questions of the calibration status.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "links/DivoManagerC.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    const std::string reply(reinterpret_cast<const char*>(data), size);
    unsigned value = 0;
    halvern::links::DivoManagerC::parseRegisterReply(reply, "R2B", value);
    halvern::links::DivoManagerC::parseRegisterReply(reply, "R29", value);
    return 0;
}
