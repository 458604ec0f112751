// The host's interface of a loaded plug-in library.
#pragma once

#include "Qib/BasicVersion.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Acf
{

class ComponentFactory;

/// A plug-in library: its component factory and its build version.
class QIB_EXPORT ILibrary
{
public:
    virtual ~ILibrary();
    virtual ComponentFactory& GetComponentFactory() = 0;
    virtual const BasicVersion& GetBuildVersion() const = 0;
};

} // namespace Qib::System::Acf
