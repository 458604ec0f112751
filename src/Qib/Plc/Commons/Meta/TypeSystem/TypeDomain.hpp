// The set of meta types a library declares, under the library's namespace.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/Plc/Commons/Meta/TypeSystem/TypeDefinition.hpp"
#include "Qib/QibExport.hpp"

#include <vector>

namespace Qib::Plc::Commons::Meta::TypeSystem
{

/// A library's meta types. Not synchronised: filled at library creation.
class QIB_EXPORT TypeDomain
{
public:
    explicit TypeDomain(const char* typeNamespace);

    void AddTypeDefinitions(const std::vector<TypeDefinition>& definitions);
    std::size_t GetTypeDefinitionCount() const;
    const String& GetNamespace() const;

private:
    String typeNamespace;
    std::vector<TypeDefinition> typeDefinitions;
};

} // namespace Qib::Plc::Commons::Meta::TypeSystem
