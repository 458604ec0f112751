// A named logger.
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <chrono>

namespace Qib::System::Commons::Diagnostics::Logging
{

LoggerBase::LoggerBase(const std::string& name)
{
    Initialize(name);
}

void LoggerBase::Initialize(const std::string& loggerName)
{
    if (named.load(std::memory_order_acquire))
    {
        return;
    }
    std::lock_guard<std::mutex> guard(nameLock);
    if (!named.load(std::memory_order_relaxed))
    {
        name = loggerName;
        named.store(true, std::memory_order_release);
    }
}

std::string LoggerBase::GetName() const
{
    return named.load(std::memory_order_acquire) ? name : std::string();
}

bool LoggerBase::IsEnabled(LogLevel level)
{
    return IsEnabled(static_cast<int>(level));
}

bool LoggerBase::IsEnabled(int level)
{
    const int current = LogManager::GetLevel();
    return current != 0 && level <= current;
}

void LoggerBase::WriteRecord(int level, std::string message, const std::string& pattern,
                             std::vector<std::string> arguments) const
{
    LogManager::Write(LogRecord{GetName(), level, std::move(message), std::chrono::system_clock::now(), pattern,
                                std::move(arguments)});
}

} // namespace Qib::System::Commons::Diagnostics::Logging
