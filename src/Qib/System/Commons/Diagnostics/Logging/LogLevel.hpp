// Log levels by number; a record is written when its number is not above the current level.
#pragma once

namespace Qib::System::Commons::Diagnostics::Logging
{

enum class LogLevel : int
{
    Off = 0,
    Error = 3,
    Warning = 5,
    Info = 6,
    Debug = 7,
    Trace = 8,
};

} // namespace Qib::System::Commons::Diagnostics::Logging
