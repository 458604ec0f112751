// Directory operations: existence and creation.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Commons::Io
{

/// Directory operations. Failures throw Qib::Exception naming the path and the system's reason.
class QIB_EXPORT Directory
{
public:
    static bool Exists(const String& path);
    /// Creates the directory; with `createParents` missing parents too. An existing directory is fine.
    /// A path of PATH_MAX (4096) bytes or more is refused, so one call creates at most 2047 levels,
    /// each with one mkdir and one open relative to its parent, on a constant stack.
    static void Create(const String& path, bool createParents);
};

} // namespace Qib::System::Commons::Io
