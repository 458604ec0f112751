// Tests of the domain proxy's register of components (what is registered, with its flag, is shown by
// the network component's and the daemon's library host tests).
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"
#include "Support/Concurrency.hpp"

#include <gtest/gtest.h>

using namespace Qib::System::Acf;

TEST(PlcDomainProxyTest, ConcurrentRegistrationsAreAllKept)
{
    Qib::AppDomain domain;
    LibraryBase library{domain, Qib::BasicVersion(1, 0, 0, 0, "1.0", "")};
    Application application{"App"};
    ComponentBase component{application, library, "first", ComponentCategory::Library, 1, false};
    Qib::Plc::Commons::Domain::PlcDomainProxy proxy;
    VantrelTest::RunConcurrently(4, [&](int) {
        for (int i = 0; i < 250; ++i)
        {
            proxy.RegisterComponent(component, true);
            (void)proxy.GetRegisteredComponents();
        }
    });
    EXPECT_EQ(proxy.GetRegisteredComponents().size(), 1000U);
}
