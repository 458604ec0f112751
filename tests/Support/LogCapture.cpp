// Collects the records written through the host logging.
#include "Support/LogCapture.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <algorithm>

namespace VantrelTest
{

using Qib::System::Commons::Diagnostics::Logging::LogManager;

LogCapture::LogCapture(int level)
{
    LogManager::SetLevel(level);
    LogManager::SetSink([this](const LogRecord& record) {
        {
            std::lock_guard<std::mutex> guard(lock);
            records.push_back(record);
        }
        written.notify_all();
    });
}

LogCapture::~LogCapture()
{
    LogManager::ResetSink();
    LogManager::SetLevel(6);
}

std::vector<LogCapture::LogRecord> LogCapture::Records() const
{
    // Records reach the sink on the log writer thread: everything written so far first.
    LogManager::Flush();
    std::lock_guard<std::mutex> guard(lock);
    return records;
}

std::vector<std::string> LogCapture::Messages() const
{
    std::vector<std::string> messages;
    for (const LogRecord& record : Records())
    {
        messages.push_back(record.Message);
    }
    return messages;
}

bool LogCapture::Contains(const std::string& message, int level) const
{
    const auto all = Records();
    return std::any_of(all.begin(), all.end(), [&](const LogRecord& record) {
        return record.Message == message && (level == 0 || record.Level == level);
    });
}

std::size_t LogCapture::Count(const std::string& message) const
{
    const auto all = Records();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [&](const LogRecord& record) { return record.Message == message; }));
}

long LogCapture::IndexOf(const std::string& message, std::size_t from) const
{
    const auto all = Records();
    for (std::size_t i = from; i < all.size(); ++i)
    {
        if (all[i].Message == message)
        {
            return static_cast<long>(i);
        }
    }
    return -1;
}

bool LogCapture::WaitFor(const std::string& message, std::chrono::milliseconds timeout) const
{
    return WaitUntil(
        [&](const std::vector<LogRecord>& all) {
            return std::any_of(all.begin(), all.end(), [&](const LogRecord& r) { return r.Message == message; });
        },
        timeout);
}

bool LogCapture::WaitUntil(const std::function<bool(const std::vector<LogRecord>&)>& condition,
                           std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> guard(lock);
    return written.wait_for(guard, timeout, [&] { return condition(records); });
}

void LogCapture::Clear()
{
    std::lock_guard<std::mutex> guard(lock);
    records.clear();
}

} // namespace VantrelTest
