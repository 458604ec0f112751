// URL value of the form scheme://host[:port][/path].
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Commons::Net
{

/// A parsed URL. `Empty` is the URL with no parts.
class QIB_EXPORT Url
{
public:
    static const Url Empty;

    Url() = default;

    /// Parses "scheme://host[:port][/path]"; throws InvalidFormatException on malformed text.
    static Url Parse(const String& text);

    const String& GetScheme() const noexcept { return scheme; }
    const String& GetHost() const noexcept { return host; }
    /// The port, or 0 when the URL names none.
    unsigned int GetPort() const noexcept { return port; }
    const String& GetPath() const noexcept { return path; }
    String ToString() const;

    friend bool operator==(const Url& a, const Url& b)
    {
        return a.scheme == b.scheme && a.host == b.host && a.port == b.port && a.path == b.path;
    }
    friend bool operator!=(const Url& a, const Url& b) { return !(a == b); }

private:
    String scheme;
    String host;
    unsigned int port = 0;
    String path;
};

} // namespace Qib::System::Commons::Net
