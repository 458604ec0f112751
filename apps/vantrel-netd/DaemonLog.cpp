// Where the daemon's and the library's log records go: standard error or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogLevel.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

// The library's info records tell the engine's internals ("Main thread spawned", "Create session");
// the journal says what happened in their place, so a user sees them from the debug level on.
int ShownFrom(const LogRecord& record)
{
    const bool daemons = record.LoggerName.rfind("VantrelNetd.", 0) == 0;
    const int info = static_cast<int>(LogLevel::Info);
    return !daemons && record.Level == info ? static_cast<int>(LogLevel::Debug) : record.Level;
}

struct FileCloser
{
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

} // namespace

DaemonLog::~DaemonLog()
{
    LogManager::ResetSink();
}

std::shared_ptr<std::FILE> DaemonLog::OpenFile(const std::string& path)
{
    std::FILE* raw = std::fopen(path.c_str(), "ae");
    if (raw == nullptr)
    {
        throw DaemonExit(CannotCreate, fmt::format("cannot open log file {}: {}", path, std::strerror(errno)));
    }
    return std::shared_ptr<std::FILE>(raw, FileCloser());
}

void DaemonLog::Apply(int newLevel, const std::string& newFile)
{
    if (newFile != file)
    {
        stream = newFile.empty() ? nullptr : OpenFile(newFile);
        file = newFile;
    }
    level = newLevel;
    InstallSink();
}

void DaemonLog::Observe(Observer newObserver, int newObservedLevel)
{
    observer = std::move(newObserver);
    observedLevel = observer ? newObservedLevel : 0;
    InstallSink();
}

void DaemonLog::Reopen()
{
    if (!file.empty())
    {
        stream = OpenFile(file);
        InstallSink();
    }
}

void DaemonLog::InstallSink()
{
    // The sink keeps its own copies: a stream replaced here is closed once the last record written
    // through it is done. Records are written one at a time under the log manager's lock.
    LogManager::SetSink([shown = level, target = stream, watcher = observer](const LogRecord& record) {
        if (watcher)
        {
            watcher(record);
        }
        if (shown == 0 || ShownFrom(record) > shown)
        {
            return;
        }
        std::FILE* out = target ? target.get() : stderr;
        const std::string line = LogManager::FormatLine(record) + "\n";
        std::fwrite(line.data(), 1, line.size(), out);
        std::fflush(out);
    });
    LogManager::SetLevel(std::max(level, observedLevel));
}

} // namespace VantrelNetd
