// The ASCII coding's reader on arbitrary frames.
#include "fuzz/FuzzTarget.h"
#include "fuzz/ReaderFuzzing.h"
#include "sep/AsciiCoderC.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    SEP::AsciiCoderC coder;
    halvern::fuzz::readEverything(coder, data, size);
    return 0;
}
