// Log lines for the systemd journal: the priority as a "<N>" prefix that journald reads on standard error.
#include "JournalFormat.hpp"

#include <fmt/format.h>

namespace VantrelNetd
{

int JournalFormat::Priority(int level)
{
    // Host levels: 3 error, 5 warning, 6 info, 7 debug, 8 trace; syslog has no warning at 5 nor trace.
    if (level <= 3)
    {
        return 3;
    }
    if (level <= 5)
    {
        return 4;
    }
    return level == 6 ? 6 : 7;
}

std::string JournalFormat::Line(const Qib::System::Commons::Diagnostics::Logging::LogRecord& record)
{
    const std::string prefix = fmt::format("<{}>", Priority(record.Level));
    std::string line = prefix + record.LoggerName + ": ";
    const std::string& message = record.Message;
    for (std::size_t index = 0; index < message.size(); ++index)
    {
        line += message[index];
        // journald takes every line as a record of its own.
        if (message[index] == '\n' && index + 1 < message.size())
        {
            line += prefix;
        }
    }
    return line + "\n";
}

} // namespace VantrelNetd
