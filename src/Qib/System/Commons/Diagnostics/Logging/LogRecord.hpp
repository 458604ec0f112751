// One written log record as a sink receives it.
#pragma once

#include <chrono>
#include <string>

namespace Qib::System::Commons::Diagnostics::Logging
{

struct LogRecord
{
    std::string LoggerName;
    int Level;
    std::string Message;
    std::chrono::system_clock::time_point Time;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
