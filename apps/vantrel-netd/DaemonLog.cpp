// Where the daemon's and the library's log records go: standard error, the journal or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"
#include "JournalFormat.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

struct FileCloser
{
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

} // namespace

DaemonLog::~DaemonLog()
{
    LogManager::ResetSink();
}

void DaemonLog::Apply(int level, LogTarget newTarget, const std::string& newFile)
{
    if (newTarget != target || newFile != file)
    {
        if (newTarget == LogTarget::StandardError)
        {
            LogManager::ResetSink();
        }
        else if (newTarget == LogTarget::Journal)
        {
            LogManager::SetSink([](const LogRecord& record) {
                const std::string line = JournalFormat::Line(record);
                std::fwrite(line.data(), 1, line.size(), stderr);
                std::fflush(stderr);
            });
        }
        else
        {
            std::FILE* raw = std::fopen(newFile.c_str(), "a");
            if (raw == nullptr)
            {
                throw DaemonExit(RuntimeFailure,
                                 fmt::format("cannot open log file {}: {}", newFile, std::strerror(errno)));
            }
            // The sink owns the stream; records are written one at a time under the log manager's lock.
            std::shared_ptr<std::FILE> stream(raw, FileCloser());
            LogManager::SetSink([stream](const LogRecord& record) {
                const std::string line = LogManager::FormatLine(record) + "\n";
                std::fwrite(line.data(), 1, line.size(), stream.get());
                std::fflush(stream.get());
            });
        }
        target = newTarget;
        file = newFile;
    }
    LogManager::SetLevel(level);
}

} // namespace VantrelNetd
