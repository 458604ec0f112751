// Mixin that gives a class its static class logger, named after the class on first construction.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"
#include "Qib/TypeName.hpp"

namespace Qib::System::Commons::Diagnostics::Logging
{

/// Derive non-publicly: `log` is the class's logger, named with T's dotted type name. Exported, so
/// that an exported class has one logger in the process even where its constructor is inlined into
/// another shared object or program.
template <typename T>
class QIB_EXPORT Loggable
{
protected:
    Loggable() { log.Initialize(TypeName<T>().GetStdString()); }
    ~Loggable() = default;
    Loggable(const Loggable&) { log.Initialize(TypeName<T>().GetStdString()); }
    Loggable& operator=(const Loggable&) = default;

    inline static LoggerBase log;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
