// Where the daemon's and the library's log records go: standard error or a file, at one level.
#include "DaemonLog.hpp"

#include "ExitStatus.hpp"
#include "KeptFolders.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

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

// Opens the log file for appending, through its kept folder once the daemon is confined.
std::shared_ptr<std::FILE> OpenLogFile(const std::string& file)
{
    const int descriptor = KeptFolders::Open(file, O_WRONLY | O_APPEND | O_CREAT, 0666);
    std::FILE* raw = descriptor >= 0 ? ::fdopen(descriptor, "a") : nullptr;
    if (raw == nullptr)
    {
        const int error = errno;
        if (descriptor >= 0)
        {
            ::close(descriptor);
        }
        throw DaemonExit(RuntimeFailure, fmt::format("cannot open log file {}: {}", file, std::strerror(error)));
    }
    return std::shared_ptr<std::FILE>(raw, FileCloser());
}

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
            // The sink owns the stream; records are written one at a time under the log manager's lock.
            std::shared_ptr<std::FILE> stream = OpenLogFile(newFile);
            LogManager::SetSink([stream](const LogRecord& record) {
                const std::string line = LogManager::FormatLine(record) + "\n";
                std::fwrite(line.data(), 1, line.size(), stream.get());
                std::fflush(stream.get());
            });
        }
        file = newFile;
    }
    LogManager::SetLevel(level);
}

} // namespace VantrelNetd
