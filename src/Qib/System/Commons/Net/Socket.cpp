// A UDP socket of the host. Every socket system call of the platform layer is in this file.
#include "Qib/System/Commons/Net/Socket.hpp"

#include "Qib/Exception.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Qib::System::Commons::Net
{

namespace
{

std::atomic<const Socket::ReceiveObserver*> receiveObserver{nullptr};

sockaddr_in MakeAddress(const IpAddress& address, int port)
{
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_addr.s_addr = address.GetValue();
    socketAddress.sin_port = htons(static_cast<std::uint16_t>(port));
    return socketAddress;
}

int SystemType(SocketType type)
{
    return type == SocketType::Stream ? SOCK_STREAM : SOCK_DGRAM;
}

} // namespace

Socket::Socket(SocketType type, SocketDomain, SocketBlockingMode mode) : handle(-1), mode(mode)
{
    // Both modes open a blocking descriptor: the non-blocking mode bounds its waits with a receive
    // time-out and asks each call not to wait where it must not, so that a receive that waits stays a
    // plain receive call (a cancellation point like any other).
    const int descriptor = ::socket(AF_INET, SystemType(type) | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
    {
        throw Qib::Exception("Cannot create socket: {0}", std::strerror(errno));
    }
    handle = descriptor;
    if (mode == SocketBlockingMode::NonBlocking)
    {
        const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(ReceiveTimeout).count();
        const timeval timeout{static_cast<time_t>(microseconds / 1000000),
                              static_cast<suseconds_t>(microseconds % 1000000)};
        if (::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0)
        {
            const int error = errno;
            Close();
            throw Qib::Exception("Cannot set the socket's receive time-out: {0}", std::strerror(error));
        }
    }
}

Socket::~Socket()
{
    Close();
}

SocketError Socket::Bind(const IpAddress& address, int port)
{
    const sockaddr_in socketAddress = MakeAddress(address, port);
    if (::bind(handle, reinterpret_cast<const sockaddr*>(&socketAddress), sizeof(socketAddress)) != 0)
    {
        return static_cast<SocketError>(errno);
    }
    return SocketError::Success;
}

long Socket::ReceiveFrom(void* buffer, std::size_t size, IpAddress& address, int& port, SocketError& error)
{
    sockaddr_in source{};
    socklen_t sourceLength = sizeof(source);
    const int flags = MayWait() ? 0 : MSG_DONTWAIT;
    const ssize_t received =
        ::recvfrom(handle, buffer, size, flags, reinterpret_cast<sockaddr*>(&source), &sourceLength);
    if (received < 0)
    {
        error = static_cast<SocketError>(errno);
        return -1;
    }
    error = SocketError::Success;
    waitsFrom = (std::chrono::steady_clock::now() + QuietBeforeWaiting).time_since_epoch().count();
    address = IpAddress(source.sin_addr.s_addr);
    port = ntohs(source.sin_port);
    if (const ReceiveObserver* observer = receiveObserver.load(std::memory_order_acquire))
    {
        observer->Call(observer->Context, buffer, static_cast<std::size_t>(received), address, port);
    }
    return static_cast<long>(received);
}

bool Socket::MayWait() const
{
    return mode == SocketBlockingMode::Blocking ||
           std::chrono::steady_clock::now().time_since_epoch().count() >= waitsFrom.load();
}

void Socket::SetReceiveObserver(const ReceiveObserver* observer) noexcept
{
    receiveObserver.store(observer, std::memory_order_release);
}

long Socket::SendTo(const void* data, std::size_t length, IpAddress address, int port, SocketError& error)
{
    const sockaddr_in destination = MakeAddress(address, port);
    const int flags = MSG_NOSIGNAL | (mode == SocketBlockingMode::NonBlocking ? MSG_DONTWAIT : 0);
    const ssize_t sent =
        ::sendto(handle, data, length, flags, reinterpret_cast<const sockaddr*>(&destination), sizeof(destination));
    if (sent < 0)
    {
        error = static_cast<SocketError>(errno);
        return -1;
    }
    error = SocketError::Success;
    return static_cast<long>(sent);
}

void Socket::Close()
{
    const int descriptor = handle.exchange(-1);
    if (descriptor >= 0)
    {
        ::close(descriptor);
    }
}

int Socket::GetLocalPort() const
{
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    if (::getsockname(handle, reinterpret_cast<sockaddr*>(&local), &length) != 0)
    {
        return 0;
    }
    return ntohs(local.sin_port);
}

} // namespace Qib::System::Commons::Net
