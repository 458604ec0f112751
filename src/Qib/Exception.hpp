// The host's base exception, built from a "{0}" template and arguments.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

#include <exception>
#include <string>

namespace Qib
{

/// Exception with a formatted message. A template that cannot be formatted is kept as it stands.
class QIB_EXPORT Exception : public std::exception
{
public:
    explicit Exception(const std::string& message);

    template <typename Arg, typename... Args>
    Exception(const std::string& pattern, const Arg& arg, const Args&... args)
        : Exception(FormatMessage(pattern, arg, args...))
    {
    }

    ~Exception() override;

    const std::string& GetMessage() const noexcept { return message; }
    const char* what() const noexcept override { return message.c_str(); }

private:
    template <typename... Args>
    static std::string FormatMessage(const std::string& pattern, const Args&... args)
    {
        try
        {
            return fmt::format(fmt::runtime(pattern), args...);
        }
        catch (const fmt::format_error&)
        {
            return pattern;
        }
    }

    std::string message;
};

} // namespace Qib
