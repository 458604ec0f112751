// Where the daemon's and the library's log records go: standard error, the journal or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"
#include "JournalFormat.hpp"
#include "KeptFolders.hpp"
#include "RepeatCollapser.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogLevel.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

// The library's info records tell the engine's internals ("Main thread spawned", "Create session");
// the journal says what happened in their place, so a user sees them from the debug level on.
bool IsDaemons(const LogRecord& record)
{
    return record.LoggerName.rfind("VantrelNetd.", 0) == 0;
}

int ShownFrom(const LogRecord& record)
{
    const int info = static_cast<int>(LogLevel::Info);
    return !IsDaemons(record) && record.Level == info ? static_cast<int>(LogLevel::Debug) : record.Level;
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
    // Through its kept folder once the daemon is confined.
    const int descriptor = KeptFolders::Open(path, O_WRONLY | O_APPEND | O_CREAT, 0666);
    std::FILE* raw = descriptor >= 0 ? ::fdopen(descriptor, "a") : nullptr;
    if (raw == nullptr)
    {
        const int error = errno;
        if (descriptor >= 0)
        {
            ::close(descriptor);
        }
        throw DaemonExit(CannotCreate, fmt::format("cannot open log file {}: {}", path, std::strerror(error)));
    }
    return std::shared_ptr<std::FILE>(raw, FileCloser());
}

void DaemonLog::Apply(int newLevel, LogTarget newTarget, const std::string& newFile)
{
    const std::string fileWanted = newTarget == LogTarget::File ? newFile : std::string();
    if (fileWanted != file)
    {
        stream = fileWanted.empty() ? nullptr : OpenFile(fileWanted);
        file = fileWanted;
    }
    target = newTarget;
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
    // through it is done. The log manager's writer thread hands it one record at a time, which also
    // keeps the collapser to one thread. A refused write (a reader gone, a full disk) throws: the log
    // manager counts and reports it.
    const bool journal = target == LogTarget::Journal;
    const auto write = [out = stream, journal](const LogRecord& record) {
        const int descriptor = out ? ::fileno(out.get()) : STDERR_FILENO;
        LogManager::WriteText(descriptor,
                              journal ? JournalFormat::Line(record) : LogManager::FormatLine(record) + "\n");
    };
    // Up to the info level, library lines a flood repeats (a client's error packets, duplicate blocks)
    // are collapsed as the journal's are; from debug on every line is written. The summary takes the
    // logger, time and level of the record that ends the window.
    auto lastRecord = std::make_shared<LogRecord>();
    auto collapser = std::make_shared<RepeatCollapser>([write, lastRecord](const std::string& kind,
                                                                           std::uint64_t count) {
        LogRecord summary = *lastRecord;
        summary.Message = fmt::format("... {} more like this in the last {} s: {}", count,
                                      RepeatCollapser::Window.count(), kind);
        write(summary);
    });
    LogManager::SetSink([shown = level, write, collapser, lastRecord, watcher = observer](const LogRecord& record) {
        if (watcher)
        {
            watcher(record);
        }
        if (shown == 0 || ShownFrom(record) > shown)
        {
            return;
        }
        if (shown <= static_cast<int>(LogLevel::Info) && !IsDaemons(record))
        {
            *lastRecord = LogRecord{record.LoggerName, record.Level, "", record.Time, "", {}};
            if (!collapser->Admit(record.LoggerName + ": " + record.Template, RepeatCollapser::Clock::now()))
            {
                return;
            }
        }
        write(record);
    });
    LogManager::SetLevel(std::max(level, observedLevel));
}

} // namespace VantrelNetd
