// The library's one component.
#include "VantrelBase/Net/NetComponent.hpp"

#include "Qib/AppDomain.hpp"
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"

namespace VantrelBase::Net
{

using Qib::Plc::Commons::Domain::PlcDomainProxy;

NetComponent::NetComponent(Qib::System::Acf::IApplication& application, const Qib::String& name)
    : ComponentBase(application, NetLibrary::GetInstance(), name, Qib::System::Acf::ComponentCategory::Library,
                    ComponentBase::GetDefaultStartOrder(), false),
      MetaComponentBase(NetLibrary::GetInstance().GetNamespace().CStr())
{
}

NetComponent::~NetComponent() = default;

std::shared_ptr<Qib::System::Acf::IComponent> NetComponent::Create(Qib::System::Acf::IApplication& application,
                                                                   const Qib::String& name)
{
    return std::shared_ptr<Qib::System::Acf::IComponent>(new NetComponent(application, name));
}

void NetComponent::Initialize()
{
    PlcDomainProxy* proxy = Qib::AppDomain::GetInstance().TryGetSingleton<PlcDomainProxy>();
    if (proxy == nullptr)
    {
        throw Qib::Exception("AppDomain Singleton instance of type '{0}' was not created yet!",
                             Qib::TypeName<PlcDomainProxy>());
    }
    proxy->RegisterComponent(*this, true);
}

void NetComponent::SetupSettings()
{
    MetaComponentBase::SetupSettings();
}

void NetComponent::Dispose()
{
    MetaComponentBase::Dispose();
}

void NetComponent::LoadSettings(const Qib::String&)
{
    // The component has no settings of its own; the host's settings path is ignored.
}

void NetComponent::SubscribeServices() {}

void NetComponent::PublishServices() {}

void NetComponent::LoadConfig() {}

void NetComponent::SetupConfig() {}

void NetComponent::ResetConfig() {}

void NetComponent::PowerDown() {}

void NetComponent::RegisterComponentPorts()
{
    // The component has no data ports.
}

} // namespace VantrelBase::Net
