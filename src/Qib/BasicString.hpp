// The host's text value type: a thin wrapper over std::string with positional formatting.
#pragma once

#include "Qib/QibExport.hpp"

#include <fmt/format.h>

#include <ostream>
#include <string>

namespace Qib
{

/// Text value of the host framework. Distinct objects: safe. Shared objects: unsafe.
class QIB_EXPORT BasicString
{
public:
    static const BasicString Empty;

    BasicString() = default;
    BasicString(const char* text) : value(text == nullptr ? "" : text) {}
    BasicString(std::string text) : value(std::move(text)) {}

    const char* CStr() const noexcept { return value.c_str(); }
    const std::string& GetStdString() const noexcept { return value; }
    std::string& GetStdString() noexcept { return value; }
    std::size_t Length() const noexcept { return value.size(); }
    bool IsEmpty() const noexcept { return value.empty(); }

    /// Formats a "{0}"-style template; throws fmt::format_error on a bad template.
    template <typename... Args>
    static BasicString Format(const BasicString& pattern, const Args&... args)
    {
        return BasicString(fmt::format(fmt::runtime(pattern.value), args...));
    }

    friend bool operator==(const BasicString& a, const BasicString& b) { return a.value == b.value; }
    friend bool operator!=(const BasicString& a, const BasicString& b) { return a.value != b.value; }
    friend bool operator<(const BasicString& a, const BasicString& b) { return a.value < b.value; }
    friend std::ostream& operator<<(std::ostream& os, const BasicString& s) { return os << s.value; }

private:
    std::string value;
};

using String = BasicString;

} // namespace Qib

template <>
struct fmt::formatter<Qib::BasicString> : fmt::formatter<fmt::string_view>
{
    template <typename FormatContext>
    auto format(const Qib::BasicString& s, FormatContext& ctx) const
    {
        return fmt::formatter<fmt::string_view>::format(fmt::string_view(s.GetStdString()), ctx);
    }
};
