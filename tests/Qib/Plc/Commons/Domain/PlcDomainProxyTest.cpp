// Tests of the domain proxy's register of components.
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using Qib::Plc::Commons::Domain::PlcDomainProxy;
using Qib::System::Acf::Application;
using Qib::System::Acf::ComponentBase;
using Qib::System::Acf::ComponentCategory;

namespace
{

struct Fixture
{
    Qib::AppDomain domain;
    Qib::System::Acf::LibraryBase library{domain, Qib::BasicVersion(1, 0, 0, 0, "1.0", "")};
    Application application{"App"};
    ComponentBase first{application, library, "first", ComponentCategory::Library, 1, false};
    ComponentBase second{application, library, "second", ComponentCategory::Library, 2, false};
    ComponentBase third{application, library, "third", ComponentCategory::Library, 3, true};
};

} // namespace

TEST(PlcDomainProxyTest, ListsRegistrationsInOrderWithTheirFlags)
{
    Fixture fixture;
    PlcDomainProxy proxy;
    EXPECT_TRUE(proxy.GetRegisteredComponents().empty());
    proxy.RegisterComponent(fixture.second, true);
    proxy.RegisterComponent(fixture.first, false);
    proxy.RegisterComponent(fixture.third, true);
    const auto registered = proxy.GetRegisteredComponents();
    ASSERT_EQ(registered.size(), 3U);
    EXPECT_EQ(registered[0].Component, &fixture.second);
    EXPECT_TRUE(registered[0].Flag);
    EXPECT_EQ(registered[1].Component, &fixture.first);
    EXPECT_FALSE(registered[1].Flag);
    EXPECT_EQ(registered[2].Component, &fixture.third);
    EXPECT_TRUE(registered[2].Flag);
}

TEST(PlcDomainProxyTest, RegisteringTwiceListsTwice)
{
    Fixture fixture;
    PlcDomainProxy proxy;
    proxy.RegisterComponent(fixture.first, true);
    proxy.RegisterComponent(fixture.first, false);
    EXPECT_EQ(proxy.GetRegisteredComponents().size(), 2U);
}

TEST(PlcDomainProxyTest, ConcurrentRegistrationsAreAllKept)
{
    Fixture fixture;
    PlcDomainProxy proxy;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i)
            {
                proxy.RegisterComponent(fixture.first, true);
                (void)proxy.GetRegisteredComponents();
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(proxy.GetRegisteredComponents().size(), 1000U);
}
