// The application a component belongs to.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Acf
{

/// The hosting application as components see it.
class QIB_EXPORT IApplication
{
public:
    virtual ~IApplication();
    virtual const String& GetName() const = 0;
};

} // namespace Qib::System::Acf
