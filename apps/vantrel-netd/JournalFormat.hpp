// Log lines for the systemd journal: the priority as a "<N>" prefix that journald reads on standard error.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"

#include <string>

namespace VantrelNetd
{

/// Formats records for standard error under systemd. Stateless: safe from any thread.
class JournalFormat
{
public:
    /// The syslog priority (3 err, 4 warning, 6 info, 7 debug) of a host log level.
    static int Priority(int level);
    /// "<N>logger: message\n", every line of a multi-line message with its own prefix; no time,
    /// the journal keeps its own.
    static std::string Line(const Qib::System::Commons::Diagnostics::Logging::LogRecord& record);
};

} // namespace VantrelNetd
