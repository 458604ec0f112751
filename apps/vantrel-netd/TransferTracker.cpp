// Knows the TFTP transfers in progress, from the TFTP server's log records.
#include "TransferTracker.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/TypeName.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogRecord;

// The TFTP server's records that start or end a transfer, and which argument holds the client's
// address (its port is the next one); NoClient where the record does not name the client.
struct Recognised
{
    const char* pattern;
    TransferTracker::Kind kind;
    std::size_t clientArgument;
};

constexpr std::size_t NoClient = static_cast<std::size_t>(-1);

using Kind = TransferTracker::Kind;

const std::array<Recognised, 10> recognised{{
    {"Create session: address={0}:{1}", Kind::SessionCreated, 0},
    {"Client {0}:{1} read request `{2}` -> `{3}`", Kind::ReadRequest, 0},
    // The library's line for a write request (it says "read"); its arguments hold the local path.
    {"Client {0}:{1} read request `{2}` -> ``", Kind::WriteRequest, 0},
    {"Sent last packet of {0} to {1}:{2}", Kind::Ended, 1},
    {"Received last packet of {0} from {1}:{2}", Kind::Ended, 1},
    {"Session {0}:{1} timed out\n", Kind::Ended, 0},
    {"Client {0}:{1} has transmitted an unexpected block number: {2}", Kind::Ended, 0},
    {"Client {0}:{1} attempt to write {2}. Write is disabled.", Kind::Ended, 0},
    {"Client {0}:{1} attempt to write {2}. Overwrite is disabled.", Kind::Ended, 0},
    {"Failed to open file for writing: {0}", Kind::PartFileFailed, NoClient},
}};

const std::string& TftpLoggerName()
{
    static const std::string name = Qib::TypeName<VantrelBase::Net::Tftp::TftpServer>().GetStdString();
    return name;
}

} // namespace

TransferTracker::TransferTracker() : worker([this] { Work(); })
{
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
    if (record.LoggerName != TftpLoggerName())
    {
        return;
    }
    for (const Recognised& entry : recognised)
    {
        if (record.Template == entry.pattern)
        {
            const std::size_t needed = entry.clientArgument == NoClient ? 1 : entry.clientArgument + 2;
            if (record.Arguments.size() < needed)
            {
                return;
            }
            {
                std::lock_guard<std::mutex> guard(queueLock);
                events.push_back(Event{entry.kind, entry.clientArgument, record.Arguments});
                ++queuedCount;
            }
            queued.notify_one();
            return;
        }
    }
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

std::vector<TransferTracker::Transfer> TransferTracker::TakeAll()
{
    std::vector<Transfer> running = InProgress();
    std::lock_guard<std::mutex> guard(stateLock);
    transfers.clear();
    return running;
}

void TransferTracker::Work()
{
    std::unique_lock<std::mutex> guard(queueLock);
    while (!stopping)
    {
        if (events.empty())
        {
            queued.wait(guard);
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
        StartDownload(client, arguments);
        return;
    case Kind::WriteRequest:
    {
        std::lock_guard<std::mutex> guard(stateLock);
        transfers[client] = Transfer{client, true, arguments[2], arguments.size() > 3 ? arguments[3] : ""};
        return;
    }
    case Kind::PartFileFailed:
    {
        std::lock_guard<std::mutex> guard(stateLock);
        for (auto it = transfers.begin(); it != transfers.end(); ++it)
        {
            if (it->second.Upload && it->second.LocalPath + ".part" == arguments[0])
            {
                transfers.erase(it);
                return;
            }
        }
        return;
    }
    case Kind::SessionCreated: // a new session of that client means its earlier one is gone
    case Kind::Ended:
    {
        std::lock_guard<std::mutex> guard(stateLock);
        transfers.erase(client);
        return;
    }
    }
}

void TransferTracker::StartDownload(const std::string& client, const std::vector<std::string>& arguments)
{
    const Transfer transfer{client, false, arguments[2], arguments.size() > 3 ? arguments[3] : ""};
    struct stat status
    {
    };
    // A request the server refuses without a line (reads off, no such file, unreadable) starts nothing.
    const bool served = ::stat(transfer.LocalPath.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                        ::access(transfer.LocalPath.c_str(), R_OK) == 0;
    {
        std::lock_guard<std::mutex> guard(stateLock);
        if (!served || !readEnabled)
        {
            transfers.erase(client);
            return;
        }
        transfers[client] = transfer;
    }
    WarnWhenTooLarge(transfer, static_cast<std::uint64_t>(status.st_size));
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
