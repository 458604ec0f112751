// The transfer state of one TFTP client (address and port).
#pragma once

#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "VantrelBase/Net/NetExport.hpp"
#include "VantrelBase/Net/Tftp/Packet.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace VantrelBase::Net::Tftp
{

/// Status of a session.
enum class SessionStatus : std::uint16_t
{
    /// No transfer, or the transfer ended or failed: the server's main thread reaps the session.
    Idle = 0,
    Reading = 1,
    Writing = 2,
};

/// The state of one client's transfer, shared through std::shared_ptr by the server's main thread
/// and its pool threads. The fields the main thread ages (`status`, `sendCount`, `lastActivity`,
/// `lastPacket`) are safe to use from any thread; the transfer fields (`blockNumber`, `filepath`,
/// `absoluteFilepath`) belong to whoever holds `transferLock`.
class VANTRELBASE_NET_EXPORT Session
{
public:
    /// A new idle session: block 0, no sends, no activity yet.
    Session(Qib::System::Commons::Net::IpAddress address, std::uint16_t port,
            std::shared_ptr<Qib::System::Commons::Net::Socket> socket, std::uint16_t timeout);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// The packet the time-out handling re-sends (empty during ordinary transfers).
    std::shared_ptr<Packet> GetLastPacket() const;
    void SetLastPacket(std::shared_ptr<Packet> packet);
    /// The time of the last send; the clock's epoch before the first.
    std::chrono::system_clock::time_point GetLastActivity() const;
    void SetLastActivity(std::chrono::system_clock::time_point time);
    SessionStatus GetStatus() const { return static_cast<SessionStatus>(status.load()); }
    void SetStatus(SessionStatus value) { status = static_cast<std::uint16_t>(value); }

    const Qib::System::Commons::Net::IpAddress address;
    const std::uint16_t port;
    /// The last block sent (read) or written (write).
    std::uint16_t blockNumber = 0;
    const std::uint64_t blockSize = 512;
    std::atomic<std::uint16_t> status{0};
    /// Seconds of silence after which the main thread examines the session.
    const std::uint16_t timeout;
    /// Raised by every send on this session, never reset (wraps at 16 bits).
    std::atomic<std::uint16_t> sendCount{0};
    /// The path as the client requested it.
    std::string filepath;
    /// The mapped local path.
    std::string absoluteFilepath;
    /// The server socket through which every reply of the session goes.
    const std::shared_ptr<Qib::System::Commons::Net::Socket> socket;
    /// Held while one packet of the session is handled, so that packets of one client do not
    /// interleave inside a transfer step.
    std::mutex transferLock;

private:
    mutable std::mutex fieldLock; // guards lastPacket
    std::shared_ptr<Packet> lastPacket;
    std::atomic<std::int64_t> lastActivity{0}; // nanoseconds since the system clock's epoch
};

} // namespace VantrelBase::Net::Tftp
