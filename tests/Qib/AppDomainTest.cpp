// Tests of the application domain's registry of process-wide objects.
#include "Qib/AppDomain.hpp"

#include "Support/Concurrency.hpp"

#include <gtest/gtest.h>

#include <atomic>

namespace AppDomainSamples
{
struct Registry
{
};
struct Other
{
};
} // namespace AppDomainSamples

using AppDomainSamples::Other;
using AppDomainSamples::Registry;
using Qib::AppDomain;

// One thread registers and removes a type while others look another one up.
TEST(AppDomainTest, ObjectsAreFoundByTheirTypeInTheirOwnDomainUntilReplacedOrRemoved)
{
    AppDomain domain;
    Registry first;
    Registry second;
    Other other;
    domain.RegisterSingleton(first);
    std::atomic<int> misses{0};
    VantrelTest::RunConcurrently(3, [&](int index) {
        for (int i = 0; i < 2000; ++i)
        {
            if (index == 0)
            {
                domain.RegisterSingleton(other);
                domain.UnregisterSingleton<Other>();
            }
            misses += domain.TryGetSingleton<Registry>() != &first ? 1 : 0;
        }
    });
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(domain.TryGetSingleton<Other>(), nullptr);
    EXPECT_EQ(AppDomain().TryGetSingleton<Registry>(), nullptr);
    domain.RegisterSingleton(second);
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), &second);
    domain.UnregisterSingleton<Registry>();
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), nullptr);
}
