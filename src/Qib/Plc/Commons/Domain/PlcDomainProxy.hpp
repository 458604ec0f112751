// The controller's domain proxy: the register of components known to the controller.
#pragma once

#include "Qib/QibExport.hpp"

#include <mutex>
#include <vector>

namespace Qib::System::Acf
{
class IComponent;
}

namespace Qib::Plc::Commons::Domain
{

/// Register of components with their flag. Shared objects: safe.
class QIB_EXPORT PlcDomainProxy
{
public:
    struct RegisteredComponent
    {
        System::Acf::IComponent* Component;
        bool Flag;
    };

    PlcDomainProxy() = default;
    PlcDomainProxy(const PlcDomainProxy&) = delete;
    PlcDomainProxy& operator=(const PlcDomainProxy&) = delete;

    void RegisterComponent(System::Acf::IComponent& component, bool flag);

    /// The registered components, in order of registration.
    std::vector<RegisteredComponent> GetRegisteredComponents() const;

private:
    mutable std::mutex lock;
    std::vector<RegisteredComponent> components;
};

} // namespace Qib::Plc::Commons::Domain
