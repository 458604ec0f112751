// The root log adapter: a logger for code that has no class logger of its own.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

namespace Qib::System::Commons::Diagnostics::Logging
{

/// A logger reached through Log::rootLogAdapterPtr.
class QIB_EXPORT LogAdapter : public LoggerBase
{
public:
    using LoggerBase::LoggerBase;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
