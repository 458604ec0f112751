// TFTP server: socket, client filter, sessions and their ageing, read and write transfers.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Io/Directory.hpp"
#include "Qib/System/Commons/Io/File.hpp"
#include "Qib/System/Commons/Io/Path.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <boost/algorithm/string/replace.hpp>

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <utility>

namespace VantrelBase::Net::Tftp
{

using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Io::Directory;
using Qib::System::Commons::Io::File;
using Qib::System::Commons::Io::Path;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Socket;
using Qib::System::Commons::Net::SocketBlockingMode;
using Qib::System::Commons::Net::SocketDomain;
using Qib::System::Commons::Net::SocketError;
using Qib::System::Commons::Net::SocketType;
using Qib::System::Commons::Threading::Thread;

namespace
{

constexpr std::uint16_t DefaultTimeout = 10;
constexpr std::uint16_t MaximumTimeout = 255;
// One byte of the receive buffer stays unused.
constexpr std::size_t ReceiveLimit = 65527;

// Holds off the termination of the calling thread while it changes shared state; a request to end
// it takes effect at its next cancellation point afterwards. Only the server's main thread is ever
// terminated.
class CancellationHold
{
public:
    CancellationHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    ~CancellationHold() { pthread_setcancelstate(previous, nullptr); }
    CancellationHold(const CancellationHold&) = delete;
    CancellationHold& operator=(const CancellationHold&) = delete;

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

// Text from the network goes into log lines with its control characters replaced.
std::string Printable(const std::string& text)
{
    std::string clean(text);
    std::replace_if(
        clean.begin(), clean.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) == 0x7F; }, '?');
    return clean;
}

unsigned OpCodeNumber(const Packet& packet)
{
    return static_cast<unsigned>(packet.GetOpCode());
}

} // namespace

TftpServer::TftpServer(const Configuration::TftpServerSettings& settings)
    : ServerBase("TftpServer", static_cast<unsigned long>(settings.ThreadCount), 0, 0, 0),
      allowedClients(settings.AllowedClients),
      homePaths(settings.HomePaths),
      readEnabled(settings.ReadEnabled),
      writeEnabled(settings.WriteEnabled),
      overwriteEnabled(settings.OverwriteEnabled),
      timeout(settings.Timeout == 0 ? DefaultTimeout : std::min(settings.Timeout, MaximumTimeout)),
      maxRetries(settings.MaxRetries),
      verbose(settings.Verbose)
{
}

TftpServer::~TftpServer()
{
    Stop();
    // Before any member goes: no work item runs after this, and one stuck in a system call is
    // terminated once the join limit has passed.
    threadPool.Shutdown();
}

void TftpServer::StartUp()
{
    const CancellationHold hold;
    log.Info("Starting server, threadpool={0}", threadPool.GetThreadCount());
    auto created = std::make_shared<Socket>(SocketType::Datagram, SocketDomain::Ipv4, SocketBlockingMode::NonBlocking);
    bool restarted = false;
    std::list<std::shared_ptr<Session>> stale;
    {
        std::lock_guard<std::mutex> guard(sessionsLock);
        restarted = socket != nullptr;
        socket = created;
        // Sessions of an earlier run (a stop ends in termination, so ShutDown did not run) hold the
        // earlier socket and with it port 69; dropped, they let it close once no send uses it.
        stale.swap(sessions);
    }
    stale.clear();
    SocketError error = created->Bind(IpAddress(), Port);
    // A packet of the earlier run still being handled keeps the earlier socket for a moment.
    for (int attempt = 0; restarted && error == static_cast<SocketError>(EADDRINUSE) && attempt < 200; ++attempt)
    {
        Thread::Sleep(1);
        error = created->Bind(IpAddress(), Port);
    }
    if (error != SocketError::Success)
    {
        log.Error("Failed to bind socket {0}", static_cast<int>(error));
    }
}

void TftpServer::ShutDown()
{
    const CancellationHold hold;
    std::lock_guard<std::mutex> guard(sessionsLock);
    if (socket)
    {
        socket->Close();
        socket.reset();
    }
}

void TftpServer::MainThreadWorker()
{
    std::shared_ptr<Socket> current;
    {
        std::lock_guard<std::mutex> guard(sessionsLock);
        current = socket;
    }
    if (!current)
    {
        return;
    }
    Receive(current);
    AgeSessions();
    Thread::Sleep(1);
}

