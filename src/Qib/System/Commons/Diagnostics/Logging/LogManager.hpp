// The process-wide log level and the one sink every record is routed to.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"

#include <functional>

namespace Qib::System::Commons::Diagnostics::Logging
{

/// Level and sink of all loggers. All operations are static and safe from any thread.
class QIB_EXPORT LogManager
{
public:
    using Sink = std::function<void(const LogRecord&)>;

    /// Sets the level of every logger and of the root adapter (0 writes nothing; the default is 6).
    static void SetLevel(int level);
    static int GetLevel();
    /// Routes every record to `sink` from now on.
    static void SetSink(Sink sink);
    /// Restores the default sink: one line per record on standard error.
    static void ResetSink();
    /// Hands one record to the sink. Sinks are called one at a time, with thread cancellation held
    /// off, so that a server thread ended while it logs cannot leave the sink half-written.
    static void Write(const LogRecord& record);
    /// Waits until every record written so far has reached the sink.
    static void Flush();
    /// The default sink's line for a record: time, level, logger and message.
    static std::string FormatLine(const LogRecord& record);
};

} // namespace Qib::System::Commons::Diagnostics::Logging
