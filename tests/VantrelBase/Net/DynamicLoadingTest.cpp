// Loads the built plug-in as the host does, enters it and creates its component by name.
#include "Qib/System/Acf/ILibrary.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentFactory.hpp"
#include "Qib/System/Acf/IComponent.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using Qib::String;
using Qib::System::Acf::ILibrary;

using EntryFunction = ILibrary& (*)(Qib::AppDomain&);

TEST(DynamicLoadingTest, HostLoadsThePluginAndCreatesItsComponentByName)
{
    void* handle = ::dlopen(VANTREL_NET_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << ::dlerror();
    void* symbol = ::dlsym(handle, "QibDynamicLibraryMain");
    ASSERT_NE(symbol, nullptr) << ::dlerror();
    EntryFunction entry = nullptr;
    std::memcpy(&entry, &symbol, sizeof(entry));

    Qib::AppDomain& domain = Qib::AppDomain::CreateInstance();
    Qib::Plc::Commons::Domain::PlcDomainProxy proxy;
    domain.RegisterSingleton(proxy);

    ILibrary& library = entry(domain);
    EXPECT_EQ(library.GetBuildVersion().GetText(), "2023.0.3 LTS");
    EXPECT_EQ(library.GetComponentFactory().GetComponentTypeNames(),
              std::vector<String>{"VantrelBase.Net.NetComponent"});

    Qib::System::Acf::Application application("Host");
    auto component = library.GetComponentFactory().CreateComponent(application, "VantrelBase.Net.NetComponent", "Net");
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(&component->GetLibrary(), &library);
    // The proxy was registered in the program's domain: the plug-in must see the same domain.
    component->Initialize();
    const auto registered = proxy.GetRegisteredComponents();
    ASSERT_EQ(registered.size(), 1U);
    EXPECT_EQ(registered[0].Component, component.get());

    component.reset();
    domain.UnregisterSingleton<Qib::Plc::Commons::Domain::PlcDomainProxy>();
    Qib::AppDomain::DisposeInstance();
}
