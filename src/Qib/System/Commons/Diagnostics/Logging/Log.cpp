// Holder of the root log adapter.
#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"

namespace Qib::System::Commons::Diagnostics::Logging
{

std::shared_ptr<LogAdapter> Log::rootLogAdapterPtr = std::make_shared<LogAdapter>("Root");

} // namespace Qib::System::Commons::Diagnostics::Logging
