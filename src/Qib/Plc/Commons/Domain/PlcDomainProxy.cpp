// The controller's domain proxy.
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"

namespace Qib::Plc::Commons::Domain
{

void PlcDomainProxy::RegisterComponent(System::Acf::IComponent& component, bool flag)
{
    std::lock_guard<std::mutex> guard(lock);
    components.push_back({&component, flag});
}

std::vector<PlcDomainProxy::RegisteredComponent> PlcDomainProxy::GetRegisteredComponents() const
{
    std::lock_guard<std::mutex> guard(lock);
    return components;
}

} // namespace Qib::Plc::Commons::Domain
