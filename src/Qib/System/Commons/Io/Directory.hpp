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
    static void Create(const String& path, bool createParents);
};

} // namespace Qib::System::Commons::Io
