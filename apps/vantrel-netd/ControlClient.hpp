// The client side of the daemon's control socket, for commands such as `vantrel-netd status`.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace VantrelNetd
{

/// Sends one request to the control socket at a path and returns the daemon's reply. Stateless.
class ControlClient
{
public:
    /// The reply object of a request that succeeded. Throws DaemonExit with one line: 69 when no daemon
    /// listens, 77 without permission, 76 for an unreadable reply, 1 for an error the daemon reports.
    static nlohmann::json Request(const std::string& path, const nlohmann::json& request);
};

} // namespace VantrelNetd
