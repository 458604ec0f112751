// Map from component type name to the function that creates such a component.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

#include <map>
#include <memory>
#include <vector>

namespace Qib::System::Acf
{

class IApplication;
class IComponent;

/// A library's component factory. Not synchronised: filled at library creation, read afterwards.
class QIB_EXPORT ComponentFactory
{
public:
    using CreateFunction = std::shared_ptr<IComponent> (*)(IApplication&, const String&);

    /// Adds a type; an existing name keeps its old entry. Returns whether the entry was added.
    bool AddFactoryMethod(const String& typeName, CreateFunction create);

    /// The known type names, in the map's order.
    std::vector<String> GetComponentTypeNames() const;

    /// Creates a component by type name; throws ArgumentException for an unknown name.
    std::shared_ptr<IComponent> CreateComponent(IApplication& application, const String& typeName,
                                                const String& instanceName) const;

private:
    std::map<String, CreateFunction> factoryMethods;
};

} // namespace Qib::System::Acf
