// Tests of the application domain's registry of process-wide objects.
#include "Qib/AppDomain.hpp"

#include "Support/Concurrency.hpp"

#include <gtest/gtest.h>

#include <atomic>

namespace AppDomainSamples
{
struct Registry
{
    int id = 0;
};
struct Other
{
    int id = 0;
};
} // namespace AppDomainSamples

using AppDomainSamples::Other;
using AppDomainSamples::Registry;
using Qib::AppDomain;

TEST(AppDomainTest, ObjectsAreFoundByTheirTypeInTheirOwnDomainUntilReplacedOrRemoved)
{
    AppDomain domain;
    AppDomain otherDomain;
    Registry first;
    Registry second;
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), nullptr);
    domain.RegisterSingleton(first);
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), &first);
    EXPECT_EQ(domain.TryGetSingleton<Other>(), nullptr);
    EXPECT_EQ(otherDomain.TryGetSingleton<Registry>(), nullptr);
    domain.RegisterSingleton(second);
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), &second);
    domain.UnregisterSingleton<Registry>();
    EXPECT_EQ(domain.TryGetSingleton<Registry>(), nullptr);
    domain.UnregisterSingleton<Registry>(); // removing an absent type does nothing
}

TEST(AppDomainTest, ConcurrentLookupsAndRegistrationsAreSafe)
{
    AppDomain domain;
    Registry registry;
    Other other;
    domain.RegisterSingleton(registry);
    std::atomic<int> misses{0};
    VantrelTest::RunConcurrently(3, [&](int index) {
        for (int i = 0; i < 2000; ++i)
        {
            if (index == 0)
            {
                domain.RegisterSingleton(other);
                domain.UnregisterSingleton<Other>();
            }
            misses += domain.TryGetSingleton<Registry>() != &registry ? 1 : 0;
        }
    });
    EXPECT_EQ(misses.load(), 0);
}
