// The process-wide log level, the sink every record is routed to, and the writer thread that feeds it.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cxxabi.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace Qib::System::Commons::Diagnostics::Logging
{

namespace
{

using Threading::Thread;
using Threading::ThreadSettings;
using SharedSink = std::shared_ptr<const LogManager::Sink>;

constexpr const char* ManagerName = "Qib.System.Commons.Diagnostics.Logging.LogManager";
constexpr int ErrorLevel = 3;
constexpr int WarningLevel = 5;

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
    LogManager::WriteLine(STDERR_FILENO, record);
}

LogRecord OwnRecord(int level, std::string message)
{
    // The log manager's own lines have no arguments: the text is its own template.
    return LogRecord{ManagerName, level, message, std::chrono::system_clock::now(), message, {}};
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

// A record waiting for its sink; `sequence` counts every record accepted.
struct Entry
{
    LogRecord record;
    SharedSink sink;
    std::size_t bytes;
    std::uint64_t sequence;
};

// True on the writer thread, which must not wait for itself.
thread_local bool onWriterThread = false;

std::size_t TextBytes(const LogRecord& record)
{
    std::size_t bytes = record.LoggerName.size() + record.Message.size() + record.Template.size();
    for (const std::string& argument : record.Arguments)
    {
        bytes += argument.size();
    }
    return bytes;
}

// The queue, the writer thread and the drop count. One object, never destroyed: records may still
// be written while the process exits.
class Writer
{
public:
    void Write(const LogRecord& record);
    void Flush();
    void SetSink(LogManager::Sink sink);

private:
    void StartThread();
    void Run();
    bool Deliver(const SharedSink& target, const LogRecord& record);
    bool DropReportDue() const;
    LogRecord TakeDropReport();
    void CountDrop(int level);
    void DiscardOwedUpTo(std::uint64_t sequence);
    template <typename Predicate>
    bool WaitWhileProgressing(std::unique_lock<std::mutex>& guard, Predicate done);

    std::mutex control; // one Flush or SetSink at a time
    std::mutex lock;    // everything below
    std::condition_variable work;
    std::condition_variable progress;
    std::deque<Entry> queue;
    std::size_t queuedBytes = 0;
    std::uint64_t accepted = 0;
    std::uint64_t taken = 0;
    int takenLevel = 0;
    std::uint64_t settled = 0;
    SharedSink sink = std::make_shared<const LogManager::Sink>(WriteToStandardError);
    std::unique_ptr<Thread> thread;
    bool running = false;
    bool ending = false;
    bool sinkFailing = false;
    unsigned long droppedRecords = 0;
    unsigned long droppedErrors = 0;
    std::chrono::steady_clock::time_point lastDropReport{};
};

Writer& TheWriter()
{
    static Writer* writer = new Writer();
    return *writer;
}

void Writer::Write(const LogRecord& record)
{
    std::lock_guard<std::mutex> guard(lock);
    if (!*sink)
    {
        return;
    }
    const std::size_t bytes = TextBytes(record);
    const bool full = queue.size() >= LogManager::MaxQueuedRecords || queuedBytes + bytes > LogManager::MaxQueuedBytes;
    if (full && !queue.empty())
    {
        CountDrop(record.Level);
        return;
    }
    queue.push_back(Entry{record, sink, bytes, ++accepted});
    queuedBytes += bytes;
    if (!running && !ending)
    {
        StartThread();
    }
    work.notify_one();
}

void Writer::CountDrop(int level)
{
    ++droppedRecords;
    if (level <= ErrorLevel)
    {
        ++droppedErrors;
    }
}

// Called under `lock`. A thread that cannot be started leaves the records queued for the next try.
void Writer::StartThread()
{
    static std::once_flag exitHook;
    std::call_once(exitHook, [] { std::atexit(LogManager::Flush); });
    try
    {
        auto started = std::make_unique<Thread>(ThreadSettings("LogWriter"), [this](void*) { Run(); }, nullptr);
        started->Start();
        thread = std::move(started);
        running = true;
    }
    catch (const std::exception&)
    {
        thread.reset();
    }
}

bool Writer::DropReportDue() const
{
    return droppedRecords != 0 && !sinkFailing &&
           (queue.empty() || std::chrono::steady_clock::now() - lastDropReport >= LogManager::DropReportInterval);
}

LogRecord Writer::TakeDropReport()
{
    lastDropReport = std::chrono::steady_clock::now();
    const unsigned long records = std::exchange(droppedRecords, 0UL);
    const unsigned long errors = std::exchange(droppedErrors, 0UL);
    return OwnRecord(errors != 0 ? ErrorLevel : WarningLevel,
                     fmt::format("{} log records dropped ({} of them errors): the log output did not keep up or failed",
                                 records, errors));
}

void Writer::Run()
{
    // The writer is terminated only inside a sink (see Deliver); the queue stays consistent.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    onWriterThread = true;
    std::unique_lock<std::mutex> guard(lock);
    for (;;)
    {
        work.wait(guard, [this] { return ending || !queue.empty() || DropReportDue(); });
        if (DropReportDue())
        {
            const SharedSink target = queue.empty() ? sink : queue.front().sink;
            const unsigned long records = droppedRecords;
            const unsigned long errors = droppedErrors;
            const LogRecord report = TakeDropReport();
            guard.unlock();
            const bool delivered = Deliver(target, report);
            guard.lock();
            if (!delivered)
            {
                // Counted again and reported once a record gets through.
                droppedRecords += records;
                droppedErrors += errors;
            }
            continue;
        }
        if (ending)
        {
            break;
        }
        Entry entry = std::move(queue.front());
        queue.pop_front();
        queuedBytes -= entry.bytes;
        taken = entry.sequence;
        takenLevel = entry.record.Level;
        guard.unlock();
        const bool delivered = Deliver(entry.sink, entry.record);
        guard.lock();
        if (!delivered)
        {
            CountDrop(entry.record.Level);
        }
        settled = entry.sequence;
        progress.notify_all();
    }
    running = false;
    progress.notify_all();
}

// The sink's call is the one place where the writer may be terminated: a sink stuck in a write is
// ended there. A sink that throws has failed; its first failure is reported on standard error.
bool Writer::Deliver(const SharedSink& target, const LogRecord& record)
{
    std::string failure;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    try
    {
        (*target)(record);
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (const std::exception& exception)
    {
        failure = exception.what();
    }
    catch (...)
    {
        failure = "unknown exception";
    }
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    bool firstFailure = false;
    {
        std::lock_guard<std::mutex> guard(lock);
        firstFailure = !failure.empty() && !sinkFailing;
        sinkFailing = !failure.empty();
    }
    if (firstFailure)
    {
        try
        {
            LogManager::WriteLine(STDERR_FILENO, OwnRecord(ErrorLevel, "Log output failed, records are dropped "
                                                                       "until it works again: " +
                                                                           failure));
        }
        catch (const std::exception&)
        {
            // Standard error was that output, or has gone too: nowhere is left to say it.
        }
    }
    return failure.empty();
}

void Writer::Flush()
{
    if (onWriterThread)
    {
        return;
    }
    std::lock_guard<std::mutex> serial(control);
    std::unique_lock<std::mutex> guard(lock);
    const std::uint64_t target = accepted;
    const bool delivered = WaitWhileProgressing(guard, [this, target] { return !running || settled >= target; });
    if (delivered && running)
    {
        ending = true;
        work.notify_all();
        WaitWhileProgressing(guard, [this] { return !running; });
    }
    if (!thread)
    {
        return;
    }
    // A writer still running here is stuck in its sink.
    const bool stuck = running;
    ending = true;
    std::unique_ptr<Thread> ended = std::move(thread);
    guard.unlock();
    if (stuck || !ended->Join())
    {
        ended->Terminate();
    }
    ended.reset();
    guard.lock();
    running = false;
    ending = false;
    if (stuck)
    {
        DiscardOwedUpTo(target);
    }
    if (!queue.empty())
    {
        StartThread();
    }
}

// Waits until `done`, as long as the sink takes a record at least every StallLimit; false when it
// stalled first.
template <typename Predicate>
bool Writer::WaitWhileProgressing(std::unique_lock<std::mutex>& guard, Predicate done)
{
    std::uint64_t seen = settled;
    auto deadline = std::chrono::steady_clock::now() + LogManager::StallLimit;
    while (!done())
    {
        if (progress.wait_until(guard, deadline) == std::cv_status::timeout && settled == seen)
        {
            return done();
        }
        if (settled != seen)
        {
            seen = settled;
            deadline = std::chrono::steady_clock::now() + LogManager::StallLimit;
        }
    }
    return true;
}

// Called under `lock` once the writer was terminated: the record it was writing and those still
// queued for the stuck sink up to `sequence` are counted as dropped.
void Writer::DiscardOwedUpTo(std::uint64_t sequence)
{
    if (taken > settled)
    {
        CountDrop(takenLevel);
        settled = taken;
    }
    while (!queue.empty() && queue.front().sequence <= sequence)
    {
        CountDrop(queue.front().record.Level);
        queuedBytes -= queue.front().bytes;
        settled = taken = queue.front().sequence;
        queue.pop_front();
    }
}

void Writer::SetSink(LogManager::Sink next)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        sink = std::make_shared<const LogManager::Sink>(std::move(next));
        sinkFailing = false;
    }
    Flush();
}

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
    TheWriter().SetSink(std::move(sink));
}

void LogManager::ResetSink()
{
    SetSink(WriteToStandardError);
}

void LogManager::Write(const LogRecord& record)
{
    const CancellationBlock noCancellation;
    TheWriter().Write(record);
}

void LogManager::Flush()
{
    const CancellationBlock noCancellation;
    TheWriter().Flush();
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

void LogManager::WriteLine(int descriptor, const LogRecord& record)
{
    WriteText(descriptor, FormatLine(record) + "\n");
}

void LogManager::WriteText(int descriptor, const std::string& line)
{
    std::size_t written = 0;
    while (written < line.size())
    {
        const ssize_t count = ::write(descriptor, line.data() + written, line.size() - written);
        if (count >= 0)
        {
            written += static_cast<std::size_t>(count);
        }
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
        {
            // A descriptor someone made non-blocking: wait as a blocking one would.
            pollfd ready{descriptor, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        }
        else if (errno != EINTR)
        {
            throw Qib::Exception("Cannot write log line to descriptor {0}: {1}", descriptor, std::strerror(errno));
        }
    }
}

} // namespace Qib::System::Commons::Diagnostics::Logging
