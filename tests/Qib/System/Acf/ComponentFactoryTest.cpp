// Tests of the component factory: name-to-creator map, insertion rule and creation by name.
#include "Qib/System/Acf/ComponentFactory.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"
#include "Qib/System/Commons/ArgumentException.hpp"

#include <gtest/gtest.h>

#include <memory>

using Qib::String;
using Qib::System::Acf::Application;
using Qib::System::Acf::ComponentBase;
using Qib::System::Acf::ComponentCategory;
using Qib::System::Acf::ComponentFactory;
using Qib::System::Acf::IApplication;
using Qib::System::Acf::IComponent;
using Qib::System::Acf::LibraryBase;

namespace
{

Qib::AppDomain sampleDomain;
LibraryBase sampleLibrary(sampleDomain, Qib::BasicVersion(1, 2, 3, 4, "1.2.3", "beta"));

class SampleComponent : public ComponentBase
{
public:
    SampleComponent(IApplication& application, const String& name, unsigned int order)
        : ComponentBase(application, sampleLibrary, name, ComponentCategory::Library, order, false)
    {
    }
};

std::shared_ptr<IComponent> CreateFirst(IApplication& application, const String& name)
{
    return std::make_shared<SampleComponent>(application, name, 1);
}

std::shared_ptr<IComponent> CreateSecond(IApplication& application, const String& name)
{
    return std::make_shared<SampleComponent>(application, name, 2);
}

} // namespace

TEST(ComponentFactoryTest, CreatesComponentByTypeNameWithInstanceName)
{
    ComponentFactory factory;
    ASSERT_TRUE(factory.AddFactoryMethod("Sample.Component", &CreateFirst));
    Application application("App");
    const auto component = factory.CreateComponent(application, "Sample.Component", "instance");
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(component->GetFullName(), String("App/instance"));
    EXPECT_EQ(&component->GetApplication(), &application);
    EXPECT_EQ(&component->GetLibrary(), &sampleLibrary);
    EXPECT_EQ(component->GetVersion().GetSuffix(), "beta");
    EXPECT_EQ(component->GetStartOrder(), 1U);
}

TEST(ComponentFactoryTest, InsertingAnExistingNameKeepsTheOldEntry)
{
    ComponentFactory factory;
    factory.AddFactoryMethod("Sample.Component", &CreateFirst);
    EXPECT_FALSE(factory.AddFactoryMethod("Sample.Component", &CreateSecond));
    Application application("App");
    EXPECT_EQ(factory.CreateComponent(application, "Sample.Component", "x")->GetStartOrder(), 1U);
    EXPECT_EQ(factory.GetComponentTypeNames().size(), 1U);
}

TEST(ComponentFactoryTest, NamesAreListedInOrder)
{
    ComponentFactory factory;
    EXPECT_TRUE(factory.GetComponentTypeNames().empty());
    factory.AddFactoryMethod("B.Second", &CreateSecond);
    factory.AddFactoryMethod("A.First", &CreateFirst);
    factory.AddFactoryMethod("C.Third", &CreateFirst);
    const std::vector<String> expected{"A.First", "B.Second", "C.Third"};
    EXPECT_EQ(factory.GetComponentTypeNames(), expected);
}

TEST(ComponentFactoryTest, UnknownNameThrowsArgumentExceptionNamingIt)
{
    ComponentFactory factory;
    factory.AddFactoryMethod("Sample.Component", &CreateFirst);
    Application application("App");
    try
    {
        factory.CreateComponent(application, "Sample.component", "x");
        FAIL() << "an unknown (differently cased) name created a component";
    }
    catch (const Qib::System::Commons::ArgumentException& exception)
    {
        EXPECT_NE(exception.GetMessage().find("Sample.component"), std::string::npos) << exception.what();
    }
}
