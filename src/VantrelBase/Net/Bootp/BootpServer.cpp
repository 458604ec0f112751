// BOOTP server: settings, the address table rule, the request loop and the in-place reply.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Qib/BasicString.hpp"
#include "VantrelBase/Net/Information/AddressResolution.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace VantrelBase::Net::Bootp
{

using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;

namespace
{

// A BOOTP message as received and rewritten in place (offsets from the start of the UDP payload):
//
//   0      1      2      3      4            8       10      12       16       20       24       28
//   +------+------+------+------+------------+-------+-------+--------+--------+--------+--------+
//   |  op  | htype| hlen | hops |    xid     | secs  | flags | ciaddr | yiaddr | siaddr | giaddr |
//   +------+------+------+------+------------+-------+-------+--------+--------+--------+--------+
//   28: chaddr (16)   44: sname (64)   108: file (128)   236: vend (64)   300: end of a reply
//
// Only op, yiaddr, siaddr and file are written; everything else goes back as the client sent it.
constexpr std::size_t OpOffset = 0;
constexpr std::size_t HtypeOffset = 1;
constexpr std::size_t HlenOffset = 2;
constexpr std::size_t YiaddrOffset = 16;
constexpr std::size_t SiaddrOffset = 20;
constexpr std::size_t ChaddrOffset = 28;
constexpr std::size_t FileOffset = 108;

constexpr std::uint8_t BootRequest = 1;
constexpr std::uint8_t BootReply = 2;
constexpr std::uint8_t EthernetHardware = 1;
constexpr std::uint8_t EthernetAddressLength = 6;

constexpr const char* ThreadName = "VantrelBase::Net::Bootp::BootpServer";

// Closes the socket on every way out of the loop, the unwinding of a termination included.
class SocketHolder
{
public:
    explicit SocketHolder(int descriptor) : descriptor(descriptor) {}
    ~SocketHolder() { Close(); }
    SocketHolder(const SocketHolder&) = delete;
    SocketHolder& operator=(const SocketHolder&) = delete;

    int Get() const { return descriptor; }
    void Close()
    {
        if (descriptor == -1)
        {
            return;
        }
        // close() is a cancellation point; it must not start an unwinding from within a destructor.
        int state = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        ::close(descriptor);
        pthread_setcancelstate(state, nullptr);
        descriptor = -1;
    }

private:
    int descriptor;
};

void WriteAddress(std::uint8_t* field, const Qib::System::Commons::Net::IpAddress& address)
{
    // The held value is already in network byte order: copied as it is.
    const std::uint32_t value = address.GetValue();
    std::memcpy(field, &value, sizeof(value));
}

} // namespace

BootpServer::BootpServer(const std::string& macAddress, const std::string& ipAddress)
{
    const MacAddress key = MacAddress::Parse(macAddress);
    const IpAddress address = IpAddress::Parse(Qib::String(ipAddress));
    BootpServerSettings fresh;
    fresh.ipConfigurations.insert({key, address});
    settings = fresh;
}

BootpServer::BootpServer(BootpServerSettings& settings) : settings(settings) {}

BootpServer::~BootpServer()
{
    Stop();
}

void BootpServer::SetBootserver(const std::string& address)
{
    const IpAddress parsed = IpAddress::Parse(Qib::String(address));
    std::lock_guard<std::mutex> guard(replySettingsLock);
    settings.bootserver = parsed;
}

void BootpServer::SetBootserver(IpAddress address)
{
    std::lock_guard<std::mutex> guard(replySettingsLock);
    settings.bootserver = address;
}

void BootpServer::SetBootfile(const std::string& name)
{
    std::lock_guard<std::mutex> guard(replySettingsLock);
    settings.bootfile = name;
}

std::shared_ptr<Thread> BootpServer::CurrentThread()
{
    std::lock_guard<std::mutex> guard(threadLock);
    return serverThread;
}

bool BootpServer::IsRunning()
{
    const auto thread = CurrentThread();
    return thread && thread->IsRunning();
}

void BootpServer::Start()
{
    const auto previous = CurrentThread();
    if (previous && previous->IsRunning())
    {
        Stop();
    }
    // Written before the thread starts, so the loop reads it without a lock.
    if (settings.timeout == 0)
    {
        settings.timeout = 16;
    }
    log.Info("Attempt to start server {0}:{1}", settings.localAddress.ToString(), settings.localPort);
    stopRequested = false;
    const ThreadSettings threadSettings(ThreadName, 1, 0, 0);
    auto thread = std::make_shared<Thread>(threadSettings, [this](void* argument) { Run(argument); }, nullptr);
    std::shared_ptr<Thread> released;
    {
        std::lock_guard<std::mutex> guard(threadLock);
        released = std::move(serverThread);
        serverThread = thread;
    }
    released.reset(); // an ended earlier thread is reaped here, outside the lock
    // Deliberately acts on the calling thread, not on the new one.
    Thread::SetAsynchronousCancelability(true);
    thread->SetPriority(1);
    thread->Start();
}

void BootpServer::Stop()
{
    stopRequested = true;
    const auto thread = CurrentThread();
    if (!thread)
    {
        return;
    }
    if (Thread::pCurrentThread == thread.get())
    {
        // A thread cannot join itself: the flag alone ends the loop after the current pass.
        log.Info("Attempt to stop server {0}:{1} asynchronously", settings.localAddress.ToString(),
                 settings.localPort);
        return;
    }
    log.Info("Attempt to stop server {0}:{1}", settings.localAddress.ToString(), settings.localPort);
    if (thread->IsRunning() && thread->IsJoinable())
    {
        thread->Join();
    }
    if (thread->IsRunning())
    {
        thread->Terminate();
    }
    std::lock_guard<std::mutex> guard(threadLock);
    if (serverThread == thread)
    {
        serverThread.reset();
    }
}

bool BootpServer::TryGetIpConfiguration(const MacAddress& hardware, IpAddress& ipAddress) const
{
    if (settings.ipConfigurations.empty())
    {
        return Information::AddressResolution::TryResolveIpAddress(hardware, ipAddress);
    }
    // Deliberately the map's own search, with MacAddress's ordering, and no fall-back to the kernel.
    const auto entry = settings.ipConfigurations.find(hardware);
    if (entry == settings.ipConfigurations.end())
    {
        return false;
    }
    ipAddress = entry->second;
    return true;
}

std::string BootpServer::FormatHardware(const Buffer& message)
{
    const std::size_t length = message[HlenOffset];
    if (length == 0)
    {
        return "(unknown hardware address)";
    }
    // hlen is at most 255, so the text ends at offset 282, inside the buffer.
    std::string text = Qib::String::Format("{0:02X}", static_cast<unsigned int>(message[ChaddrOffset])).GetStdString();
    for (std::size_t i = 1; i < length; ++i)
    {
        text += Qib::String::Format(":{0:02X}", static_cast<unsigned int>(message[ChaddrOffset + i])).GetStdString();
    }
    return text;
}

void BootpServer::BuildReply(Buffer& message, const IpAddress& yourAddress, const IpAddress& serverAddress,
                             const std::string& bootfile)
{
    message[OpOffset] = BootReply;
    WriteAddress(&message[YiaddrOffset], yourAddress);
    WriteAddress(&message[SiaddrOffset], serverAddress);
    // Deliberately no limit at the field's end: a long name runs on into vend (and past the reply).
    // Only the buffer's end stops it, where the last byte is the terminating zero.
    const std::size_t room = message.size() - FileOffset - 1;
    const std::size_t length = bootfile.size() < room ? bootfile.size() : room;
    std::memcpy(&message[FileOffset], bootfile.data(), length);
    message[FileOffset + length] = 0;
}

template <typename Callbacks, typename... Args>
void BootpServer::Notify(const Callbacks& callbacks, Args&... args)
{
    // By index and by copy, so that a callback may change the list it was called from.
    for (std::size_t i = 0; i < callbacks.size(); ++i)
    {
        const typename Callbacks::value_type call = callbacks[i];
        call(*this, args...);
    }
}

void BootpServer::Run(void*)
{
    log.Info("Setting up server");
    SocketHolder socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (socket.Get() == -1)
    {
        log.Error("Cannot allocate socket");
        return;
    }
    const int broadcast = settings.broadcast ? 1 : 0;
    if (::setsockopt(socket.Get(), SOL_SOCKET, SO_BROADCAST, &broadcast, sizeof(broadcast)) == -1)
    {
        socket.Close();
        log.Error("Cannot allocate socket");
        return;
    }
    if (settings.bindSocket)
    {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = settings.localAddress.GetValue();
        local.sin_port = htons(settings.localPort);
        if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == -1)
        {
            const int error = errno;
            socket.Close();
            std::printf("bind error %d %s\n", error, std::strerror(error));
            std::fflush(stdout);
            log.Error("Cannot allocate socket");
            return;
        }
    }
    log.Info("Server listening on socket #{0}", socket.Get());
    Notify(startedCallbacks);

    // Reused for every datagram and never cleared: a short request's reply carries the tail of
    // earlier datagrams. Zero before the first one.
    Buffer buffer{};
    while (!stopRequested)
    {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(socket.Get(), &readable);
        timeval timeout{};
        timeout.tv_sec = 0;
        timeout.tv_usec = static_cast<suseconds_t>(settings.timeout) * 1000;
        // Deliberately printed as a plain number after the point: 16 ms shows as "0.16000s".
        log.Debug("Waiting for packet (timeout: {0}.{1}s)", timeout.tv_sec, timeout.tv_usec);
        const int ready = ::select(socket.Get() + 1, &readable, nullptr, nullptr, &timeout);
        if (ready == -1)
        {
            const int error = errno;
            log.Error("Error with select {0}, {1}", error, std::strerror(error));
            // Deliberately drastic: a failed wait ends the process.
            std::exit(1);
        }
        if (ready == 0 || !FD_ISSET(socket.Get(), &readable))
        {
            continue;
        }
        log.Debug("Reading packet");
        sockaddr_in source{};
        socklen_t sourceLength = sizeof(source);
        if (::recvfrom(socket.Get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source),
                       &sourceLength) == -1)
        {
            continue;
        }
        log.Debug("Verify packet");
        // The first six chaddr bytes, whatever hlen says.
        const MacAddress client(buffer[ChaddrOffset], buffer[ChaddrOffset + 1], buffer[ChaddrOffset + 2],
                                buffer[ChaddrOffset + 3], buffer[ChaddrOffset + 4], buffer[ChaddrOffset + 5]);
        IpAddress assigned;
        const bool found = TryGetIpConfiguration(client, assigned);
        const std::string hardware = FormatHardware(buffer);
        if (!found)
        {
            log.Info("No IP configuration for hardware {0}. Do not respond.", hardware);
        }
        if (buffer[OpOffset] == BootRequest && buffer[HtypeOffset] == EthernetHardware &&
            buffer[HlenOffset] == EthernetAddressLength && found)
        {
            log.Info("Assign {0} to {1}", assigned.ToString(), hardware);
            IpAddress bootserver;
            std::string bootfile;
            {
                std::lock_guard<std::mutex> guard(replySettingsLock);
                bootserver = settings.bootserver;
                bootfile = settings.bootfile;
            }
            BuildReply(buffer, assigned, bootserver, bootfile);
            // To everyone on the link, at the port the request came from.
            source.sin_addr.s_addr = htonl(INADDR_BROADCAST);
            ::sendto(socket.Get(), buffer.data(), ReplySize, 0, reinterpret_cast<const sockaddr*>(&source),
                     sourceLength);
            for (std::size_t i = 0; i < assignedCallbacks.size(); ++i)
            {
                const auto call = assignedCallbacks[i];
                // Copies of the loop's own values: what a callback changes has no effect.
                MacAddress hardwareCopy = client;
                IpAddress addressCopy = assigned;
                call(*this, hardwareCopy, addressCopy);
            }
        }
    }
    log.Info("Closing network connections");
    socket.Close();
    Notify(stoppedCallbacks);
}

} // namespace VantrelBase::Net::Bootp
