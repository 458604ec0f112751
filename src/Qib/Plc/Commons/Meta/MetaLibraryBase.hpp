// Base of a plug-in library that declares meta types: a library record plus namespace and type domain.
#pragma once

#include "Qib/Plc/Commons/Meta/IMetaLibrary.hpp"
#include "Qib/Plc/Commons/Meta/TypeInfoProvider.hpp"
#include "Qib/Plc/Commons/Meta/TypeSystem/TypeDomain.hpp"
#include "Qib/System/Acf/LibraryBase.hpp"

namespace Qib::Plc::Commons::Meta
{

/// Library record with a namespace and a type domain.
class QIB_EXPORT MetaLibraryBase : public System::Acf::LibraryBase, public IMetaLibrary
{
public:
    MetaLibraryBase(AppDomain& appDomain, const BasicVersion& buildVersion, const String& typeNamespace);
    ~MetaLibraryBase() override;

    const String& GetNamespace() override;
    TypeInfoProvider& GetTypeInfoProvider(bool update) override;
    TypeSystem::TypeDomain& GetTypeDomain();

private:
    TypeSystem::TypeDomain typeDomain;
    TypeInfoProvider typeInfoProvider;
};

} // namespace Qib::Plc::Commons::Meta
