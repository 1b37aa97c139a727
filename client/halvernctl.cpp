// halvernctl's entry; the tool itself is in HalvernCtl.cpp so that the tests can run it in-process.
#include <iostream>

#include "client/HalvernCtl.h"

int main(int argc, char** argv)
{
    return SEP::runHalvernCtl(argc, argv, std::cout, std::cerr);
}
