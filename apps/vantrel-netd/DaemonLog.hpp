// Where the daemon's and the library's log records go: standard error, the journal or a file, at one level.
#pragma once

#include "Config.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace VantrelNetd
{

/// Routes the host logging to standard error or to an appended file, one line per record with time,
/// level, logger and message, or to the journal through standard error with priority prefixes. An
/// observer may see every record the host writes, also those below the user's level: the host level
/// is kept at least at the observer's, and the sink shows the user only what their level asks for.
/// The library's info records (its engine's internals) count as debug for the user: the journal
/// says what happened in their place. Used from the main thread only; the sink itself is safe from
/// any thread.
class DaemonLog
{
public:
    using Observer = std::function<void(const Qib::System::Commons::Diagnostics::Logging::LogRecord&)>;

    DaemonLog() = default;
    /// Restores the standard-error sink.
    ~DaemonLog();
    DaemonLog(const DaemonLog&) = delete;
    DaemonLog& operator=(const DaemonLog&) = delete;

    /// Sets the user's level and the destination (`file` only with LogTarget::File); a file is opened
    /// only when it differs from the current one. Throws DaemonExit when the file cannot be opened;
    /// the previous destination then stays.
    void Apply(int level, LogTarget target, const std::string& file);
    /// Hands every record at or below `level` to `observer`, on the thread that writes it; the observer
    /// must return at once. An empty observer ends the observation.
    void Observe(Observer observer, int level);
    /// Opens the log file again under its name (after logrotate renamed it). Throws DaemonExit when it
    /// cannot be opened; the previous stream then stays.
    void Reopen();

    /// The file written to, or empty for standard error and the journal.
    const std::string& GetFile() const { return file; }

    /// Opens `path` for appending, as the daemon writes its log. Throws DaemonExit (73) with one line.
    static std::shared_ptr<std::FILE> OpenFile(const std::string& path);

private:
    void InstallSink();

    LogTarget target = LogTarget::StandardError;
    std::string file;
    std::shared_ptr<std::FILE> stream;
    int level = 6;
    Observer observer;
    int observedLevel = 0;
};

} // namespace VantrelNetd
