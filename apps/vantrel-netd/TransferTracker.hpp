// Knows the TFTP transfers in progress, from the TFTP server's log records.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace VantrelNetd
{

/// Follows the TFTP server's records (recognised by logger and template) to know which transfers
/// run. Observe is called on the server and pool threads, some of them inside a transfer's lock: it
/// only queues the record, and a thread of the tracker's own does the rest. That thread also writes
/// one error line for each download of a file too large for TFTP. Shared objects: safe.
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

    /// Queues a TFTP server record; returns at once and ignores every other record.
    void Observe(const Qib::System::Commons::Diagnostics::Logging::LogRecord& record);
    /// Whether the running TFTP server serves downloads: without, a read request is refused unlogged.
    void SetReadEnabled(bool enabled);
    /// Waits until every record written before the call (still in the log's queue, or in this one's)
    /// has been looked at.
    void Settle();
    /// The transfers in progress, by client.
    std::vector<Transfer> InProgress() const;
    /// The transfers in progress, forgotten: the server they ran in is gone.
    std::vector<Transfer> TakeAll();

    /// What a recognised record means for the transfer of its client.
    enum class Kind
    {
        SessionCreated,
        ReadRequest,
        WriteRequest,
        Ended,
        PartFileFailed,
    };

private:
    struct Event
    {
        Kind kind;
        std::size_t clientArgument;
        std::vector<std::string> arguments;
    };

    void Work();
    void Handle(const Event& event);
    void StartDownload(const std::string& client, const std::vector<std::string>& arguments);
    void WarnWhenTooLarge(const Transfer& transfer, std::uint64_t size) const;

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

    std::thread worker;
};

} // namespace VantrelNetd
