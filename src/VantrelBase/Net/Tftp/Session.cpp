// The transfer state of one TFTP client.
#include "VantrelBase/Net/Tftp/Session.hpp"

#include <utility>

namespace VantrelBase::Net::Tftp
{

Session::Session(Qib::System::Commons::Net::IpAddress address, std::uint16_t port,
                 std::shared_ptr<Qib::System::Commons::Net::Socket> socket, std::uint16_t timeout)
    : address(address), port(port), timeout(timeout), socket(std::move(socket))
{
}

std::shared_ptr<Packet> Session::GetLastPacket() const
{
    std::lock_guard<std::mutex> guard(fieldLock);
    return lastPacket;
}

void Session::SetLastPacket(std::shared_ptr<Packet> packet)
{
    std::lock_guard<std::mutex> guard(fieldLock);
    lastPacket = std::move(packet);
}

std::chrono::system_clock::time_point Session::GetLastActivity() const
{
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::nanoseconds(lastActivity.load())));
}

void Session::SetLastActivity(std::chrono::system_clock::time_point time)
{
    lastActivity = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

} // namespace VantrelBase::Net::Tftp
