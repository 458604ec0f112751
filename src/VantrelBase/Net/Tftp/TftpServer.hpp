// TFTP server on UDP port 69: downloads from and uploads into the configured home directories.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "VantrelBase/Net/NetExport.hpp"
#include "VantrelBase/Net/ServerBase.hpp"
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/Packet.hpp"
#include "VantrelBase/Net/Tftp/Session.hpp"

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace VantrelBase::Net::Tftp
{

/// A TFTP server (block size 512, no options) on one socket bound to UDP port 69; every reply goes
/// out from that port. The main thread receives, filters clients by the allowed ranges and ages the
/// sessions; pool threads handle the packets. Failures are reported to clients as ERROR packets and
/// in the log; nothing is thrown out of the server's threads. Start and Stop are for one controlling
/// thread at a time; the destructor stops the server and its pool (a packet being handled gets the join limit).
class VANTRELBASE_NET_EXPORT TftpServer : public ServerBase,
                                          private Qib::System::Commons::Diagnostics::Logging::Loggable<TftpServer>
{
public:
    /// The UDP port the server binds.
    static constexpr int Port = 69;

    /// Copies the settings; a timeout of 0 becomes 10 s, one above 255 becomes 255 s.
    explicit TftpServer(const Configuration::TftpServerSettings& settings);
    ~TftpServer() override;
    TftpServer(const TftpServer&) = delete;
    TftpServer& operator=(const TftpServer&) = delete;

protected:
    /// Opens the socket and binds it to port 69; a failed bind is logged and leaves the server
    /// running without a usable socket.
    void StartUp() override;
    /// Closes and releases the socket; the sessions stay.
    void ShutDown() override;
    /// One pass: one receive step, then the ageing of the sessions. The receive waits up to the
    /// socket's receive time-out when nothing comes, so an idle server sleeps, and a session expires
    /// at most that time-out after its own.
    void MainThreadWorker() override;

    /// Receives at most one datagram and queues it for the pool, when its sender is allowed.
    void Receive(std::shared_ptr<Qib::System::Commons::Net::Socket> socket);
    /// Handles one datagram of a client: finds or creates its session and sends the reply.
    void ProcessRequest(std::shared_ptr<Packet> packet, Qib::System::Commons::Net::IpAddress address, int port);
    /// Sends a packet to the session's client; an empty pointer sends nothing.
    void Send(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session);
    /// One step of a download; the reply, or empty when nothing is to be sent.
    std::shared_ptr<Packet> HandleReadRequest(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session);
    /// One step of an upload; always a reply.
    std::shared_ptr<Packet> HandleWriteRequest(std::shared_ptr<Packet> packet, std::shared_ptr<Session> session);
    /// Maps the path of a request to a local path through the home paths and their aliases.
    std::string GetAbsoluteFilepath(const std::string& path);

    /// The settings as the server took them.
    std::uint16_t GetTimeout() const { return timeout; }
    std::uint16_t GetMaxRetries() const { return maxRetries; }

private:
    using Loggable<TftpServer>::log;

    bool IsAllowed(const Qib::System::Commons::Net::IpAddress& address) const;
    void AgeSessions();
    std::shared_ptr<Session> FindOrCreateSession(const Qib::System::Commons::Net::IpAddress& address, int port);

    std::vector<Configuration::TftpServerSettings::AddressRange> allowedClients;
    std::vector<Configuration::HomePathSetting> homePaths;
    bool readEnabled;
    bool writeEnabled;
    bool overwriteEnabled;
    std::uint16_t timeout;
    std::uint16_t maxRetries;
    bool verbose;
    /// Guarded by sessionsLock.
    std::shared_ptr<Qib::System::Commons::Net::Socket> socket;
    /// Used by the main thread only.
    std::array<unsigned char, 65528> receiveBuffer{};
    /// Guarded by sessionsLock.
    std::list<std::shared_ptr<Session>> sessions;
    mutable std::mutex sessionsLock;
};

} // namespace VantrelBase::Net::Tftp
