// `vantrel-netd status`: asks the running daemon over its control socket and prints the answer.
#pragma once

#include "CommandLine.hpp"

namespace VantrelNetd
{

/// Runs the status command. Stateless.
class StatusCommand
{
public:
    /// Prints the status as text (or JSON with --json) to standard output and returns 0. Throws
    /// DaemonExit with one line: no daemon (69), no permission (77), bad config (78), bad answer (76).
    static int Run(const Options& options);

    /// The socket to ask: --socket, else the config's control.socket, else the default path.
    static std::string SocketPath(const Options& options);
};

} // namespace VantrelNetd
