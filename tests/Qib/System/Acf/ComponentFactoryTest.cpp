// Tests of the component factory's insertion rule and name lookup (creating the network component by
// its name, and passing on what the creator made, are shown by the plug-in and library host tests).
#include "Qib/System/Acf/ComponentFactory.hpp"

#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Commons/ArgumentException.hpp"
#include "Support/ExceptionMessage.hpp"

#include <gtest/gtest.h>

#include <memory>

using Qib::String;
using namespace Qib::System::Acf;

namespace
{

int lastCreator = 0;

template <int Creator>
std::shared_ptr<IComponent> Create(IApplication&, const String&)
{
    lastCreator = Creator;
    return nullptr;
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
    factory.CreateComponent(application, "B.Component", "instance");
    EXPECT_EQ(lastCreator, 1);
    const auto create = [&] { factory.CreateComponent(application, "B.component", "x"); };
    EXPECT_THROW(create(), Qib::System::Commons::ArgumentException);
    EXPECT_NE(VantrelTest::ErrorOf(create).find("B.component"), std::string::npos);
}
