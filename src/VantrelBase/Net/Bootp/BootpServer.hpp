// BOOTP server: answers boot requests with the IP address configured for the device's hardware address.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "VantrelBase/Net/Bootp/Configuration/BootpServerSettings.hpp"
#include "VantrelBase/Net/MacAddress.hpp"
#include "VantrelBase/Net/NetExport.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace VantrelBase::Net::Bootp
{

/// A BOOTP server on one UDP socket and one thread of its own. Each request from a device whose
/// hardware address has an IP address (in the table, or in the kernel ARP table when the table is
/// empty) is answered by a broadcast reply of 300 bytes: the request rewritten with that address,
/// the boot server address and the boot file name. Start, Stop and the destructor are meant for one
/// controlling thread; Stop may also be called from a callback. The setters may be called at any
/// time. The callback lists are filled before Start.
class VANTRELBASE_NET_EXPORT BootpServer
    : private Qib::System::Commons::Diagnostics::Logging::Loggable<BootpServer>
{
public:
    using IpAddress = Qib::System::Commons::Net::IpAddress;
    using BootpServerSettings = Configuration::BootpServerSettings;

    /// Called on the server thread once the socket is ready.
    std::vector<std::function<void(BootpServer&)>> startedCallbacks;
    /// Called on the server thread after the socket is closed at a regular stop.
    std::vector<std::function<void(BootpServer&)>> stoppedCallbacks;
    /// Called on the server thread after each reply, with copies of its hardware and IP address.
    std::vector<std::function<void(BootpServer&, MacAddress&, IpAddress&)>> assignedCallbacks;

    /// Default settings and a table of one entry. Unreadable hardware-address text gives the key
    /// 00:00:00:00:00:00; unreadable IP text throws InvalidFormatException.
    BootpServer(const std::string& macAddress, const std::string& ipAddress);
    /// A copy of `settings`, table included.
    explicit BootpServer(BootpServerSettings& settings);
    /// Stops the server first.
    ~BootpServer();
    BootpServer(const BootpServer&) = delete;
    BootpServer& operator=(const BootpServer&) = delete;

    /// Sets the boot server address from dotted text; throws InvalidFormatException (and keeps the
    /// old value) on anything else. Takes effect with the next reply.
    void SetBootserver(const std::string& address);
    void SetBootserver(IpAddress address);
    /// Sets the boot file name; takes effect with the next reply. Any length is accepted: a name of
    /// 128 bytes or more runs on into the vendor field of the reply (and past its 300 bytes); a name
    /// of more than 591 bytes is cut there, so that it and its zero end with the receive buffer.
    void SetBootfile(const std::string& name);

    /// Starts the server thread and returns at once; a running server is stopped first. Socket
    /// failures are logged on the server thread ("Cannot allocate socket") and end it.
    void Start();
    /// Asks the loop to end. From another thread it waits for the thread (bounded, then terminates
    /// it) and releases it; from the server thread (a callback) it returns at once and the loop ends
    /// after the current pass.
    void Stop();
    /// True while the server thread runs.
    bool IsRunning();

protected:
    /// Size of the receive buffer, and of every reply sent.
    static constexpr std::size_t BufferSize = 700;
    static constexpr std::size_t ReplySize = 300;
    using Buffer = std::array<std::uint8_t, BufferSize>;

    /// The body of the server thread: socket set-up, then wait, receive, reply until stopped.
    void Run(void* argument);
    /// The IP address for a device: the kernel ARP table when the table is empty, otherwise the
    /// table's own search (and never the kernel's table then).
    bool TryGetIpConfiguration(const MacAddress& hardware, IpAddress& ipAddress) const;
    /// The hardware address of a message as text for the log: `hlen` upper-case pairs from `chaddr`
    /// on, or "(unknown hardware address)" when `hlen` is 0.
    static std::string FormatHardware(const Buffer& message);
    /// Rewrites a request into its reply in place: `op`, `yiaddr`, `siaddr` and `file`.
    static void BuildReply(Buffer& message, const IpAddress& yourAddress, const IpAddress& serverAddress,
                           const std::string& bootfile);

    BootpServerSettings settings;
    std::atomic<bool> stopRequested{false};
    std::shared_ptr<Qib::System::Commons::Threading::Thread> serverThread;

private:
    template <typename Callbacks, typename... Args>
    void Notify(const Callbacks& callbacks, Args&... args);
    std::shared_ptr<Qib::System::Commons::Threading::Thread> CurrentThread();

    // Guards settings.bootserver and settings.bootfile, which the setters write while replies read them.
    mutable std::mutex replySettingsLock;
    // Guards the serverThread pointer itself (not the thread), which Stop reads from a callback.
    mutable std::mutex threadLock;
};

} // namespace VantrelBase::Net::Bootp