void TftpServer::AgeSessions()
{
    const CancellationHold hold;
    std::lock_guard<std::mutex> guard(sessionsLock);
    const auto now = std::chrono::system_clock::now();
    for (auto it = sessions.begin(); it != sessions.end();)
    {
        const std::shared_ptr<Session> session = *it;
        if (session->GetStatus() == SessionStatus::Idle)
        {
            it = sessions.erase(it);
            continue;
        }
        // Read before the time, which Send sets before the count.
        const std::uint16_t sent = session->sendCount.load();
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::nanoseconds>(now - session->GetLastActivity()).count() /
            1000000000LL;
        if (session->timeout == 0 || elapsed < session->timeout)
        {
            ++it;
            continue;
        }
        if (sent <= maxRetries)
        {
            // Re-sends only a client's error packet; during ordinary transfers there is nothing to
            // re-send and the session is looked at again on every pass. Deliberate.
            Send(session->GetLastPacket(), session);
            ++it;
            continue;
        }
        log.Info("Session {0}:{1} timed out\n", session->address.ToString(), session->port);
        const auto timedOut = Packet::CreateError(ErrorCode::NotDefined, "Timeout.");
        it = sessions.erase(it);
        Send(timedOut, session);
    }
}

void TftpServer::Receive(std::shared_ptr<Socket> socket)
{
    IpAddress address;
    int port = 0;
    SocketError error = SocketError::Success;
    const long received = socket->ReceiveFrom(receiveBuffer.data(), ReceiveLimit, address, port, error);
    if (received < 0)
    {
        return;
    }
    const CancellationHold hold;
    if (!IsAllowed(address))
    {
        log.Info("Client {0}:{1} tried to get access but is not within the allowed range.", address.ToString(), port);
        return;
    }
    auto packet = Packet::Create(receiveBuffer.data(), static_cast<std::size_t>(received));
    threadPool.QueueUserWorkItem([this, packet, address, port] { ProcessRequest(packet, address, port); });
}

bool TftpServer::IsAllowed(const IpAddress& address) const
{
    if (allowedClients.empty())
    {
        return true;
    }
    // Compares the values as IpAddress holds them (network byte order); the order this gives is
    // deliberately the one of that representation.
    const std::uint32_t value = address.GetValue();
    return std::any_of(allowedClients.begin(), allowedClients.end(),
                       [value](const auto& range) { return range.first <= value && value <= range.second; });
}

std::shared_ptr<Session> TftpServer::FindOrCreateSession(const IpAddress& address, int port)
{
    const auto found = std::find_if(sessions.begin(), sessions.end(), [&](const std::shared_ptr<Session>& session) {
        return session->address == address && session->port == port;
    });
    if (found != sessions.end())
    {
        log.Log(verbose ? LogLevel::Info : LogLevel::Trace, "Use session: address={0}:{1}, status={2}",
                address.ToString(), port, (*found)->status.load());
        return *found;
    }
    log.Info("Create session: address={0}:{1}", address.ToString(), port);
    auto created = std::make_shared<Session>(address, static_cast<std::uint16_t>(port), socket, timeout);
    sessions.push_back(created);
    return created;
}

void TftpServer::ProcessRequest(std::shared_ptr<Packet> packet, IpAddress address, int port)
{
    std::shared_ptr<Session> session;
    SessionStatus status = SessionStatus::Idle;
    const OpCode opCode = packet->GetOpCode();
    {
        // Finding or creating the session and moving it out of idle are one step for the main
        // thread, which reaps idle sessions under the same lock.
        std::lock_guard<std::mutex> guard(sessionsLock);
        session = FindOrCreateSession(address, port);
        if (opCode == OpCode::Error)
        {
            unsigned short code = 0;
            std::string message;
            packet->Read(2, code);
            packet->Read(4, message);
            log.Error("Client {0}:{1} has sent error: code={2}, message={3}", address.ToString(), port, code,
                      Printable(message));
            // The client's error does not end the transfer: the time-out handling re-sends it.
            session->SetLastPacket(packet);
            return;
        }
        status = session->GetStatus();
        if (status == SessionStatus::Idle && opCode == OpCode::ReadRequest)
        {
            status = SessionStatus::Reading;
            session->SetStatus(status);
        }
        else if (status == SessionStatus::Idle && opCode == OpCode::WriteRequest)
        {
            status = SessionStatus::Writing;
            session->SetStatus(status);
        }
    }
    if (status == SessionStatus::Idle)
    {
        Send(Packet::CreateError(ErrorCode::IllegalOperation, "Unexpected packet."), session);
        return;
    }
    std::lock_guard<std::mutex> transfer(session->transferLock);
    std::shared_ptr<Packet> reply;
    if (status == SessionStatus::Reading)
    {
        reply = HandleReadRequest(packet, session);
    }
    else if (status == SessionStatus::Writing)
    {
        reply = HandleWriteRequest(packet, session);
    }
    Send(reply, session);
}

