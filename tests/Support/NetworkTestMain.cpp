// Test main of the network tests: each test process gets a private network namespace.
#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <cstring>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
    {
        VantrelTest::EnterPrivateNetworkNamespace();
    }
    return RUN_ALL_TESTS();
}
