// Read access to a library's type domain.
#pragma once

#include "Qib/QibExport.hpp"

namespace Qib::Plc::Commons::Meta
{

namespace TypeSystem
{
class TypeDomain;
}

/// Gives the host read access to a type domain.
class QIB_EXPORT TypeInfoProvider
{
public:
    explicit TypeInfoProvider(TypeSystem::TypeDomain& typeDomain);
    TypeSystem::TypeDomain& GetTypeDomain() const;

private:
    TypeSystem::TypeDomain& typeDomain;
};

} // namespace Qib::Plc::Commons::Meta
