// Tests of the domain proxy's register of components.
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"

#include "Support/Concurrency.hpp"

#include <gtest/gtest.h>


using Qib::Plc::Commons::Domain::PlcDomainProxy;
using namespace Qib::System::Acf;

class PlcDomainProxyTest : public testing::Test
{
protected:
    Qib::AppDomain domain;
    LibraryBase library{domain, Qib::BasicVersion(1, 0, 0, 0, "1.0", "")};
    Application application{"App"};
    ComponentBase first{application, library, "first", ComponentCategory::Library, 1, false};
    ComponentBase second{application, library, "second", ComponentCategory::Library, 2, false};
    PlcDomainProxy proxy;
};

TEST_F(PlcDomainProxyTest, ListsEveryRegistrationInOrderWithItsFlag)
{
    EXPECT_TRUE(proxy.GetRegisteredComponents().empty());
    proxy.RegisterComponent(second, true);
    proxy.RegisterComponent(first, false);
    proxy.RegisterComponent(second, false);
    const auto registered = proxy.GetRegisteredComponents();
    ASSERT_EQ(registered.size(), 3U);
    EXPECT_EQ(registered[0].Component, &second);
    EXPECT_TRUE(registered[0].Flag);
    EXPECT_EQ(registered[1].Component, &first);
    EXPECT_FALSE(registered[1].Flag);
    EXPECT_EQ(registered[2].Component, &second);
    EXPECT_FALSE(registered[2].Flag);
}

TEST_F(PlcDomainProxyTest, ConcurrentRegistrationsAreAllKept)
{
    VantrelTest::RunConcurrently(4, [&](int) {
        for (int i = 0; i < 250; ++i)
        {
            proxy.RegisterComponent(first, true);
            (void)proxy.GetRegisteredComponents();
        }
    });
    EXPECT_EQ(proxy.GetRegisteredComponents().size(), 1000U);
}
