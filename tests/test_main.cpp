#include "testenv.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    InitTestProcess();
    const int result = RUN_ALL_TESTS();
    EndTestProcess();
    return result;
}
