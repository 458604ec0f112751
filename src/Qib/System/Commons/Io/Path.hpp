// Joining and splitting of file-system paths.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Commons::Io
{

/// Path text operations; nothing here touches the file system.
class QIB_EXPORT Path
{
public:
    /// Joins two pieces with one "/". A right piece that begins with "/" still lies under the left
    /// one; an empty piece gives the other piece unchanged.
    static String Combine(const String& left, const String& right);

    /// The text before the last "/": "" for a bare name, "/" for a name directly under the root.
    static String GetDirectoryName(const String& path);
};

} // namespace Qib::System::Commons::Io
