// Where the daemon's and the library's log records go: standard error or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"
#include "RepeatCollapser.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogLevel.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

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
    // through it is done. Records are written one at a time under the log manager's lock, which also
    // guards the collapser.
    std::FILE* out = stream ? stream.get() : stderr;
    const auto write = [target = stream, out](const std::string& line) {
        std::fwrite(line.data(), 1, line.size(), out);
        std::fflush(out);
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
        write(LogManager::FormatLine(summary) + "\n");
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
        write(LogManager::FormatLine(record) + "\n");
    });
    LogManager::SetLevel(std::max(level, observedLevel));
}

} // namespace VantrelNetd
