// Knows the TFTP transfers in progress and the BOOTP devices, from the servers' log records, and
// tells the journal how each transfer ended.
#pragma once

#include "Journal.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace VantrelNetd
{

/// Follows the TFTP and BOOTP servers' records (recognised by logger and template) to know which
/// transfers run and how they end. Observe and Assigned are called on the server and pool threads,
/// some of them inside a transfer's lock: they only queue, and a thread of the tracker's own does the
/// rest, journal included. That thread also writes one error line for each download of a file too
/// large for TFTP. Shared objects: safe.
class TransferTracker : private Qib::System::Commons::Diagnostics::Logging::Loggable<TransferTracker>
{
public:
    struct Transfer
    {
        /// "address:port" of the client.
        std::string Client;
        bool Upload = false;
        std::string RequestedName;
        std::string LocalPath;
        Journal::Time Start;
        /// The file as the download found it, to tell when it changes under the transfer.
        std::int64_t SizeAtStart = 0;
        std::int64_t ModifiedAtStart = 0;
        bool Damaged = false;
        /// The mode the request named ("octet", "netascii"), lower case; empty when not seen.
        std::string Mode;
    };

    /// A download of a file with more than this many 512-byte blocks wraps the 16-bit block number and
    /// starts again from the beginning.
    static constexpr std::uint64_t MaximumBlocks = 65535;
    static constexpr std::uint64_t BlockSize = 512;

    /// Starts the tracker's thread. Create it once the process's final file-system view is in place.
    TransferTracker();
    /// Stops the thread; records queued and not yet looked at are dropped.
    ~TransferTracker();
    TransferTracker(const TransferTracker&) = delete;
    TransferTracker& operator=(const TransferTracker&) = delete;

    /// Queues a TFTP or BOOTP server record; returns at once and ignores every other record.
    void Observe(const Qib::System::Commons::Diagnostics::Logging::LogRecord& record);
    /// Sees a datagram the TFTP server receives (from the host socket's observer): notes the mode of a
    /// request and how far a download is acknowledged. Returns at once.
    void Received(const void* data, std::size_t length, const Qib::System::Commons::Net::IpAddress& address,
                  int port);
    /// The observer that hands the host sockets' datagrams to Received.
    const Qib::System::Commons::Net::Socket::ReceiveObserver* GetReceiveObserver() const { return &receiveObserver; }

    /// Queues a BOOTP assignment (from the server's assigned callback); returns at once.
    void Assigned(const std::string& hardware, const std::string& address);
    /// Whether the running TFTP server serves downloads: without, a read request is refused unlogged.
    void SetReadEnabled(bool enabled);
    /// Waits until every record written before the call (still in the log's queue, or in this one's)
    /// has been looked at.
    void Settle();
    /// The transfers in progress, by client.
    std::vector<Transfer> InProgress() const;
    /// Ends every transfer in progress in the journal as cut by `cause` ("the reload"): the server they
    /// ran in is gone.
    void CutAll(const std::string& cause);
    /// The transfers in progress as the status command reports them, with the bytes an upload has so far.
    nlohmann::json InProgressJson() const;

    Journal& GetJournal() { return journal; }

    /// What a recognised record means for the transfer of its client.
    enum class Kind
    {
        SessionCreated,
        ReadRequest,
        WriteRequest,
        Downloaded,
        Uploaded,
        TimedOut,
        UnexpectedBlock,
        WriteDisabled,
        OverwriteDisabled,
        PartFileFailed,
        DeviceWithoutConfiguration,
        DeviceAssigned,
        RequestMode,
    };

private:
    struct Event
    {
        Kind kind;
        std::size_t clientArgument;
        std::vector<std::string> arguments;
        Journal::Time time;
    };

    void Queue(Event event);
    void Work();
    void Handle(const Event& event);
    void StartDownload(const std::string& client, const Event& event);
    void StartUpload(const std::string& client, const Event& event);
    void Refuse(const Transfer& transfer, Journal::Outcome outcome, Journal::Time when);
    void CheckSharedPath(Transfer& transfer);
    void End(const std::string& client, Journal::Outcome outcome, Journal::Time when);
    Journal::TransferEnd Summarise(const Transfer& transfer, Journal::Outcome outcome, Journal::Time when) const;
    void WarnWhenTooLarge(const Transfer& transfer, std::uint64_t size) const;
    std::optional<std::uint64_t> Acknowledged(const Transfer& transfer) const;
    std::string TakeMode(const std::string& client);

    mutable std::mutex queueLock;
    std::condition_variable queued;
    std::condition_variable handled;
    std::deque<Event> events;
    std::uint64_t queuedCount = 0;
    std::uint64_t handledCount = 0;
    bool stopping = false;

    mutable std::mutex stateLock;
    std::map<std::string, Transfer> transfers;
    bool readEnabled = true;

    // The last block each client acknowledged, by address and port; written on the server's receive thread.
    mutable std::mutex acknowledgedLock;
    std::unordered_map<std::uint64_t, std::uint16_t> acknowledged;
    // Modes of requests seen on the socket and not yet matched with their request record (worker only).
    std::map<std::string, std::string> requestModes;
    Qib::System::Commons::Net::Socket::ReceiveObserver receiveObserver;

    Journal journal;

    std::thread worker;
};

} // namespace VantrelNetd
