// Map from component type name to the function that creates such a component.
#include "Qib/System/Acf/ComponentFactory.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"

namespace Qib::System::Acf
{

bool ComponentFactory::AddFactoryMethod(const String& typeName, CreateFunction create)
{
    return factoryMethods.insert({typeName, create}).second;
}

std::vector<String> ComponentFactory::GetComponentTypeNames() const
{
    std::vector<String> names;
    names.reserve(factoryMethods.size());
    for (const auto& entry : factoryMethods)
    {
        names.push_back(entry.first);
    }
    return names;
}

std::shared_ptr<IComponent> ComponentFactory::CreateComponent(IApplication& application, const String& typeName,
                                                              const String& instanceName) const
{
    const auto found = factoryMethods.find(typeName);
    if (found == factoryMethods.end())
    {
        throw Commons::ArgumentException("Unknown component type '{0}'", typeName);
    }
    return found->second(application, instanceName);
}

} // namespace Qib::System::Acf
