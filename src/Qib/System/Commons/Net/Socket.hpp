// A UDP socket of the host: bind, receive-from, send-to, close.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/SocketBlockingMode.hpp"
#include "Qib/System/Commons/Net/SocketDomain.hpp"
#include "Qib/System/Commons/Net/SocketError.hpp"
#include "Qib/System/Commons/Net/SocketType.hpp"

#include <atomic>
#include <cstddef>

namespace Qib::System::Commons::Net
{

/// A socket. A non-blocking socket's receive never waits. No address-reuse option is set, so binding a
/// port in use fails with the system's error. Sends and receives may run on different threads;
/// Close must not race with them.
class QIB_EXPORT Socket
{
public:
    /// Opens the socket; throws Qib::Exception with the system's reason on failure.
    Socket(SocketType type, SocketDomain domain, SocketBlockingMode mode);
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    SocketError Bind(const IpAddress& address, int port);
    /// Receives one datagram; the byte count, or -1 with `error` set (EAGAIN when nothing waits).
    long ReceiveFrom(void* buffer, std::size_t size, IpAddress& address, int& port, SocketError& error);
    /// Sends one datagram; the byte count, or -1 with `error` set.
    long SendTo(const void* data, std::size_t length, IpAddress address, int port, SocketError& error);
    void Close();

    /// The system descriptor, or -1 once closed.
    int GetHandle() const noexcept { return handle.load(); }
    /// The locally bound port (0 when unbound or closed).
    int GetLocalPort() const;

    /// Sees every datagram a socket receives, on the receiving thread, before the caller does; it must
    /// return at once. The host application uses it to learn what the library does not log.
    struct ReceiveObserver
    {
        void (*Call)(void* context, const void* data, std::size_t length, const IpAddress& address, int port);
        void* Context;
    };
    /// Installs `observer` for every socket (null removes it). The observer must outlive the receives
    /// that may still be running when it is removed: remove it once the servers are stopped.
    static void SetReceiveObserver(const ReceiveObserver* observer) noexcept;

private:
    std::atomic<int> handle;
};

} // namespace Qib::System::Commons::Net
