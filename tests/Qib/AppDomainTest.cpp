// Tests of the application domain's registry of process-wide objects, found by their type.
#include "Qib/AppDomain.hpp"

#include "Support/Concurrency.hpp"

#include <gtest/gtest.h>

#include <atomic>

using Qib::AppDomain;

// One thread registers and removes a type while others look another one up.
TEST(AppDomainTest, ObjectsAreFoundByTheirTypeInTheirOwnDomainUntilReplacedOrRemoved)
{
    AppDomain domain;
    int first = 1;
    int second = 2;
    double other = 0;
    domain.RegisterSingleton(first);
    std::atomic<int> misses{0};
    VantrelTest::RunConcurrently(3, [&](int index) {
        for (int i = 0; i < 2000; ++i)
        {
            if (index == 0)
            {
                domain.RegisterSingleton(other);
                domain.UnregisterSingleton<double>();
            }
            misses += domain.TryGetSingleton<int>() != &first ? 1 : 0;
        }
    });
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(domain.TryGetSingleton<double>(), nullptr);
    EXPECT_EQ(AppDomain().TryGetSingleton<int>(), nullptr);
    domain.RegisterSingleton(second);
    EXPECT_EQ(domain.TryGetSingleton<int>(), &second);
    domain.UnregisterSingleton<int>();
    EXPECT_EQ(domain.TryGetSingleton<int>(), nullptr);
}
