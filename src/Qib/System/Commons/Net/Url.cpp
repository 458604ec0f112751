// URL value: parsing and printing of scheme://host[:port][/path].
#include "Qib/System/Commons/Net/Url.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <cctype>

namespace Qib::System::Commons::Net
{

const Url Url::Empty;

namespace
{

bool IsSchemeText(const std::string& text)
{
    if (text.empty() || std::isalpha(static_cast<unsigned char>(text[0])) == 0)
    {
        return false;
    }
    for (const char c : text)
    {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '+' && c != '-' && c != '.')
        {
            return false;
        }
    }
    return true;
}

bool IsHostText(const std::string& text)
{
    if (text.empty())
    {
        return false;
    }
    for (const char c : text)
    {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '.' && c != '_')
        {
            return false;
        }
    }
    return true;
}

bool ParsePort(const std::string& text, unsigned int& port)
{
    if (text.empty() || text.size() > 5)
    {
        return false;
    }
    unsigned int value = 0;
    for (const char c : text)
    {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0)
        {
            return false;
        }
        value = value * 10 + static_cast<unsigned int>(c - '0');
    }
    if (value == 0 || value > 65535)
    {
        return false;
    }
    port = value;
    return true;
}

[[noreturn]] void ThrowMalformed(const String& text, const char* reason)
{
    throw InvalidFormatException("'{0}' is not a valid URL: {1}", text, reason);
}

} // namespace

Url Url::Parse(const String& text)
{
    const std::string& s = text.GetStdString();
    const std::size_t schemeEnd = s.find("://");
    if (schemeEnd == std::string::npos || !IsSchemeText(s.substr(0, schemeEnd)))
    {
        ThrowMalformed(text, "missing or invalid scheme");
    }
    const std::size_t authorityStart = schemeEnd + 3;
    const std::size_t pathStart = s.find('/', authorityStart);
    const std::string authority = s.substr(authorityStart, pathStart == std::string::npos ? std::string::npos
                                                                                        : pathStart - authorityStart);
    Url url;
    url.scheme = String(s.substr(0, schemeEnd));
    const std::size_t colon = authority.find(':');
    url.host = String(authority.substr(0, colon));
    if (!IsHostText(url.host.GetStdString()))
    {
        ThrowMalformed(text, "missing or invalid host");
    }
    if (colon != std::string::npos && !ParsePort(authority.substr(colon + 1), url.port))
    {
        ThrowMalformed(text, "invalid port");
    }
    if (pathStart != std::string::npos)
    {
        url.path = String(s.substr(pathStart));
        for (const char c : url.path.GetStdString())
        {
            if (std::isspace(static_cast<unsigned char>(c)) != 0 || std::iscntrl(static_cast<unsigned char>(c)) != 0)
            {
                ThrowMalformed(text, "invalid character in path");
            }
        }
    }
    return url;
}

String Url::ToString() const
{
    if (*this == Empty)
    {
        return String();
    }
    std::string text = scheme.GetStdString() + "://" + host.GetStdString();
    if (port != 0)
    {
        text += ":" + std::to_string(port);
    }
    return String(text + path.GetStdString());
}

} // namespace Qib::System::Commons::Net
