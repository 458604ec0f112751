// File operations: existence, deletion and moving.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::System::Commons::Io
{

/// File operations. Failures throw Qib::Exception naming the path and the system's reason.
class QIB_EXPORT File
{
public:
    /// True when `path` names an existing regular file (a symbolic link is followed). A named pipe,
    /// a socket, a device node or a directory is not a file here: opening one can block a thread for
    /// ever or read without end, so callers that serve files named by a client never reach them.
    static bool Exists(const String& path);
    static void Delete(const String& path);
    /// Moves (renames) a file. Without `overwrite` an existing destination is an error; with
    /// `createDirectory` a missing destination folder is created first.
    static void Move(const String& source, const String& destination, bool overwrite, bool createDirectory);
};

} // namespace Qib::System::Commons::Io