void TftpServer::Send(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session)
{
    if (!packet)
    {
        return;
    }
    // The time before the count: ageing reads the count first, so a session it sees as sent to
    // always shows that send's time (the other way round a new transfer could look long expired).
    session->SetLastActivity(std::chrono::system_clock::now());
    ++session->sendCount;
    log.Log(verbose ? LogLevel::Info : LogLevel::Trace, "Send packet to {0}:{1}: len={2}, opcode={3}",
            session->address.ToString(), session->port, packet->GetLength(), OpCodeNumber(*packet));
    if (!session->socket)
    {
        return;
    }
    SocketError error = SocketError::Success;
    session->socket->SendTo(packet->GetRawData(), packet->GetLength(), session->address, session->port, error);
    if (error != SocketError::Success)
    {
        log.Error("Failed to send packet to {0}:{1}: error={2}", session->address.ToString(), session->port,
                  static_cast<int>(error));
        const auto failure = Packet::CreateError(ErrorCode::NotDefined, "Failed to send packet");
        session->socket->SendTo(failure->GetRawData(), failure->GetLength(), session->address, session->port, error);
    }
}

std::shared_ptr<Packet> TftpServer::HandleReadRequest(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session)
{
    const OpCode opCode = packet->GetOpCode();
    if (opCode == OpCode::ReadRequest)
    {
        session->filepath = packet->GetFilepath();
        session->absoluteFilepath = GetAbsoluteFilepath(session->filepath);
        session->blockNumber = 0;
        log.Info("Client {0}:{1} read request `{2}` -> `{3}`", session->address.ToString(), session->port,
                 Printable(session->filepath), Printable(session->absoluteFilepath));
    }
    else if (opCode != OpCode::Acknowledge)
    {
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::IllegalOperation, "Invalid packet.");
    }
    if (!readEnabled)
    {
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::AccessViolation);
    }
    if (!File::Exists(session->absoluteFilepath))
    {
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::FileNotFound);
    }
    if (opCode == OpCode::Acknowledge)
    {
        const std::int64_t acknowledged = packet->GetBlockNumber();
        if (acknowledged < session->blockNumber)
        {
            log.Warning("Client {0}:{1} has transmitted a duplicate block number", session->address.ToString(),
                        session->port);
            return nullptr;
        }
        if (acknowledged > session->blockNumber)
        {
            log.Error("Client {0}:{1} has transmitted an unexpected block number: {2}", session->address.ToString(),
                      session->port, static_cast<std::uint64_t>(acknowledged));
            session->SetStatus(SessionStatus::Idle);
            return Packet::CreateError(ErrorCode::UnknownTransferId);
        }
    }
    // Only a request carries a mode, so acknowledgements open with "r"; both read alike here.
    const char* mode = packet->GetMode() == TransferMode::Octet ? "rb" : "r";
    char buffer[512];
    std::FILE* file = std::fopen(session->absoluteFilepath.c_str(), mode);
    if (file == nullptr)
    {
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::AccessViolation);
    }
    std::shared_ptr<Packet> reply;
    // The offset comes from the 16-bit counter: past 65535 blocks the transfer starts over. Deliberate.
    const long offset = static_cast<long>(session->blockNumber) * static_cast<long>(session->blockSize);
    if (std::fseek(file, offset, SEEK_SET) != 0)
    {
        session->SetStatus(SessionStatus::Idle);
        reply = Packet::CreateError(ErrorCode::AccessViolation);
    }
    else
    {
        const std::size_t count = std::fread(buffer, 1, session->blockSize, file);
        ++session->blockNumber;
        reply = Packet::CreateData(session->blockNumber, buffer, count);
        if (count < session->blockSize)
        {
            // Idle as soon as the last block is built, not when it is acknowledged. Deliberate.
            session->SetStatus(SessionStatus::Idle);
            log.Info("Sent last packet of {0} to {1}:{2}", Printable(session->absoluteFilepath),
                     session->address.ToString(), session->port);
        }
    }
    std::fclose(file);
    return reply;
}

