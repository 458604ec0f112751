// Holder of the root log adapter.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogAdapter.hpp"

#include <memory>

namespace Qib::System::Commons::Diagnostics::Logging
{

/// The root log adapter exists from load on; code that logs through it writes nothing while it is null.
class QIB_EXPORT Log
{
public:
    static std::shared_ptr<LogAdapter> rootLogAdapterPtr;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
