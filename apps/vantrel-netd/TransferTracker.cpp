// Knows the TFTP transfers in progress and the BOOTP devices, from the servers' log records, and
// tells the journal how each transfer ended.
#include "TransferTracker.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/TypeName.hpp"
#include "VantrelBase/Net/Bootp/BootpServer.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogRecord;

// The servers' records the tracker follows, and which argument holds the TFTP client's address (its
// port is the next one); NoClient where the record does not name the client.
struct Recognised
{
    bool bootp;
    const char* pattern;
    TransferTracker::Kind kind;
    std::size_t clientArgument;
};

constexpr std::size_t NoClient = static_cast<std::size_t>(-1);
// How many clients the tables of modes and acknowledgements keep at most.
constexpr std::size_t PeerLimit = 4096;

using Kind = TransferTracker::Kind;
using Outcome = Journal::Outcome;

const std::array<Recognised, 11> recognised{{
    {false, "Create session: address={0}:{1}", Kind::SessionCreated, 0},
    {false, "Client {0}:{1} read request `{2}` -> `{3}`", Kind::ReadRequest, 0},
    // The library's line for a write request (it says "read"); its arguments hold the local path.
    {false, "Client {0}:{1} read request `{2}` -> ``", Kind::WriteRequest, 0},
    {false, "Sent last packet of {0} to {1}:{2}", Kind::Downloaded, 1},
    {false, "Received last packet of {0} from {1}:{2}", Kind::Uploaded, 1},
    {false, "Session {0}:{1} timed out\n", Kind::TimedOut, 0},
    {false, "Client {0}:{1} has transmitted an unexpected block number: {2}", Kind::UnexpectedBlock, 0},
    {false, "Client {0}:{1} attempt to write {2}. Write is disabled.", Kind::WriteDisabled, 0},
    {false, "Client {0}:{1} attempt to write {2}. Overwrite is disabled.", Kind::OverwriteDisabled, 0},
    {false, "Failed to open file for writing: {0}", Kind::PartFileFailed, NoClient},
    {true, "No IP configuration for hardware {0}. Do not respond.", Kind::DeviceWithoutConfiguration, NoClient},
}};

const std::string& TftpLoggerName()
{
    static const std::string name = Qib::TypeName<VantrelBase::Net::Tftp::TftpServer>().GetStdString();
    return name;
}

const std::string& BootpLoggerName()
{
    static const std::string name = Qib::TypeName<VantrelBase::Net::Bootp::BootpServer>().GetStdString();
    return name;
}

std::int64_t ModifiedNanoseconds(const struct stat& status)
{
    return static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000LL + status.st_mtim.tv_nsec;
}

// The size of a file, or nothing when it is not there.
std::optional<std::uint64_t> SizeOf(const std::string& path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
    {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_size);
}

// What an upload has written so far: its ".part" while it runs, the file once the server moved it.
std::optional<std::uint64_t> UploadedBytes(const std::string& localPath)
{
    const auto part = SizeOf(localPath + ".part");
    return part ? part : SizeOf(localPath);
}

// The key of a client in the acknowledgement table: its address (as the host holds it) and port.
std::uint64_t PeerKey(std::uint32_t address, int port)
{
    return (static_cast<std::uint64_t>(address) << 16) | static_cast<std::uint16_t>(port);
}

std::uint64_t PeerKey(const std::string& client)
{
    const std::size_t colon = client.rfind(':');
    in_addr address{};
    if (colon == std::string::npos || ::inet_pton(AF_INET, client.substr(0, colon).c_str(), &address) != 1)
    {
        return 0;
    }
    return PeerKey(address.s_addr, std::atoi(client.c_str() + colon + 1));
}

// TFTP opcodes of the datagrams the tracker reads.
constexpr std::uint8_t ReadRequestCode = 1;
constexpr std::uint8_t WriteRequestCode = 2;
constexpr std::uint8_t AcknowledgeCode = 4;

// The mode of a request datagram (opcode, name, NUL, mode, NUL), lower case; empty when malformed.
std::string ModeOf(const std::uint8_t* data, std::size_t length)
{
    const auto* end = data + length;
    const auto* name = std::find(data + 2, end, 0);
    if (name == end)
    {
        return "";
    }
    const auto* mode = std::find(name + 1, end, 0);
    if (mode == end)
    {
        return "";
    }
    std::string text(name + 1, mode);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

} // namespace

TransferTracker::TransferTracker()
    : receiveObserver{[](void* context, const void* data, std::size_t length,
                         const Qib::System::Commons::Net::IpAddress& address,
                         int port) { static_cast<TransferTracker*>(context)->Received(data, length, address, port); },
                      this},
      worker([this] { Work(); })
{
}

