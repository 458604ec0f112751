// `vantrel-netd assign` and `unassign`: change the running daemon's BOOTP table over its control socket.
#pragma once

#include "CommandLine.hpp"

#include <nlohmann/json.hpp>

namespace VantrelNetd
{

/// Runs the assign and unassign commands. Stateless.
class AssignCommand
{
public:
    /// Sends the change, prints one line about it and returns 0. Throws DaemonExit with one line: refused
    /// change (65), unreadable list (66), no daemon (69), hosts file not written (73), no permission (77).
    static int Run(const Options& options);

    /// The request for the daemon: {"command": "assign", "entries": [...], "force": ...} or "unassign".
    static nlohmann::json Request(const Options& options);
};

} // namespace VantrelNetd
