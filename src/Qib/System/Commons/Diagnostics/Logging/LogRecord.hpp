// One written log record as a sink receives it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Qib::System::Commons::Diagnostics::Logging
{

/// A record keeps its "{0}"-style template and the arguments as text beside the formatted message,
/// so that code can recognise a message by its logger and template without parsing the text.
struct LogRecord
{
    std::string LoggerName;
    int Level;
    std::string Message;
    std::chrono::system_clock::time_point Time;
    std::string Template;
    /// Every argument given to the template, each formatted with "{}" (also those the template leaves out).
    std::vector<std::string> Arguments;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
