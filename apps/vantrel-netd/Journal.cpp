// What the daemon's user reads about transfers and devices: one line per event, JSON lines for tools,
// and the recent history the status command shows.
#include "Journal.hpp"

#include <fmt/format.h>

#include <array>
#include <ctime>

namespace VantrelNetd
{

namespace
{

struct OutcomeText
{
    Journal::Outcome outcome;
    const char* name;
    const char* words;
};

const std::array<OutcomeText, 9> outcomes{{
    {Journal::Outcome::Complete, "complete", "complete"},
    {Journal::Outcome::NotFound, "not-found", "refused: not found"},
    {Journal::Outcome::AccessViolation, "access-violation", "refused: access violation"},
    {Journal::Outcome::Exists, "exists", "refused: the file exists and overwriting is off"},
    {Journal::Outcome::Disabled, "disabled", "refused: disabled in the config"},
    {Journal::Outcome::TimedOut, "timed-out", "timed out"},
    {Journal::Outcome::PartKept, "part-kept", "kept as .part"},
    {Journal::Outcome::Cut, "cut", "cut"},
    {Journal::Outcome::Failed, "failed", "failed: the client sent an unexpected block number"},
}};

const OutcomeText& TextOf(Journal::Outcome outcome)
{
    for (const OutcomeText& entry : outcomes)
    {
        if (entry.outcome == outcome)
        {
            return entry;
        }
    }
    return outcomes.back();
}

double Seconds(Journal::Time from, Journal::Time to)
{
    return std::chrono::duration<double>(to - from).count();
}

std::string Rate(std::uint64_t bytes, double seconds)
{
    if (seconds <= 0.0)
    {
        return "";
    }
    return fmt::format(" ({:.1f} KiB/s)", static_cast<double>(bytes) / 1024.0 / seconds);
}

} // namespace

Journal::Journal()
    : collapser([this](const std::string& kind, std::uint64_t count) {
          log.Warning("... {0} more like this in the last {1} s: {2}", count, RepeatCollapser::Window.count(), kind);
          WriteEvent({{"event", "suppressed"}, {"kind", kind}, {"count", count}});
      })
{
}

void Journal::SetEventsFile(std::shared_ptr<std::FILE> stream)
{
    std::lock_guard<std::mutex> guard(lock);
    events = std::move(stream);
}

std::string Journal::UtcText(Time when)
{
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    return fmt::format("{}.{:03}Z", text.data(), milliseconds % 1000);
}

const char* Journal::OutcomeName(Outcome outcome)
{
    return TextOf(outcome).name;
}

std::string Journal::Describe(const TransferEnd& transfer)
{
    std::string outcome = TextOf(transfer.Result).words;
    if (transfer.Result == Outcome::Cut)
    {
        outcome += " by " + transfer.Detail;
    }
    else if (transfer.Result == Outcome::PartKept)
    {
        outcome = fmt::format("kept as {}.part: its last block held {} bytes, which the server does not take "
                              "as the last one (the client was told success)",
                              transfer.LocalPath, transfer.Detail);
    }
    if (transfer.Damaged)
    {
        outcome += ", damaged";
    }
    if (transfer.Mode == "netascii")
    {
        // The server moves the bytes as they are: a text client that converts line ends gets them wrong.
        outcome += transfer.Upload ? ", netascii requested and stored unconverted"
                                   : ", netascii requested and served unconverted";
    }
    std::string amount;
    const double seconds = Seconds(transfer.Start, transfer.End);
    if (transfer.Bytes)
    {
        amount = fmt::format(", {} bytes in {:.3f} s{}", *transfer.Bytes, seconds, Rate(*transfer.Bytes, seconds));
    }
    else if (transfer.Result != Outcome::NotFound && transfer.Result != Outcome::AccessViolation &&
             transfer.Result != Outcome::Exists && transfer.Result != Outcome::Disabled)
    {
        amount = fmt::format(" after {:.3f} s", seconds);
    }
    return fmt::format("tftp: {} {} `{}` ({}) {}: {}{}", transfer.Upload ? "upload" : "download", transfer.Client,
                       transfer.RequestedName, transfer.LocalPath, transfer.Mode.empty() ? "?" : transfer.Mode,
                       outcome, amount);
}

nlohmann::json Journal::ToJson(const TransferEnd& transfer)
{
    const double seconds = Seconds(transfer.Start, transfer.End);
    nlohmann::json object{
        {"event", "transfer"},
        {"time", UtcText(transfer.End)},
        {"direction", transfer.Upload ? "upload" : "download"},
        {"client", transfer.Client},
        {"name", transfer.RequestedName},
        {"path", transfer.LocalPath},
        {"bytes", nullptr},
        {"seconds", seconds},
        {"mode", transfer.Mode.empty() ? nlohmann::json(nullptr) : nlohmann::json(transfer.Mode)},
        {"outcome", OutcomeName(transfer.Result)},
        {"damaged", transfer.Damaged},
        {"text", Describe(transfer)},
    };
    if (transfer.Bytes)
    {
        object["bytes"] = *transfer.Bytes;
    }
    return object;
}

bool Journal::Admit(const std::string& kind)
{
    ++counters[kind];
    return collapser.Admit(kind, RepeatCollapser::Clock::now());
}

void Journal::WriteEvent(nlohmann::json event)
{
    if (!events)
    {
        return;
    }
    if (!event.contains("time"))
    {
        event["time"] = UtcText(std::chrono::system_clock::now());
    }
    const std::string line = event.dump() + "\n";
    std::fwrite(line.data(), 1, line.size(), events.get());
    std::fflush(events.get());
}

void Journal::TransferEnded(const TransferEnd& transfer)
{
    std::lock_guard<std::mutex> guard(lock);
    recent.push_back(transfer);
    if (recent.size() > HistoryLength)
    {
        recent.pop_front();
    }
    const std::string kind = fmt::format("tftp {} {}", transfer.Upload ? "upload" : "download",
                                         OutcomeName(transfer.Result));
    if (!Admit(kind))
    {
        return;
    }
    const std::string line = Describe(transfer);
    if (transfer.Result == Outcome::Complete && !transfer.Damaged && transfer.Mode != "netascii")
    {
        log.Info("{0}", line);
    }
    else
    {
        log.Warning("{0}", line);
    }
    WriteEvent(ToJson(transfer));
}

void Journal::DeviceSeen(const std::string& hardware, const std::string& assigned, Time when)
{
    std::lock_guard<std::mutex> guard(lock);
    auto found = devices.find(hardware);
    const bool isNew = found == devices.end();
    if (isNew && devices.size() >= DeviceLimit)
    {
        ++counters["bootp devices beyond the table"];
        return;
    }
    Device& device = devices[hardware];
    device.Hardware = hardware;
    if (isNew)
    {
        device.FirstSeen = when;
    }
    ++device.TimesSeen;
    device.LastSeen = when;
    if (!assigned.empty())
    {
        device.Assigned = assigned;
    }
    const std::string configuration = assigned.empty() ? "no configuration" : "in the table";
    if (isNew && Admit("bootp new device"))
    {
        log.Info("bootp: new device {0} ({1})", hardware, configuration);
        WriteEvent({{"event", "device"}, {"time", UtcText(when)}, {"hardware", hardware},
                    {"configured", !assigned.empty()}});
    }
    if (!assigned.empty() && Admit("bootp assignment"))
    {
        log.Info("bootp: assigned {0} to {1} (request {2} from it)", assigned, hardware, device.TimesSeen);
        WriteEvent({{"event", "assignment"}, {"time", UtcText(when)}, {"hardware", hardware}, {"address", assigned}});
    }
    if (assigned.empty())
    {
        ++counters["bootp unanswered"];
    }
}

void Journal::Damage(const std::string& path, const std::vector<std::string>& clients, const std::string& detail,
                     Time when)
{
    std::lock_guard<std::mutex> guard(lock);
    if (!Admit("tftp damage"))
    {
        return;
    }
    std::string names;
    for (const std::string& client : clients)
    {
        names += (names.empty() ? "" : " and ") + client;
    }
    log.Error("tftp: {0} damaged: {1} ({2})", path, detail, names);
    WriteEvent({{"event", "damage"}, {"time", UtcText(when)}, {"path", path}, {"clients", clients},
                {"detail", detail}});
}

void Journal::Tick()
{
    std::lock_guard<std::mutex> guard(lock);
    collapser.Expire(RepeatCollapser::Clock::now());
}

nlohmann::json Journal::Recent() const
{
    std::lock_guard<std::mutex> guard(lock);
    nlohmann::json list = nlohmann::json::array();
    for (const TransferEnd& transfer : recent)
    {
        list.push_back(ToJson(transfer));
    }
    return list;
}

nlohmann::json Journal::Devices() const
{
    std::lock_guard<std::mutex> guard(lock);
    nlohmann::json list = nlohmann::json::array();
    for (const auto& entry : devices)
    {
        const Device& device = entry.second;
        list.push_back(nlohmann::json{{"hardware", device.Hardware},
                        {"times_seen", device.TimesSeen},
                        {"first_seen", UtcText(device.FirstSeen)},
                        {"last_seen", UtcText(device.LastSeen)},
                        {"assigned",
                         device.Assigned.empty() ? nlohmann::json(nullptr) : nlohmann::json(device.Assigned)}});
    }
    return list;
}

nlohmann::json Journal::Counters() const
{
    std::lock_guard<std::mutex> guard(lock);
    return counters;
}

} // namespace VantrelNetd
