// What `vantrel-netd status` reports: built in the daemon as JSON, rendered as text by the command.
#include "StatusReport.hpp"

#include <fmt/format.h>

#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

#ifndef VANTREL_NETD_VERSION
#define VANTREL_NETD_VERSION "unknown"
#endif

namespace VantrelNetd
{

namespace
{

std::string BytesText(const nlohmann::json& bytes)
{
    return bytes.is_number() ? fmt::format("{} bytes", bytes.get<std::uint64_t>()) : "bytes unknown";
}

std::string Duration(std::int64_t seconds)
{
    return fmt::format("{}d {:02}:{:02}:{:02}", seconds / 86400, seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
}

} // namespace

StatusReport::StatusReport(TransferTracker& tracker)
    : tracker(tracker), started(std::chrono::system_clock::now()), startedSteady(std::chrono::steady_clock::now())
{
}

void StatusReport::SetAssignments(nlohmann::json table)
{
    std::lock_guard<std::mutex> guard(lock);
    assignments = std::move(table);
}

void StatusReport::SetSettings(const std::string& described)
{
    std::lock_guard<std::mutex> guard(lock);
    settings = described;
}

nlohmann::json StatusReport::Build() const
{
    nlohmann::json lines = nlohmann::json::array();
    nlohmann::json table;
    {
        std::lock_guard<std::mutex> guard(lock);
        table = assignments;
        std::istringstream text(settings);
        for (std::string line; std::getline(text, line);)
        {
            lines.push_back(line);
        }
    }
    const Journal& journal = tracker.GetJournal();
    nlohmann::json running = tracker.InProgressJson();
    // The file's size, for a progress bar: a download's total, an upload's so far.
    for (nlohmann::json& transfer : running)
    {
        struct stat status{};
        const std::string path = transfer.value("path", "");
        transfer["size"] = !path.empty() && ::stat(path.c_str(), &status) == 0 ? nlohmann::json(status.st_size)
                                                                                : nlohmann::json(nullptr);
    }
    return {
        {"version", VANTREL_NETD_VERSION},
        {"pid", ::getpid()},
        {"started", Journal::UtcText(started)},
        {"uptime_seconds",
         std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - startedSteady).count()},
        {"settings", lines},
        {"running", running},
        {"recent", journal.Recent()},
        {"devices", journal.Devices()},
        {"assignments", table},
        {"counters", journal.Counters()},
    };
}

std::string StatusReport::Render(const nlohmann::json& status)
{
    std::string text = fmt::format("vantrel-netd {} (pid {}), up {}\n", status.value("version", "?"),
                                   status.value("pid", 0), Duration(status.value("uptime_seconds", 0)));
    for (const auto& line : status.value("settings", nlohmann::json::array()))
    {
        text += "  " + line.get<std::string>() + "\n";
    }
    text += fmt::format("Transfers in progress: {}\n", status["running"].size());
    for (const auto& transfer : status["running"])
    {
        text += fmt::format("  {} {} `{}` ({}): {} so far, {:.1f} s\n", transfer.value("direction", ""),
                            transfer.value("client", ""), transfer.value("name", ""), transfer.value("path", ""),
                            BytesText(transfer["bytes"]), transfer.value("seconds", 0.0));
    }
    text += fmt::format("Last finished transfers: {}\n", status["recent"].size());
    for (const auto& transfer : status["recent"])
    {
        text += fmt::format("  {} {}\n", transfer.value("time", ""), transfer.value("text", ""));
    }
    text += fmt::format("Devices seen: {}\n", status["devices"].size());
    for (const auto& device : status["devices"])
    {
        const nlohmann::json& assigned = device["assigned"];
        text += fmt::format("  {}  seen {} time(s), last {}, {}\n", device.value("hardware", ""),
                            device.value("times_seen", 0), device.value("last_seen", ""),
                            assigned.is_string() ? "assigned " + assigned.get<std::string>() : "no configuration");
    }
    text += "Counters:\n";
    for (const auto& counter : status["counters"].items())
    {
        text += fmt::format("  {}: {}\n", counter.key(), counter.value().dump());
    }
    return text;
}

} // namespace VantrelNetd
