// Tests of the component factory's insertion rule and name lookup (creating the network component by
// its name is shown by the plug-in loading test).
#include "Qib/System/Acf/ComponentFactory.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"
#include "Qib/System/Commons/ArgumentException.hpp"
#include "Support/ExceptionMessage.hpp"

#include <gtest/gtest.h>

#include <memory>

using Qib::String;
using namespace Qib::System::Acf;

namespace
{

Qib::AppDomain sampleDomain;
LibraryBase sampleLibrary(sampleDomain, Qib::BasicVersion(1, 2, 3, 4, "1.2.3", "beta"));

template <unsigned int Order>
std::shared_ptr<IComponent> Create(IApplication& application, const String& name)
{
    return std::make_shared<ComponentBase>(application, sampleLibrary, name, ComponentCategory::Library, Order, false);
}

} // namespace

TEST(ComponentFactoryTest, TheFirstCreatorForANameIsKeptAndOnlyTheExactNameFindsIt)
{
    ComponentFactory factory;
    ASSERT_TRUE(factory.AddFactoryMethod("B.Component", &Create<1>));
    EXPECT_FALSE(factory.AddFactoryMethod("B.Component", &Create<2>));
    factory.AddFactoryMethod("A.Component", &Create<3>);
    EXPECT_EQ(factory.GetComponentTypeNames(), (std::vector<String>{"A.Component", "B.Component"}));
    Application application("App");
    EXPECT_EQ(factory.CreateComponent(application, "B.Component", "instance")->GetStartOrder(), 1U);
    const auto create = [&] { factory.CreateComponent(application, "B.component", "x"); };
    EXPECT_THROW(create(), Qib::System::Commons::ArgumentException);
    EXPECT_NE(VantrelTest::ErrorOf(create).find("B.component"), std::string::npos);
}
