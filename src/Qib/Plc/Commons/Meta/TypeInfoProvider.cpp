// Read access to a library's type domain.
#include "Qib/Plc/Commons/Meta/TypeInfoProvider.hpp"

namespace Qib::Plc::Commons::Meta
{

TypeInfoProvider::TypeInfoProvider(TypeSystem::TypeDomain& typeDomain) : typeDomain(typeDomain) {}

TypeSystem::TypeDomain& TypeInfoProvider::GetTypeDomain() const
{
    return typeDomain;
}

} // namespace Qib::Plc::Commons::Meta
