#include <gtest/gtest.h>

#include <clocale>

int main(int argc, char** argv)
{
    // Wide strings reach the log through "%S", which converts with the C library's locale.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
