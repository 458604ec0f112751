// Confines the daemon's view of the file system to its home folders before any thread starts.
#pragma once

#include "Config.hpp"

#include <string>
#include <vector>

namespace VantrelNetd
{

/// A private mount namespace whose root is an empty, read-only tmpfs that holds only the folders
/// of a plan, bind-mounted at their own paths, so that log lines and configs keep their paths and
/// nothing else exists for the process: a request name, however crafted, reaches nothing outside
/// them. Process-wide; main thread only, while it is the only thread.
class Confinement
{
public:
    struct Plan
    {
        /// Absolute folders visible inside, at their own paths.
        std::vector<std::string> Folders;
        /// Whether the folders are mounted read-write (uploads on) or read-only.
        bool Writable = false;
        /// Other files or folders kept at their own paths when they exist (sockets, kernel tables).
        std::vector<std::string> KeptPaths;
    };

    /// The plan for a config: its TFTP homes, writable when uploads are on, plus `keptPaths`.
    static Plan For(const Config& config, const std::vector<std::string>& keptPaths);

    /// What a packaging helper needs later and the library reads: the systemd notification socket
    /// (when $NOTIFY_SOCKET is a path), the journal socket and the kernel ARP table.
    static std::vector<std::string> DefaultKeptPaths();

    /// Builds the confined view. Returns an empty text when confined, or why the process cannot
    /// confine (no privilege, no mount namespaces); nothing has changed then. Throws DaemonExit
    /// when the process has more than one thread or the view fails half-way.
    static std::string Enter(const Plan& plan);

    /// True once Enter succeeded.
    static bool IsActive();

    /// Why `next` cannot be served inside the view built for the active plan (a home folder added
    /// or removed, uploads turned on over read-only folders); empty when it can, or when not confined.
    static std::string RefuseChange(const Plan& next);
};

} // namespace VantrelNetd
