// Where the daemon's and the library's log records go: standard error or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"

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

void DaemonLog::Apply(int level, const std::string& newFile)
{
    if (newFile != file)
    {
        if (newFile.empty())
        {
            LogManager::ResetSink();
        }
        else
        {
            std::FILE* raw = std::fopen(newFile.c_str(), "a");
            if (raw == nullptr)
            {
                throw DaemonExit(RuntimeFailure,
                                 fmt::format("cannot open log file {}: {}", newFile, std::strerror(errno)));
            }
            // The sink owns the stream; a refused write (a full disk) is reported by the log manager.
            std::shared_ptr<std::FILE> stream(raw, FileCloser());
            LogManager::SetSink(
                [stream](const LogRecord& record) { LogManager::WriteLine(fileno(stream.get()), record); });
        }
        file = newFile;
    }
    LogManager::SetLevel(level);
}

} // namespace VantrelNetd
