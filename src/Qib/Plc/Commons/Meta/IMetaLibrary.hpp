// The meta-type side of a plug-in library.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::Plc::Commons::Meta
{

class TypeInfoProvider;

/// A library's namespace and the provider of its meta types.
class QIB_EXPORT IMetaLibrary
{
public:
    virtual ~IMetaLibrary();
    virtual const String& GetNamespace() = 0;
    virtual TypeInfoProvider& GetTypeInfoProvider(bool update) = 0;
};

} // namespace Qib::Plc::Commons::Meta
