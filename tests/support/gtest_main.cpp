// Entry point shared by every test program.
#include <gtest/gtest.h>

#include "support/TestEnv.h"

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    zytest::InitTestProcess();
    return RUN_ALL_TESTS();
}
