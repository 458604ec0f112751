// A UDP socket of the host: bind, receive-from, send-to, close.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/SocketBlockingMode.hpp"
#include "Qib/System/Commons/Net/SocketDomain.hpp"
#include "Qib/System/Commons/Net/SocketError.hpp"
#include "Qib/System/Commons/Net/SocketType.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>

namespace Qib::System::Commons::Net
{

/// A socket. No address-reuse option is set, so binding a port in use fails with the system's error.
/// Sends and receives may run on different threads; Close must not race with them.
///
/// A blocking socket's receive waits until a datagram arrives. A non-blocking socket never waits to
/// send. Its receive returns -1 (EAGAIN) at once when nothing is there while datagrams have come
/// within the last QuietBeforeWaiting, so a server that polls it keeps its pace while traffic flows
/// and on the passes right after (which reap what the last datagrams left behind). After that much
/// silence the receive waits for a datagram up to ReceiveTimeout before it returns -1, so an idle
/// server sleeps instead of polling and still gets control back to age its sessions. 250 ms keeps an
/// idle TFTP pass (this wait and two 1 ms pauses) at about 12 wake-ups a second, while a session
/// time-out, counted in whole seconds, fires at most a quarter of a second late: a shorter wait costs
/// wake-ups, a longer one coarsens the ageing.
class QIB_EXPORT Socket
{
public:
    /// The longest a non-blocking receive waits for a datagram.
    static constexpr std::chrono::milliseconds ReceiveTimeout{250};
    /// How long after the last datagram a non-blocking receive still returns at once.
    static constexpr std::chrono::milliseconds QuietBeforeWaiting{1000};

    /// Opens the socket; throws Qib::Exception with the system's reason on failure.
    Socket(SocketType type, SocketDomain domain, SocketBlockingMode mode);
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    SocketError Bind(const IpAddress& address, int port);
    /// Receives one datagram; the byte count, or -1 with `error` set (EAGAIN when nothing came in time).
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
    /// Whether a receive may wait now: always in the blocking mode, after quiet in the other.
    bool MayWait() const;

    std::atomic<int> handle;
    const SocketBlockingMode mode;
    /// Steady-clock time from which a non-blocking receive may wait.
    std::atomic<std::chrono::steady_clock::rep> waitsFrom{0};
};

} // namespace Qib::System::Commons::Net
