// Counts the occurrences of a text in another, e.g. of a line in a log.
#pragma once

#include <cstddef>
#include <string>

namespace VantrelTest
{

/// Occurrences of `part` in `text` that do not overlap.
inline std::size_t CountOf(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    {
        ++count;
    }
    return count;
}

} // namespace VantrelTest
