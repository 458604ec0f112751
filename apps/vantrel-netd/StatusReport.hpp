// What `vantrel-netd status` reports: built in the daemon as JSON, rendered as text by the command.
#pragma once

#include "TransferTracker.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <mutex>
#include <string>

namespace VantrelNetd
{

/// The status of the running daemon. The daemon updates the settings on start and reload (main
/// thread); Build is called on the control socket's thread. Shared objects: safe.
class StatusReport
{
public:
    explicit StatusReport(TransferTracker& tracker);

    /// The servers and settings summary, one item per line (as Config::Describe gives it).
    void SetSettings(const std::string& described);
    /// The BOOTP table as it runs: hardware, ip, name and source ("config" or "hosts file") of each entry.
    void SetAssignments(nlohmann::json table);

    /// The status as JSON: version, pid, started, uptime_seconds, settings, running (with
    /// the file's size when known), recent, devices, assignments, counters.
    nlohmann::json Build() const;

    /// The status as text for people, from a Build() result.
    static std::string Render(const nlohmann::json& status);

private:
    TransferTracker& tracker;
    std::chrono::system_clock::time_point started;
    std::chrono::steady_clock::time_point startedSteady;
    mutable std::mutex lock;
    std::string settings;
    nlohmann::json assignments = nlohmann::json::array();
};

} // namespace VantrelNetd
