// The process-wide log level and the sink every record is routed to.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace Qib::System::Commons::Diagnostics::Logging
{

namespace
{

std::atomic<int> currentLevel{6};

const char* LevelName(int level)
{
    switch (level)
    {
    case 3:
        return "ERROR";
    case 5:
        return "WARN";
    case 6:
        return "INFO";
    case 7:
        return "DEBUG";
    case 8:
        return "TRACE";
    default:
        return "LOG";
    }
}

void WriteToStandardError(const LogRecord& record)
{
    const std::string line = LogManager::FormatLine(record) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

struct SinkHolder
{
    std::mutex lock;
    LogManager::Sink sink = WriteToStandardError;
};

SinkHolder& Holder()
{
    // Never destroyed: records may still be written while the process exits.
    static SinkHolder* holder = new SinkHolder();
    return *holder;
}

// Holds off thread cancellation for the lifetime of the object.
class CancellationBlock
{
public:
    CancellationBlock() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    ~CancellationBlock() { pthread_setcancelstate(previous, nullptr); }
    CancellationBlock(const CancellationBlock&) = delete;
    CancellationBlock& operator=(const CancellationBlock&) = delete;

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

} // namespace

void LogManager::SetLevel(int level)
{
    currentLevel.store(level);
}

int LogManager::GetLevel()
{
    return currentLevel.load();
}

void LogManager::SetSink(Sink sink)
{
    SinkHolder& holder = Holder();
    std::lock_guard<std::mutex> guard(holder.lock);
    holder.sink = std::move(sink);
}

void LogManager::ResetSink()
{
    SetSink(WriteToStandardError);
}

void LogManager::Write(const LogRecord& record)
{
    CancellationBlock noCancellation;
    SinkHolder& holder = Holder();
    std::lock_guard<std::mutex> guard(holder.lock);
    if (holder.sink)
    {
        holder.sink(record);
    }
}

void LogManager::Flush()
{
    // Records reach the sink inside Write, so none is ever pending here.
}

std::string LogManager::FormatLine(const LogRecord& record)
{
    const auto sinceEpoch = record.Time.time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(record.Time);
    std::tm local{};
    localtime_r(&seconds, &local);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03d} {:<5} {}: {}", local, milliseconds, LevelName(record.Level),
                       record.LoggerName, record.Message);
}

} // namespace Qib::System::Commons::Diagnostics::Logging
