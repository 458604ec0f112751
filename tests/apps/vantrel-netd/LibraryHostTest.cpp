// Tests of hosting the library as the controller runtime does.
#include "LibraryHost.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

using VantrelNetd::LibraryHost;

TEST(LibraryHostTest, EntersTheLinkedLibraryAndDrivesTheComponentInTheHostsOrder)
{
    {
        LibraryHost host;
        host.Start();

        // dlopen gave the very object the daemon is linked with: its singleton is the one created.
        ASSERT_NE(VantrelBase::Net::NetLibrary::pInstance, nullptr);
        void* handle = ::dlopen(host.GetLibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(handle, nullptr) << host.GetLibraryPath();
        EXPECT_EQ(::dlsym(handle, "QibDynamicLibraryMain"), reinterpret_cast<void*>(&QibDynamicLibraryMain));
        ::dlclose(handle);

        const auto registered = host.GetDomainProxy().GetRegisteredComponents();
        ASSERT_EQ(registered.size(), 1U);
        EXPECT_TRUE(registered[0].Flag);
        EXPECT_EQ(registered[0].Component->GetFullName().GetStdString(), "vantrel-netd/NetComponent");
        EXPECT_EQ(Qib::AppDomain::GetInstance().TryGetSingleton<Qib::Plc::Commons::Domain::PlcDomainProxy>(),
                  &host.GetDomainProxy());

        host.Stop();
        const std::vector<std::string> expected = {"Initialize",      "SubscribeServices", "LoadSettings",
                                                   "SetupSettings",   "PublishServices",   "LoadConfig",
                                                   "SetupConfig",     "ResetConfig",       "Dispose",
                                                   "PowerDown"};
        EXPECT_EQ(host.GetCalledHooks(), expected);
        host.Stop();
        EXPECT_EQ(host.GetCalledHooks().size(), expected.size()) << "a second Stop runs no hook again";
    }
    // The proxy leaves the domain with its host.
    EXPECT_EQ(Qib::AppDomain::GetInstance().TryGetSingleton<Qib::Plc::Commons::Domain::PlcDomainProxy>(), nullptr);
}
