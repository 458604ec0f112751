// Folders the daemon keeps open so that it still reaches its config and log files once confined.
#pragma once

#include <sys/types.h>

#include <string>

namespace VantrelNetd
{

/// Process-wide set of folders opened beforehand, and the one way the daemon opens its own files
/// (config, log): through a kept folder when there is one, so that the file is found also after
/// the daemon's view of the file system no longer holds it. Keep runs on the main thread before any
/// other thread starts; Open and Replace may then run on any thread.
class KeptFolders
{
public:
    /// Opens `folder` (an absolute path) and keeps it open for the rest of the process. Nothing
    /// happens when it is kept already or cannot be opened: opening a file in it then fails later,
    /// with the reason.
    static void Keep(const std::string& folder);

    /// True when `folder` is kept, or is a folder the process can see now.
    static bool IsFolder(const std::string& folder);

    /// Opens `file` (an absolute path) like open(2), through its kept folder when there is one;
    /// close-on-exec is always added. A descriptor, or -1 with errno set.
    static int Open(const std::string& file, int flags, mode_t mode = 0);

    /// Replaces `file` (an absolute path) with `text` atomically: written to a temporary file in the same
    /// folder (through the kept one when there is one), flushed to disk, then renamed over it. An empty
    /// string, or the reason it failed.
    static std::string Replace(const std::string& file, const std::string& text);
};

} // namespace VantrelNetd
