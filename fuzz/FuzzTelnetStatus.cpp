// What the sensor board's shell sends back, as the telnet client looks for the status line in it.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "links/TelnetConnection.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    halvern::links::TelnetConnection connection;
    int status = 0;
    connection.readStatus(std::string(reinterpret_cast<const char*>(data), size), status);
    return 0;
}
