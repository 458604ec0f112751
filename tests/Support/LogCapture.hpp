// Collects the records written through the host logging while an object of it lives.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace VantrelTest
{

/// Installs a collecting sink and a log level; restores the standard sink and level 6 when destroyed.
class LogCapture
{
public:
    using LogRecord = Qib::System::Commons::Diagnostics::Logging::LogRecord;

    explicit LogCapture(int level = 8);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Every record written before the call (it flushes the log writer).
    std::vector<LogRecord> Records() const;
    std::vector<std::string> Messages() const;
    /// True when a record with exactly this message (and this level, when not 0) was written.
    bool Contains(const std::string& message, int level = 0) const;
    std::size_t Count(const std::string& message) const;
    /// Index of the first record with this message at or after `from`, or -1.
    long IndexOf(const std::string& message, std::size_t from = 0) const;
    /// Waits until a record with this message was written; false after `timeout`.
    bool WaitFor(const std::string& message, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
    bool WaitUntil(const std::function<bool(const std::vector<LogRecord>&)>& condition,
                   std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
    void Clear();

private:
    mutable std::mutex lock;
    mutable std::condition_variable written;
    std::vector<LogRecord> records;
};

} // namespace VantrelTest
