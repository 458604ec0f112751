// Base of a plug-in library that declares meta types.
#include "Qib/Plc/Commons/Meta/MetaLibraryBase.hpp"

namespace Qib::Plc::Commons::Meta
{

IMetaLibrary::~IMetaLibrary() = default;

MetaLibraryBase::MetaLibraryBase(AppDomain& appDomain, const BasicVersion& buildVersion, const String& typeNamespace)
    : LibraryBase(appDomain, buildVersion), typeDomain(typeNamespace.CStr()), typeInfoProvider(typeDomain)
{
}

MetaLibraryBase::~MetaLibraryBase() = default;

const String& MetaLibraryBase::GetNamespace()
{
    return typeDomain.GetNamespace();
}

TypeInfoProvider& MetaLibraryBase::GetTypeInfoProvider(bool)
{
    return typeInfoProvider;
}

TypeSystem::TypeDomain& MetaLibraryBase::GetTypeDomain()
{
    return typeDomain;
}

} // namespace Qib::Plc::Commons::Meta
