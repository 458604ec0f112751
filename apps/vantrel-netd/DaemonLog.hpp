// Where the daemon's and the library's log records go: standard error, the journal or a file, at one level.
#pragma once

#include "Config.hpp"

#include <string>

namespace VantrelNetd
{

/// Routes the host logging to standard error or to an appended file, one line per record with time,
/// level, logger and message, or to the journal through standard error with priority prefixes. Used from the main thread only; the sink itself is safe from any thread.
class DaemonLog
{
public:
    DaemonLog() = default;
    /// Restores the standard-error sink.
    ~DaemonLog();
    DaemonLog(const DaemonLog&) = delete;
    DaemonLog& operator=(const DaemonLog&) = delete;

    /// Sets the level and the destination (`file` only with LogTarget::File). Throws DaemonExit when
    /// the file cannot be opened; the previous destination then stays.
    void Apply(int level, LogTarget target, const std::string& file);

    /// The file written to, or empty for standard error.
    const std::string& GetFile() const { return file; }

private:
    LogTarget target = LogTarget::StandardError;
    std::string file;
};

} // namespace VantrelNetd