void TransferTracker::Received(const void* data, std::size_t length,
                               const Qib::System::Commons::Net::IpAddress& address, int port)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    if (length < 4 || bytes[0] != 0)
    {
        return;
    }
    const std::uint64_t key = PeerKey(address.GetValue(), port);
    if (bytes[1] == AcknowledgeCode)
    {
        // Every acknowledgement passes here: one short lock, nothing else on the server's thread.
        const auto block = static_cast<std::uint16_t>((bytes[2] << 8) | bytes[3]);
        std::lock_guard<std::mutex> guard(acknowledgedLock);
        if (acknowledged.size() >= PeerLimit && acknowledged.count(key) == 0)
        {
            // Stray acknowledgements from many ports: forget them rather than grow; byte counts of
            // downloads in progress start again from their next acknowledgement.
            acknowledged.clear();
        }
        acknowledged[key] = block;
        return;
    }
    if (bytes[1] == ReadRequestCode || bytes[1] == WriteRequestCode)
    {
        {
            std::lock_guard<std::mutex> guard(acknowledgedLock);
            acknowledged[key] = 0;
        }
        const std::string text = address.ToString().GetStdString();
        Queue(Event{Kind::RequestMode, 0, {text, std::to_string(port), ModeOf(bytes, length)},
                    std::chrono::system_clock::now()});
    }
}

std::optional<std::uint64_t> TransferTracker::Acknowledged(const Transfer& transfer) const
{
    std::lock_guard<std::mutex> guard(acknowledgedLock);
    const auto found = acknowledged.find(PeerKey(transfer.Client));
    if (found == acknowledged.end())
    {
        return std::nullopt;
    }
    return std::min<std::uint64_t>(found->second * BlockSize, static_cast<std::uint64_t>(transfer.SizeAtStart));
}

std::string TransferTracker::TakeMode(const std::string& client)
{
    const auto found = requestModes.find(client);
    if (found == requestModes.end())
    {
        return "";
    }
    std::string mode = found->second;
    requestModes.erase(found);
    return mode;
}

TransferTracker::~TransferTracker()
{
    {
        std::lock_guard<std::mutex> guard(queueLock);
        stopping = true;
    }
    queued.notify_all();
    worker.join();
}

void TransferTracker::Observe(const LogRecord& record)
{
    const bool tftp = record.LoggerName == TftpLoggerName();
    if (!tftp && record.LoggerName != BootpLoggerName())
    {
        return;
    }
    for (const Recognised& entry : recognised)
    {
        if (entry.bootp != tftp && record.Template == entry.pattern)
        {
            const std::size_t needed = entry.clientArgument == NoClient ? 1 : entry.clientArgument + 2;
            if (record.Arguments.size() >= needed)
            {
                Queue(Event{entry.kind, entry.clientArgument, record.Arguments, record.Time});
            }
            return;
        }
    }
}

void TransferTracker::Assigned(const std::string& hardware, const std::string& address)
{
    Queue(Event{Kind::DeviceAssigned, NoClient, {hardware, address}, std::chrono::system_clock::now()});
}

void TransferTracker::Queue(Event event)
{
    {
        std::lock_guard<std::mutex> guard(queueLock);
        events.push_back(std::move(event));
        ++queuedCount;
    }
    queued.notify_one();
}

void TransferTracker::SetReadEnabled(bool enabled)
{
    std::lock_guard<std::mutex> guard(stateLock);
    readEnabled = enabled;
}

void TransferTracker::Settle()
{
    // Records reach Observe from the log's writer thread: those still waiting there come first.
    Qib::System::Commons::Diagnostics::Logging::LogManager::Flush();
    std::unique_lock<std::mutex> guard(queueLock);
    const std::uint64_t target = queuedCount;
    handled.wait(guard, [&] { return handledCount >= target || stopping; });
}

std::vector<TransferTracker::Transfer> TransferTracker::InProgress() const
{
    std::lock_guard<std::mutex> guard(stateLock);
    std::vector<Transfer> running;
    for (const auto& entry : transfers)
    {
        running.push_back(entry.second);
    }
    return running;
}

nlohmann::json TransferTracker::InProgressJson() const
{
    nlohmann::json list = nlohmann::json::array();
    const auto now = std::chrono::system_clock::now();
    for (const Transfer& transfer : InProgress())
    {
        // Summarised as unfinished: a running download's bytes are those acknowledged so far, not the file's size.
        nlohmann::json entry = Journal::ToJson(Summarise(transfer, Outcome::Cut, now));
        entry.erase("outcome");
        entry.erase("text");
        entry.erase("time");
        entry["event"] = "running";
        list.push_back(std::move(entry));
    }
    return list;
}

