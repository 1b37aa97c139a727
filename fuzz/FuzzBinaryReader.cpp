// The binary coding's reader on arbitrary frames.
#include "fuzz/FuzzTarget.h"
#include "fuzz/ReaderFuzzing.h"
#include "sep/BinaryCoderC.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    SEP::BinaryCoderC coder;
    halvern::fuzz::readEverything(coder, data, size);
    return 0;
}
