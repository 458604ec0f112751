// The set of meta types a library declares.
#include "Qib/Plc/Commons/Meta/TypeSystem/TypeDomain.hpp"

namespace Qib::Plc::Commons::Meta::TypeSystem
{

TypeDomain::TypeDomain(const char* typeNamespace) : typeNamespace(typeNamespace) {}

void TypeDomain::AddTypeDefinitions(const std::vector<TypeDefinition>& definitions)
{
    typeDefinitions.insert(typeDefinitions.end(), definitions.begin(), definitions.end());
}

std::size_t TypeDomain::GetTypeDefinitionCount() const
{
    return typeDefinitions.size();
}

const String& TypeDomain::GetNamespace() const
{
    return typeNamespace;
}

} // namespace Qib::Plc::Commons::Meta::TypeSystem
