// Base of a component: its identity and the host's default lifecycle hooks.
#include "Qib/System/Acf/ComponentBase.hpp"

#include "Qib/System/Acf/IApplication.hpp"
#include "Qib/System/Acf/ILibrary.hpp"

namespace Qib::System::Acf
{

IComponent::~IComponent() = default;

ComponentBase::ComponentBase(IApplication& application, ILibrary& library, const String& name,
                             ComponentCategory category, unsigned int startOrder, bool singleton)
    : application(application), library(library), name(name), category(category), startOrder(startOrder),
      singleton(singleton)
{
}

ComponentBase::~ComponentBase() = default;

unsigned int ComponentBase::GetDefaultStartOrder()
{
    return 100;
}

IApplication& ComponentBase::GetApplication() const
{
    return application;
}

ILibrary& ComponentBase::GetLibrary() const
{
    return library;
}

String ComponentBase::GetFullName() const
{
    return String(application.GetName().GetStdString() + "/" + name.GetStdString());
}

const BasicVersion& ComponentBase::GetVersion() const
{
    return library.GetBuildVersion();
}

ComponentCategory ComponentBase::GetComponentCategory() const
{
    return category;
}

unsigned int ComponentBase::GetStartOrder() const
{
    return startOrder;
}

bool ComponentBase::IsSingleton() const
{
    return singleton;
}

bool ComponentBase::IsRequired() const
{
    return false;
}

const String& ComponentBase::GetName() const
{
    return name;
}

void ComponentBase::Initialize() {}
void ComponentBase::SubscribeServices() {}
void ComponentBase::LoadSettings(const String&) {}
void ComponentBase::SetupSettings() {}
void ComponentBase::PublishServices() {}
void ComponentBase::LoadConfig() {}
void ComponentBase::SetupConfig() {}
void ComponentBase::ResetConfig() {}
void ComponentBase::Dispose() {}
void ComponentBase::PowerDown() {}

} // namespace Qib::System::Acf