void TransferTracker::CutAll(const std::string& cause)
{
    const auto now = std::chrono::system_clock::now();
    std::map<std::string, Transfer> cut;
    {
        std::lock_guard<std::mutex> guard(stateLock);
        cut.swap(transfers);
    }
    for (const auto& entry : cut)
    {
        Journal::TransferEnd summary = Summarise(entry.second, Outcome::Cut, now);
        summary.Detail = cause;
        journal.TransferEnded(summary);
    }
}

void TransferTracker::Work()
{
    std::unique_lock<std::mutex> guard(queueLock);
    while (!stopping)
    {
        if (events.empty())
        {
            // Wakes at least once a second to write the counts of collapsed lines.
            queued.wait_for(guard, std::chrono::seconds(1));
            guard.unlock();
            journal.Tick();
            guard.lock();
            continue;
        }
        std::deque<Event> batch;
        batch.swap(events);
        guard.unlock();
        for (const Event& event : batch)
        {
            Handle(event);
        }
        guard.lock();
        handledCount += batch.size();
        handled.notify_all();
    }
    handled.notify_all();
}

void TransferTracker::Handle(const Event& event)
{
    const std::vector<std::string>& arguments = event.arguments;
    const std::string client = event.clientArgument == NoClient
                                   ? std::string()
                                   : arguments[event.clientArgument] + ":" + arguments[event.clientArgument + 1];
    switch (event.kind)
    {
    case Kind::ReadRequest:
        StartDownload(client, event);
        return;
    case Kind::WriteRequest:
        StartUpload(client, event);
        return;
    case Kind::PartFileFailed:
        for (const Transfer& transfer : InProgress())
        {
            if (transfer.Upload && transfer.LocalPath + ".part" == arguments[0])
            {
                End(transfer.Client, Outcome::AccessViolation, event.time);
                return;
            }
        }
        return;
    case Kind::SessionCreated:
    {
        // A new session of that client means its earlier one is gone: the final acknowledgement of a
        // download opens one that the server answers "Unexpected packet.", which is no transfer.
        std::lock_guard<std::mutex> guard(stateLock);
        transfers.erase(client);
        return;
    }
    case Kind::Downloaded:
    case Kind::Uploaded:
        End(client, Outcome::Complete, event.time);
        return;
    case Kind::TimedOut:
        End(client, Outcome::TimedOut, event.time);
        return;
    case Kind::UnexpectedBlock:
        End(client, Outcome::Failed, event.time);
        return;
    case Kind::WriteDisabled:
        End(client, Outcome::Disabled, event.time);
        return;
    case Kind::OverwriteDisabled:
        End(client, Outcome::Exists, event.time);
        return;
    case Kind::DeviceWithoutConfiguration:
        journal.DeviceSeen(arguments[0], "", event.time);
        return;
    case Kind::DeviceAssigned:
        journal.DeviceSeen(arguments[0], arguments[1], event.time);
        return;
    case Kind::RequestMode:
        // Requests the server drops without a record (clients outside the allowed range) leave theirs.
        if (requestModes.size() >= PeerLimit)
        {
            requestModes.clear();
        }
        requestModes[client] = arguments[2];
        return;
    }
}

void TransferTracker::StartDownload(const std::string& client, const Event& event)
{
    const std::vector<std::string>& arguments = event.arguments;
    Transfer transfer{client, false, arguments[2], arguments.size() > 3 ? arguments[3] : "", event.time, 0, 0, false,
                      TakeMode(client)};
    struct stat status
    {
    };
    // The server refuses these without a line; the tracker names the refusal it gave.
    const bool exists = ::stat(transfer.LocalPath.c_str(), &status) == 0;
    const int missing = exists ? 0 : errno;
    bool enabled = true;
    {
        std::lock_guard<std::mutex> guard(stateLock);
        enabled = readEnabled;
        transfers.erase(client);
    }
    if (!enabled)
    {
        Refuse(transfer, Outcome::Disabled, event.time);
        return;
    }
    if (!exists)
    {
        Refuse(transfer, missing == ENOENT || missing == ENOTDIR ? Outcome::NotFound : Outcome::AccessViolation,
               event.time);
        return;
    }
    if (!S_ISREG(status.st_mode) || ::access(transfer.LocalPath.c_str(), R_OK) != 0)
    {
        Refuse(transfer, Outcome::AccessViolation, event.time);
        return;
    }
    transfer.SizeAtStart = static_cast<std::int64_t>(status.st_size);
    transfer.ModifiedAtStart = ModifiedNanoseconds(status);
    CheckSharedPath(transfer);
    {
        std::lock_guard<std::mutex> guard(stateLock);
        transfers[client] = transfer;
    }
    WarnWhenTooLarge(transfer, static_cast<std::uint64_t>(status.st_size));
}

