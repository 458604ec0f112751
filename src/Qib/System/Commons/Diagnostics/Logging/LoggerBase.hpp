// A named logger: level test and the five writing operations with "{0}"-style templates.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogLevel.hpp"

#include <fmt/format.h>

#include <cxxabi.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

namespace Qib::System::Commons::Diagnostics::Logging
{

/// A logger. Messages are formatted only when their level is enabled; a template that fails to
/// format is reported at error level instead. Shared objects: safe.
class QIB_EXPORT LoggerBase
{
public:
    LoggerBase() = default;
    explicit LoggerBase(const std::string& name);
    LoggerBase(const LoggerBase&) = delete;
    LoggerBase& operator=(const LoggerBase&) = delete;

    /// Names the logger; only the first call has an effect.
    void Initialize(const std::string& name);
    /// The logger's name; empty before Initialize.
    std::string GetName() const;

    static bool IsEnabled(LogLevel level);
    static bool IsEnabled(int level);

    template <typename... Args>
    void Error(const std::string& pattern, const Args&... args) const
    {
        Log(LogLevel::Error, pattern, args...);
    }
    template <typename... Args>
    void Warning(const std::string& pattern, const Args&... args) const
    {
        Log(LogLevel::Warning, pattern, args...);
    }
    template <typename... Args>
    void Info(const std::string& pattern, const Args&... args) const
    {
        Log(LogLevel::Info, pattern, args...);
    }
    template <typename... Args>
    void Debug(const std::string& pattern, const Args&... args) const
    {
        Log(LogLevel::Debug, pattern, args...);
    }
    template <typename... Args>
    void Trace(const std::string& pattern, const Args&... args) const
    {
        Log(LogLevel::Trace, pattern, args...);
    }

    // The forced unwind of a termination is caught by a reference without an object: no null check.
    template <typename... Args>
    __attribute__((no_sanitize("null"))) void Log(LogLevel level, const std::string& pattern, const Args&... args) const
    {
        if (!IsEnabled(level))
        {
            return;
        }
        try
        {
            std::string message = fmt::format(fmt::runtime(pattern), args...);
            WriteRecord(static_cast<int>(level), std::move(message), pattern, {fmt::format("{}", args)...});
        }
        catch (const abi::__forced_unwind&)
        {
            throw; // a thread being ended must keep unwinding
        }
        catch (const std::exception& exception)
        {
            WriteRecord(static_cast<int>(LogLevel::Error),
                        std::string("Exception occurs during format of log message: ") + exception.what(),
                        "Exception occurs during format of log message: {0}", {exception.what()});
        }
        catch (...)
        {
            const std::string message = "Exception occurs during format of log message: Unknown exception";
            WriteRecord(static_cast<int>(LogLevel::Error), message, message, {});
        }
    }

private:
    void WriteRecord(int level, std::string message, const std::string& pattern,
                     std::vector<std::string> arguments) const;

    mutable std::mutex nameLock;
    std::atomic<bool> named{false};
    std::string name;
};

} // namespace Qib::System::Commons::Diagnostics::Logging