std::shared_ptr<Packet> TftpServer::HandleWriteRequest(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session)
{
    const OpCode opCode = packet->GetOpCode();
    const std::string client = session->address.ToString().GetStdString();
    if (opCode == OpCode::WriteRequest)
    {
        session->filepath = packet->GetFilepath();
        session->absoluteFilepath = GetAbsoluteFilepath(session->filepath);
        session->blockNumber = 0;
        // Says "read" and leaves the mapped path out; kept exactly so. Deliberate.
        log.Info("Client {0}:{1} read request `{2}` -> ``", client, session->port, Printable(session->filepath),
                 Printable(session->absoluteFilepath));
    }
    const std::string temporary = session->absoluteFilepath + ".part";
    if (opCode != OpCode::WriteRequest && opCode != OpCode::Data)
    {
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::IllegalOperation);
    }
    if (!writeEnabled)
    {
        log.Error("Client {0}:{1} attempt to write {2}. Write is disabled.", client, session->port,
                  Printable(session->absoluteFilepath));
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::AccessViolation);
    }
    if (!overwriteEnabled && File::Exists(session->absoluteFilepath))
    {
        log.Error("Client {0}:{1} attempt to write {2}. Overwrite is disabled.", client, session->port,
                  Printable(session->absoluteFilepath));
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::FileAlreadyExists);
    }
    if (opCode == OpCode::WriteRequest)
    {
        try
        {
            const Qib::String directory = Path::GetDirectoryName(temporary);
            if (!Directory::Exists(directory))
            {
                Directory::Create(directory, true);
            }
            if (File::Exists(temporary))
            {
                // An earlier, abandoned upload is discarded.
                File::Delete(temporary);
            }
            return Packet::CreateAcknowledge(0);
        }
        catch (const Qib::Exception& exception)
        {
            // The session stays in writing; it is wound up by the time-out handling.
            log.Error("Failed to prepare for writing: {0}", Printable(exception.GetMessage()));
            return Packet::CreateError(ErrorCode::AccessViolation, exception.GetMessage());
        }
    }
    const std::int64_t expected = static_cast<std::int64_t>(session->blockNumber) + 1;
    const std::int64_t block = packet->GetBlockNumber();
    if (expected > block)
    {
        log.Warning("Client {0}:{1} has transmitted a duplicate block number", client, session->port);
        return Packet::CreateAcknowledge(session->blockNumber);
    }
    if (expected < block)
    {
        log.Error("Client {0}:{1} has transmitted an unexpected block number: {2}", client, session->port, block);
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::UnknownTransferId);
    }
    // A DATA packet has no mode, so this is always "a"; both append alike here.
    const char* mode = packet->GetMode() == TransferMode::Octet ? "ab" : "a";
    std::FILE* file = std::fopen(temporary.c_str(), mode);
    if (file == nullptr)
    {
        log.Error("Failed to open file for writing: {0}", Printable(temporary));
        session->SetStatus(SessionStatus::Idle);
        return Packet::CreateError(ErrorCode::AccessViolation);
    }
    // Unbuffered, so that a write the disk refuses is a short write here and not a lost buffer at
    // close, which would put a truncated file in place of the target.
    std::setvbuf(file, nullptr, _IONBF, 0);
    session->blockNumber = static_cast<std::uint16_t>(block);
    const auto headerLength = static_cast<std::uint64_t>(packet->GetData() - packet->GetRawData());
    const std::size_t payload = static_cast<std::size_t>(packet->GetLength() - headerLength);
    if (std::fwrite(packet->GetData(), 1, payload, file) < payload)
    {
        log.Error("Unable to write to file");
        session->SetStatus(SessionStatus::Idle);
        std::fclose(file);
        return Packet::CreateError(ErrorCode::AccessViolation);
    }
    auto reply = Packet::CreateAcknowledge(session->blockNumber);
    // The whole datagram, header included, is measured: a final block of 508 to 511 bytes is not
    // taken as last and the upload is left to the time-out. Deliberate.
    const bool last = packet->GetLength() < session->blockSize;
    std::fclose(file);
    if (last)
    {
        session->SetStatus(SessionStatus::Idle);
        log.Info("Received last packet of {0} from {1}:{2}", Printable(session->absoluteFilepath), client,
                 session->port);
        try
        {
            File::Move(temporary, session->absoluteFilepath, true, true);
        }
        catch (const Qib::Exception&)
        {
            // The result of the move is not examined: the client has its acknowledgement either way.
        }
    }
    return reply;
}

std::string TftpServer::GetAbsoluteFilepath(const std::string& path)
{
    std::string normalized(path);
    boost::algorithm::replace_all(normalized, "\\", "/");
    if (normalized.empty() || normalized.front() != '/')
    {
        normalized.insert(normalized.begin(), '/');
    }
    std::string home;
    for (const auto& entry : homePaths)
    {
        if (entry.Alias == "/")
        {
            home = entry.Path;
            continue;
        }
        // A plain textual prefix: /log also matches /logbook.txt. Deliberate.
        if (normalized.compare(0, entry.Alias.size(), entry.Alias) == 0)
        {
            return Path::Combine(entry.Path, normalized.substr(entry.Alias.size())).GetStdString();
        }
    }
    log.Trace("Alias not found, home: {0}, {1}", home, Printable(normalized));
    return Path::Combine(home, normalized).GetStdString();
}

} // namespace VantrelBase::Net::Tftp