void TransferTracker::StartUpload(const std::string& client, const Event& event)
{
    const std::vector<std::string>& arguments = event.arguments;
    Transfer transfer{client, true, arguments[2], arguments.size() > 3 ? arguments[3] : "", event.time, 0, 0, false,
                      TakeMode(client)};
    {
        std::lock_guard<std::mutex> guard(stateLock);
        transfers.erase(client);
    }
    CheckSharedPath(transfer);
    std::lock_guard<std::mutex> guard(stateLock);
    transfers[client] = transfer;
}

void TransferTracker::Refuse(const Transfer& transfer, Outcome outcome, Journal::Time when)
{
    Journal::TransferEnd summary = Summarise(transfer, outcome, when);
    summary.Bytes.reset();
    journal.TransferEnded(summary);
}

void TransferTracker::CheckSharedPath(Transfer& transfer)
{
    std::lock_guard<std::mutex> guard(stateLock);
    for (auto& entry : transfers)
    {
        Transfer& other = entry.second;
        if (other.LocalPath != transfer.LocalPath || (!other.Upload && !transfer.Upload))
        {
            continue;
        }
        // The library lets both run: an upload's ".part" is discarded by the next write request, and a
        // download reads whatever the file holds at each block.
        other.Damaged = true;
        transfer.Damaged = true;
        journal.Damage(transfer.LocalPath, {other.Client, transfer.Client},
                       std::string(other.Upload ? "upload" : "download") + " and " +
                           (transfer.Upload ? "upload" : "download") + " of one file at once",
                       transfer.Start);
    }
}

void TransferTracker::End(const std::string& client, Outcome outcome, Journal::Time when)
{
    Transfer transfer;
    {
        std::lock_guard<std::mutex> guard(stateLock);
        const auto found = transfers.find(client);
        if (found == transfers.end())
        {
            return;
        }
        transfer = found->second;
        transfers.erase(found);
    }

    if (!transfer.Upload && outcome == Outcome::Complete)
    {
        struct stat status
        {
        };
        const bool same = ::stat(transfer.LocalPath.c_str(), &status) == 0 &&
                          static_cast<std::int64_t>(status.st_size) == transfer.SizeAtStart &&
                          ModifiedNanoseconds(status) == transfer.ModifiedAtStart;
        if (!same)
        {
            transfer.Damaged = true;
            journal.Damage(transfer.LocalPath, {transfer.Client}, "the file changed during the download", when);
        }
    }
    journal.TransferEnded(Summarise(transfer, outcome, when));
    std::lock_guard<std::mutex> guard(acknowledgedLock);
    acknowledged.erase(PeerKey(client));
}

Journal::TransferEnd TransferTracker::Summarise(const Transfer& transfer, Outcome outcome, Journal::Time when) const
{
    Journal::TransferEnd summary{transfer.Client, transfer.Upload, transfer.RequestedName, transfer.LocalPath,
                                 std::nullopt, transfer.Start, when, outcome, "", transfer.Damaged, transfer.Mode};
    if (transfer.Upload)
    {
        summary.Bytes = UploadedBytes(transfer.LocalPath);
        // The server takes a data packet shorter than a block, header included, as the last: a final
        // block of 508 to 511 bytes is not, and the upload stays as ".part" until it times out.
        const std::uint64_t tail = summary.Bytes ? *summary.Bytes % BlockSize : 0;
        if (outcome == Outcome::TimedOut && tail >= BlockSize - 4)
        {
            summary.Result = Outcome::PartKept;
            summary.Detail = std::to_string(tail);
        }
    }
    else if (outcome == Outcome::Complete)
    {
        summary.Bytes = static_cast<std::uint64_t>(transfer.SizeAtStart);
    }
    else
    {
        summary.Bytes = Acknowledged(transfer);
    }
    return summary;
}

void TransferTracker::WarnWhenTooLarge(const Transfer& transfer, std::uint64_t size) const
{
    if (size / BlockSize <= MaximumBlocks)
    {
        return;
    }
    log.Error("Client {0} requested `{1}` ({2}, {3} bytes): a file of more than {4} blocks of {5} bytes cannot be "
              "downloaded intact over TFTP; the download starts again from the beginning and never ends. Split "
              "the file",
              transfer.Client, transfer.RequestedName, transfer.LocalPath, size, MaximumBlocks, BlockSize);
}

} // namespace VantrelNetd
