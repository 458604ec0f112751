// What the daemon's user reads about transfers and devices: one line per event, JSON lines for tools,
// and the recent history the status command shows.
#pragma once

#include "RepeatCollapser.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// Writes the journal's lines through the daemon's log (repeats of one kind collapsed) and, when
/// asked, one JSON object per event to an events file; keeps the last finished transfers, the devices
/// seen and counters for the status command. Shared objects: safe.
class Journal : private Qib::System::Commons::Diagnostics::Logging::Loggable<Journal>
{
public:
    using Time = std::chrono::system_clock::time_point;

    enum class Outcome
    {
        Complete,
        NotFound,
        AccessViolation,
        Exists,
        Disabled,
        TimedOut,
        PartKept,
        Cut,
        Failed,
    };

    struct TransferEnd
    {
        std::string Client;
        bool Upload = false;
        std::string RequestedName;
        std::string LocalPath;
        /// Bytes moved, when known (a download's bytes are known only when it completes).
        std::optional<std::uint64_t> Bytes;
        Time Start;
        Time End;
        Outcome Result = Outcome::Complete;
        /// What cut it ("the reload", "the stop"), or the bytes of a ".part" upload's last block.
        std::string Detail;
        bool Damaged = false;
        /// The mode the request named, lower case; empty when unknown.
        std::string Mode;
    };

    struct Device
    {
        std::string Hardware;
        std::uint64_t TimesSeen = 0;
        Time FirstSeen;
        Time LastSeen;
        /// The address last assigned; empty while the device has none ("no configuration").
        std::string Assigned;
    };

    /// How many finished transfers the history keeps, and how many devices the table holds.
    static constexpr std::size_t HistoryLength = 50;
    static constexpr std::size_t DeviceLimit = 4096;

    Journal();

    /// Writes every later event to `stream` as well, one JSON object per line; null stops that.
    void SetEventsFile(std::shared_ptr<std::FILE> stream);

    void TransferEnded(const TransferEnd& transfer);
    /// A BOOTP request from `hardware`; `assigned` holds the address given, or is empty when the
    /// device has no configuration.
    void DeviceSeen(const std::string& hardware, const std::string& assigned, Time when);
    /// An error line: `clients` raced on `path` (or its file changed under a download), as `detail` says.
    void Damage(const std::string& path, const std::vector<std::string>& clients, const std::string& detail, Time when);
    /// Writes the counts of lines held back in windows that are over.
    void Tick();

    /// Finished transfers (oldest first), devices and counters as the status command reports them.
    nlohmann::json Recent() const;
    nlohmann::json Devices() const;
    nlohmann::json Counters() const;

    /// The journal line of a finished transfer (without time and level).
    static std::string Describe(const TransferEnd& transfer);
    /// The outcome's name in the JSON fields ("complete", "not-found", ...).
    static const char* OutcomeName(Outcome outcome);
    static nlohmann::json ToJson(const TransferEnd& transfer);
    /// "2026-11-23T12:00:00.000Z".
    static std::string UtcText(Time when);

private:
    bool Admit(const std::string& kind);
    void WriteEvent(nlohmann::json event);

    mutable std::mutex lock;
    RepeatCollapser collapser;
    std::shared_ptr<std::FILE> events;
    std::deque<TransferEnd> recent;
    std::map<std::string, Device> devices;
    std::map<std::string, std::uint64_t> counters;
};

} // namespace VantrelNetd
