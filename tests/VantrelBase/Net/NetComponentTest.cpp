// Tests of the library's component: construction, registration with the domain proxy and its hooks.
#include "VantrelBase/Net/NetComponent.hpp"

#include "FrameTestSupport.hpp"
#include "Support/ExceptionMessage.hpp"

#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"

#include <gtest/gtest.h>

#include <memory>

using Qib::Plc::Commons::Domain::PlcDomainProxy;
using Qib::System::Acf::Application;
using Qib::System::Acf::IComponent;
using VantrelBase::Net::NetComponent;
using VantrelBase::Net::NetLibrary;
using VantrelTest::ErrorOf;

namespace
{

// A library singleton, an application and a component made by the factory function.
struct ComponentFixture
{
    VantrelTest::NoNetLibrary clean;
    Qib::AppDomain libraryDomain;
    Application application{"App"};
    std::shared_ptr<IComponent> component;

    ComponentFixture()
    {
        NetLibrary::Main(libraryDomain);
        component = NetComponent::Create(application, "Net1");
    }
    NetComponent& Net() { return dynamic_cast<NetComponent&>(*component); }
};

} // namespace

TEST(NetComponentTest, ConstructionNeedsTheLibraryAndTakesItsValuesFromTheHost)
{
    {
        VantrelTest::NoNetLibrary clean;
        Application application("App");
        EXPECT_EQ(ErrorOf([&] { NetComponent::Create(application, "Net1"); }),
                  "Singleton instance of type 'VantrelBase.Net.NetLibrary' was not created yet!");
    }
    ComponentFixture fixture;
    EXPECT_EQ(&fixture.component->GetApplication(), &fixture.application);
    EXPECT_EQ(&fixture.component->GetLibrary(), static_cast<Qib::System::Acf::ILibrary*>(NetLibrary::pInstance));
    EXPECT_EQ(fixture.component->GetFullName(), Qib::String("App/Net1"));
}

TEST(NetComponentTest, InitializeNamesWhatIsMissingAndRegistersWithFlagTrueOnceAProxyExists)
{
    ComponentFixture fixture;
    Qib::AppDomain::DisposeInstance();
    EXPECT_EQ(ErrorOf([&] { fixture.component->Initialize(); }),
              "Singleton instance of type 'Qib.AppDomain' was not created yet!");
    VantrelTest::AppDomainInstance appDomain;
    EXPECT_EQ(ErrorOf([&] { fixture.component->Initialize(); }),
              "AppDomain Singleton instance of type 'Qib.Plc.Commons.Domain.PlcDomainProxy' was not created yet!");
    // A proxy registered afterwards sees exactly the later registration, nothing left from the failed one.
    PlcDomainProxy proxy;
    appDomain.domain.RegisterSingleton(proxy);
    fixture.component->Initialize();
    const auto registered = proxy.GetRegisteredComponents();
    ASSERT_EQ(registered.size(), 1U);
    EXPECT_EQ(registered[0].Component, fixture.component.get());
    EXPECT_TRUE(registered[0].Flag);
}

TEST(NetComponentTest, SetupSettingsAndDisposeForwardToTheMetaComponent)
{
    ComponentFixture fixture;
    fixture.component->SetupSettings();
    EXPECT_TRUE(fixture.Net().IsSettingsSetUp());
    fixture.component->Dispose();
    EXPECT_TRUE(fixture.Net().IsDisposed());
    EXPECT_FALSE(fixture.Net().IsSettingsSetUp());
}
