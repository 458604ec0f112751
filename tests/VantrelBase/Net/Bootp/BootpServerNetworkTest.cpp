// Tests of the running BOOTP server: the server in the test's namespace on port 67, clients in a peer
// namespace behind a veth pair, sending crafted requests and receiving the broadcast replies.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Support/PeerNamespace.hpp"
#include "Support/BootpRequest.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"
#include "TestableBootpServer.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Threading::Thread;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelTest::Bytes;
using VantrelTest::MakeRequest;
using VantrelTest::TestableBootpServer;
using VantrelTest::Xid;

namespace
{

const MacAddress KnownDevice(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);

IpAddress Ip(const char* text)
{
    return IpAddress::Parse(text);
}

IpAddress AddressAt(const Bytes& message, std::size_t offset)
{
    std::uint32_t value = 0;
    std::memcpy(&value, &message[offset], sizeof(value));
    return IpAddress(value);
}

struct Datagram
{
    Bytes bytes;
    sockaddr_in source{};
    in_addr destination{};
};

// A client socket on 0.0.0.0:68 created inside the peer namespace (it stays there), with broadcast
// permission and the destination address of each datagram reported.
class BootpClient
{
public:
    explicit BootpClient(const VantrelTest::PeerNamespace& peer)
    {
        peer.Within([this] {
            const int candidate = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const int on = 1;
            sockaddr_in local{};
            local.sin_family = AF_INET;
            local.sin_port = htons(68);
            if (candidate >= 0 && ::setsockopt(candidate, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) == 0 &&
                ::setsockopt(candidate, IPPROTO_IP, IP_PKTINFO, &on, sizeof(on)) == 0 &&
                ::bind(candidate, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0)
            {
                descriptor = candidate;
            }
            else if (candidate >= 0)
            {
                ::close(candidate);
            }
        });
    }
    ~BootpClient()
    {
        if (descriptor >= 0)
        {
            ::close(descriptor);
        }
    }
    BootpClient(const BootpClient&) = delete;
    BootpClient& operator=(const BootpClient&) = delete;

    bool Ready() const { return descriptor >= 0; }

    bool Send(const Bytes& message) const
    {
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(67);
        server.sin_addr.s_addr = inet_addr("10.77.1.1");
        return ::sendto(descriptor, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&server),
                        sizeof(server)) == static_cast<ssize_t>(message.size());
    }

    /// The next datagram, or nothing within `limit`.
    std::optional<Datagram> Receive(std::chrono::milliseconds limit = std::chrono::seconds(5)) const
    {
        pollfd wait{descriptor, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(limit.count())) != 1)
        {
            return std::nullopt;
        }
        Datagram datagram;
        datagram.bytes.resize(1500);
        iovec part{datagram.bytes.data(), datagram.bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
        msghdr header{};
        header.msg_name = &datagram.source;
        header.msg_namelen = sizeof(datagram.source);
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof(control);
        const ssize_t received = ::recvmsg(descriptor, &header, 0);
        if (received < 0)
        {
            return std::nullopt;
        }
        datagram.bytes.resize(static_cast<std::size_t>(received));
        for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item))
        {
            if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO)
            {
                in_pktinfo info{};
                std::memcpy(&info, CMSG_DATA(item), sizeof(info));
                datagram.destination = info.ipi_addr;
            }
        }
        return datagram;
    }

private:
    int descriptor = -1;
};

bool StartsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

} // namespace

class BootpServerNetworkTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VANTREL_REQUIRE_NETWORK_NAMESPACE();
        peer = std::make_unique<VantrelTest::PeerNamespace>("bootp", "bootp0", "10.77.1.1/24", "bootp1",
                                                            "10.77.1.2/24", "02:77:01:00:00:02");
        ASSERT_EQ(peer->Error(), "");
        // The limited broadcast needs a route; this one leads over the veth pair only.
        ASSERT_EQ(VantrelTest::Shell("ip route add 255.255.255.255/32 dev bootp0"), 0);
        client = std::make_unique<BootpClient>(*peer);
        ASSERT_TRUE(client->Ready());
    }

    void TearDown() override
    {
        servers.clear();
        client.reset();
        peer.reset();
    }

    // A server answering the known device with 10.77.1.10, boot server 10.77.1.1 and boot file "b".
    TestableBootpServer& MakeServer()
    {
        servers.push_back(std::make_unique<TestableBootpServer>(KnownDevice.ToString(), "10.77.1.10"));
        servers.back()->SetBootserver("10.77.1.1");
        servers.back()->SetBootfile("b");
        return *servers.back();
    }

    TestableBootpServer& MakeServer(BootpServerSettings& settings)
    {
        servers.push_back(std::make_unique<TestableBootpServer>(settings));
        return *servers.back();
    }

    // Number of "Server listening" lines so far reached `count`.
    bool WaitForListening(std::size_t count = 1)
    {
        return capture.WaitUntil([count](const std::vector<VantrelTest::LogCapture::LogRecord>& records) {
            std::size_t seen = 0;
            for (const auto& record : records)
            {
                seen += StartsWith(record.Message, "Server listening on socket #") ? 1 : 0;
            }
            return seen >= count;
        });
    }

    // Receives the reply and checks it is the one to `xid`.
    std::optional<Datagram> ReplyTo(std::uint32_t xid)
    {
        auto reply = client->Receive();
        if (!reply)
        {
            ADD_FAILURE() << "no reply to " << xid;
            return std::nullopt;
        }
        EXPECT_GE(reply->bytes.size(), 8U);
        if (reply->bytes.size() >= 8)
        {
            EXPECT_EQ(Xid(reply->bytes), xid);
        }
        return reply;
    }

    VantrelTest::LogCapture capture;
    std::unique_ptr<VantrelTest::PeerNamespace> peer;
    std::unique_ptr<BootpClient> client;
    std::vector<std::unique_ptr<TestableBootpServer>> servers;
};

TEST_F(BootpServerNetworkTest, AnswersKnownDeviceByBroadcastWithRequestRewrittenInPlace)
{
    auto& server = MakeServer();
    server.Start();
    ASSERT_TRUE(WaitForListening());
    const Bytes request = MakeRequest(0x01020304, KnownDevice);
    ASSERT_TRUE(client->Send(request));
    const auto reply = ReplyTo(0x01020304);
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->bytes.size(), 300U);
    EXPECT_EQ(reply->destination.s_addr, htonl(INADDR_BROADCAST));
    EXPECT_EQ(reply->source.sin_addr.s_addr, inet_addr("10.77.1.1"));
    EXPECT_EQ(ntohs(reply->source.sin_port), 67);

    const Bytes& bytes = reply->bytes;
    EXPECT_EQ(bytes[0], 2);
    EXPECT_EQ(AddressAt(bytes, 16), Ip("10.77.1.10"));
    EXPECT_EQ(AddressAt(bytes, 20), Ip("10.77.1.1"));
    // "b", its zero, then the rest of the client's "generic".
    const std::uint8_t file[] = {'b', 0, 'n', 'e', 'r', 'i', 'c', 0};
    EXPECT_TRUE(std::equal(std::begin(file), std::end(file), bytes.begin() + 108));
    for (std::size_t i = 0; i < 300; ++i)
    {
        const bool rewritten = i == 0 || (i >= 16 && i < 24) || i == 108 || i == 109;
        if (!rewritten)
        {
            ASSERT_EQ(bytes[i], request[i]) << "offset " << i;
        }
    }
}

TEST_F(BootpServerNetworkTest, ShortRequestCarriesTheTailOfThePreviousDatagram)
{
    auto& server = MakeServer();
    server.Start();
    ASSERT_TRUE(WaitForListening());

    // The buffer starts zeroed.
    ASSERT_TRUE(client->Send(MakeRequest(1, KnownDevice, 250)));
    auto reply = ReplyTo(1);
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->bytes.size(), 300U);
    EXPECT_TRUE(std::all_of(reply->bytes.begin() + 250, reply->bytes.end(), [](std::uint8_t b) { return b == 0; }));

    const Bytes full = MakeRequest(2, KnownDevice);
    ASSERT_TRUE(client->Send(full));
    ASSERT_TRUE(ReplyTo(2));

    // Deliberate: the buffer is reused uncleared, so bytes 250 to 299 are the previous request's.
    const Bytes shortRequest = MakeRequest(3, KnownDevice, 250);
    ASSERT_TRUE(client->Send(shortRequest));
    reply = ReplyTo(3);
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->bytes.size(), 300U);
    EXPECT_TRUE(std::equal(reply->bytes.begin() + 236, reply->bytes.begin() + 250, shortRequest.begin() + 236));
    EXPECT_TRUE(std::equal(reply->bytes.begin() + 250, reply->bytes.end(), full.begin() + 250));
}

TEST_F(BootpServerNetworkTest, UnansweredDatagramsSendNothing)
{
    std::atomic<int> assigned{0};
    auto& server = MakeServer();
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress&, IpAddress&) { ++assigned; });
    server.Start();
    ASSERT_TRUE(WaitForListening());

    const MacAddress unknown(0x0A, 0xBB, 0xCC, 0xDD, 0xEE, 0x01);
    ASSERT_TRUE(client->Send(MakeRequest(10, unknown)));
    Bytes reply = MakeRequest(11, KnownDevice);
    reply[0] = 2; // a boot reply of another server
    ASSERT_TRUE(client->Send(reply));
    Bytes otherHardware = MakeRequest(12, KnownDevice);
    otherHardware[1] = 6;
    ASSERT_TRUE(client->Send(otherHardware));
    Bytes longAddress = MakeRequest(13, KnownDevice);
    longAddress[2] = 16; // the first six chaddr bytes are known, but hlen is not 6
    ASSERT_TRUE(client->Send(longAddress));
    Bytes noAddress = MakeRequest(14, unknown);
    noAddress[2] = 0;
    ASSERT_TRUE(client->Send(noAddress));
    Bytes twentyBytes = MakeRequest(15, unknown);
    twentyBytes[2] = 20;
    ASSERT_TRUE(client->Send(twentyBytes));

    // Datagrams are handled in order: had any of the above been answered, its reply would come first.
    ASSERT_TRUE(client->Send(MakeRequest(16, KnownDevice)));
    ASSERT_TRUE(ReplyTo(16));
    // The callbacks run after the send: wait for the one of the answered request.
    EXPECT_TRUE(capture.WaitUntil([&](const auto&) { return assigned.load() >= 1; }));
    EXPECT_EQ(assigned.load(), 1);

    EXPECT_TRUE(capture.Contains("No IP configuration for hardware 0A:BB:CC:DD:EE:01. Do not respond.", 6));
    EXPECT_TRUE(capture.Contains("No IP configuration for hardware (unknown hardware address). Do not respond.", 6));
    // Twenty pairs: the last four from sname ("clie").
    EXPECT_TRUE(capture.Contains("No IP configuration for hardware "
                                 "0A:BB:CC:DD:EE:01:00:00:00:00:00:00:C4:00:00:00:63:6C:69:65. Do not respond.",
                                 6));
    // Known first six bytes: found, so no such line, whatever the other fields.
    EXPECT_EQ(capture.Count("No IP configuration for hardware 00:11:22:33:44:55. Do not respond."), 0U);
    EXPECT_EQ(capture.Count("No IP configuration for hardware 00:11:22:33:44:55:00:00:00:00:00:00:C4:00:00:00. "
                            "Do not respond."),
              0U);
    EXPECT_EQ(capture.Count("Verify packet"), 7U);
    EXPECT_EQ(capture.Count("Assign 10.77.1.10 to 00:11:22:33:44:55"), 1U);
}

TEST_F(BootpServerNetworkTest, LogsEachStepInOrderAtItsLevel)
{
    auto& server = MakeServer();
    server.Start();
    EXPECT_EQ(server.settings.timeout, 16);
    ASSERT_TRUE(WaitForListening());
    ASSERT_TRUE(client->Send(MakeRequest(21, KnownDevice)));
    ASSERT_TRUE(ReplyTo(21));
    // A generous join limit: on a loaded machine the loop must still end by itself, not by termination.
    const unsigned long joinLimit = Qib::System::Commons::Threading::Thread::GetJoinLimit();
    Qib::System::Commons::Threading::Thread::SetJoinLimit(30000);
    server.Stop();
    Qib::System::Commons::Threading::Thread::SetJoinLimit(joinLimit);

    const auto records = capture.Records();
    std::size_t position = 0;
    const std::pair<std::string, int> expected[] = {
        {"Attempt to start server 0.0.0.0:67", 6},
        {"Setting up server", 6},
        {"Server listening on socket #", 6},
        {"Waiting for packet (timeout: 0.16000s)", 7},
        {"Reading packet", 7},
        {"Verify packet", 7},
        {"Assign 10.77.1.10 to 00:11:22:33:44:55", 6},
        {"Attempt to stop server 0.0.0.0:67", 6},
        {"Closing network connections", 6},
    };
    for (const auto& [message, level] : expected)
    {
        while (position < records.size() && !StartsWith(records[position].Message, message))
        {
            ++position;
        }
        ASSERT_LT(position, records.size()) << "missing or out of order: " << message;
        EXPECT_EQ(records[position].Level, level) << message;
        EXPECT_EQ(records[position].LoggerName, "VantrelBase.Net.Bootp.BootpServer") << message;
    }
    EXPECT_EQ(capture.Count("Attempt to stop server 0.0.0.0:67 asynchronously"), 0U);
    EXPECT_FALSE(server.IsRunning());
}

TEST_F(BootpServerNetworkTest, WaitLineShowsTheTimeoutInMicroseconds)
{
    BootpServerSettings settings;
    settings.timeout = 200;
    settings.localPort = 1067;
    settings.ipConfigurations[KnownDevice] = Ip("10.77.1.10");
    auto& server = MakeServer(settings);
    server.Start();
    ASSERT_TRUE(capture.WaitFor("Waiting for packet (timeout: 0.200000s)"));
    EXPECT_TRUE(capture.Contains("Attempt to start server 0.0.0.0:1067", 6));
    EXPECT_EQ(server.settings.timeout, 200);
}

TEST_F(BootpServerNetworkTest, CallbacksRunOnTheServerThreadWithCopies)
{
    std::mutex lock;
    std::vector<std::string> calls;
    auto record = [&](const std::string& call) {
        std::lock_guard<std::mutex> guard(lock);
        calls.push_back(call);
    };
    auto& server = MakeServer();
    server.startedCallbacks.push_back([&](BootpServer& self) {
        const bool own = Thread::pCurrentThread != nullptr &&
                         Thread::pCurrentThread->GetName() == "VantrelBase::Net::Bootp::BootpServer";
        record(std::string("started") + (own ? "" : " elsewhere") + (&self == &server ? "" : " other server"));
    });
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        record("assigned " + hardware.ToString() + " " + address.ToString().GetStdString());
        hardware = MacAddress();
        address = IpAddress();
    });
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        record("then " + hardware.ToString() + " " + address.ToString().GetStdString());
    });
    server.stoppedCallbacks.push_back([&](BootpServer&) { record("stopped"); });
    server.Start();
    ASSERT_TRUE(WaitForListening());
    ASSERT_TRUE(client->Send(MakeRequest(31, KnownDevice)));
    ASSERT_TRUE(ReplyTo(31));
    ASSERT_TRUE(client->Send(MakeRequest(32, KnownDevice)));
    ASSERT_TRUE(ReplyTo(32));
    server.Stop();

    // Stop from another thread returns once the stopped callbacks have run.
    std::lock_guard<std::mutex> guard(lock);
    const std::vector<std::string> expected = {
        "started",
        "assigned 00:11:22:33:44:55 10.77.1.10",
        "then 00:11:22:33:44:55 10.77.1.10",
        "assigned 00:11:22:33:44:55 10.77.1.10",
        "then 00:11:22:33:44:55 10.77.1.10",
        "stopped",
    };
    EXPECT_EQ(calls, expected);
}

TEST_F(BootpServerNetworkTest, StopFromCallbackEndsTheLoopAndServerCanRestart)
{
    std::atomic<int> stopped{0};
    auto& server = MakeServer();
    server.assignedCallbacks.push_back([](BootpServer& self, MacAddress&, IpAddress&) { self.Stop(); });
    server.stoppedCallbacks.push_back([&](BootpServer&) { ++stopped; });
    server.Start();
    ASSERT_TRUE(WaitForListening());
    ASSERT_TRUE(client->Send(MakeRequest(41, KnownDevice)));
    ASSERT_TRUE(ReplyTo(41));
    ASSERT_TRUE(capture.WaitFor("Closing network connections"));
    ASSERT_TRUE(capture.WaitUntil([&](const auto&) { return stopped.load() == 1 && !server.IsRunning(); }));
    const long async = capture.IndexOf("Attempt to stop server 0.0.0.0:67 asynchronously");
    ASSERT_GE(async, 0);
    EXPECT_LT(async, capture.IndexOf("Closing network connections"));
    EXPECT_EQ(capture.Count("Attempt to stop server 0.0.0.0:67"), 0U);

    // Started again on the same port, it answers again; the port was given back.
    capture.Clear();
    server.assignedCallbacks.clear();
    server.Start();
    ASSERT_TRUE(WaitForListening());
    EXPECT_EQ(capture.IndexOf("Cannot allocate socket"), -1);
    ASSERT_TRUE(client->Send(MakeRequest(42, KnownDevice)));
    ASSERT_TRUE(ReplyTo(42));
    server.Stop();
    EXPECT_EQ(stopped.load(), 2);
    EXPECT_FALSE(server.IsRunning());
}

TEST_F(BootpServerNetworkTest, StartOnRunningServerStopsItFirst)
{
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    auto& server = MakeServer();
    server.Start();
    ASSERT_TRUE(WaitForListening());
    server.Start();
    ASSERT_TRUE(WaitForListening(2));
    EXPECT_TRUE(server.IsRunning());
    // A thread just joined may still be listed for a moment, hence the wait.
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore + 1), threadsBefore + 1);

    const long firstStart = capture.IndexOf("Attempt to start server 0.0.0.0:67");
    const long stop = capture.IndexOf("Attempt to stop server 0.0.0.0:67");
    const long secondStart = capture.IndexOf("Attempt to start server 0.0.0.0:67", static_cast<std::size_t>(firstStart) + 1);
    ASSERT_GE(firstStart, 0);
    EXPECT_LT(firstStart, stop);
    EXPECT_LT(stop, secondStart);
    EXPECT_EQ(capture.IndexOf("Cannot allocate socket"), -1);

    // One loop answers, once.
    ASSERT_TRUE(client->Send(MakeRequest(51, KnownDevice)));
    ASSERT_TRUE(ReplyTo(51));
    ASSERT_TRUE(client->Send(MakeRequest(52, KnownDevice)));
    ASSERT_TRUE(ReplyTo(52));
    server.Stop();
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);
}

TEST_F(BootpServerNetworkTest, SecondServerOnBoundPortReportsBindError)
{
    auto& first = MakeServer();
    first.Start();
    ASSERT_TRUE(WaitForListening());

    std::atomic<int> started{0};
    auto& second = MakeServer();
    second.startedCallbacks.push_back([&](BootpServer&) { ++started; });
    second.stoppedCallbacks.push_back([&](BootpServer&) { ++started; });
    testing::internal::CaptureStdout();
    second.Start();
    const bool failed = capture.WaitFor("Cannot allocate socket");
    const std::string output = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(failed);
    EXPECT_TRUE(capture.Contains("Cannot allocate socket", 3));
    EXPECT_NE(output.find("bind error 98 Address already in use\n"), std::string::npos) << output;
    EXPECT_TRUE(capture.WaitUntil([&](const auto&) { return !second.IsRunning(); }));
    EXPECT_EQ(started.load(), 0);

    // The first server is unaffected.
    EXPECT_TRUE(first.IsRunning());
    ASSERT_TRUE(client->Send(MakeRequest(61, KnownDevice)));
    ASSERT_TRUE(ReplyTo(61));
}

TEST_F(BootpServerNetworkTest, SettersTakeEffectWithTheNextReply)
{
    auto& server = MakeServer();
    server.Start();
    ASSERT_TRUE(WaitForListening());
    ASSERT_TRUE(client->Send(MakeRequest(71, KnownDevice)));
    auto reply = ReplyTo(71);
    ASSERT_TRUE(reply);
    EXPECT_EQ(AddressAt(reply->bytes, 20), Ip("10.77.1.1"));

    server.SetBootserver(Ip("10.77.1.3"));
    server.SetBootfile("second.img");
    ASSERT_TRUE(client->Send(MakeRequest(72, KnownDevice)));
    reply = ReplyTo(72);
    ASSERT_TRUE(reply);
    EXPECT_EQ(AddressAt(reply->bytes, 20), Ip("10.77.1.3"));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&reply->bytes[108])), "second.img");
}

TEST_F(BootpServerNetworkTest, EmptyTableAsksTheKernelArpTable)
{
    ASSERT_EQ(VantrelTest::Shell("ip neigh add 10.77.1.50 lladdr 00:11:22:33:44:55 dev bootp0 nud permanent"), 0);
    ASSERT_EQ(VantrelTest::Shell("ip neigh add 10.77.1.51 lladdr 0a:11:22:33:44:55 dev bootp0 nud permanent"), 0);
    BootpServerSettings settings;
    auto& server = MakeServer(settings);
    server.Start();
    ASSERT_TRUE(WaitForListening());

    // Deliberate: the kernel's lower-case text is compared with the upper-case text form, so only
    // addresses without letters are found.
    ASSERT_TRUE(client->Send(MakeRequest(81, MacAddress(0x0A, 0x11, 0x22, 0x33, 0x44, 0x55))));
    ASSERT_TRUE(client->Send(MakeRequest(82, KnownDevice)));
    const auto reply = ReplyTo(82);
    ASSERT_TRUE(reply);
    EXPECT_EQ(AddressAt(reply->bytes, 16), Ip("10.77.1.50"));
    EXPECT_TRUE(capture.Contains("No IP configuration for hardware 0A:11:22:33:44:55. Do not respond."));

    // With one entry in the table, the kernel's table is not asked.
    TestableBootpServer tableServer("02:00:00:00:00:01", "10.77.1.60");
    IpAddress found;
    EXPECT_FALSE(tableServer.TryGetIpConfiguration(KnownDevice, found));
}

TEST_F(BootpServerNetworkTest, RealBootpClientReceivesItsAddress)
{
    BootpServerSettings settings;
    settings.ipConfigurations[MacAddress(0x02, 0x77, 0x01, 0x00, 0x00, 0x02)] = Ip("10.77.1.20");
    settings.bootserver = Ip("10.77.1.1");
    settings.bootfile = "vantrel.img";
    std::atomic<int> assigned{0};
    auto& server = MakeServer(settings);
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        if (hardware == MacAddress(0x02, 0x77, 0x01, 0x00, 0x00, 0x02) && address == Ip("10.77.1.20"))
        {
            ++assigned;
        }
    });
    server.Start();
    ASSERT_TRUE(WaitForListening());
    client.reset(); // frees port 68 in the peer namespace for the real client
    // The client broadcasts its request; the route keeps that on the veth pair.
    ASSERT_EQ(peer->Run("ip route add 255.255.255.255/32 dev bootp1"), 0);
    const std::string output =
        peer->Output("timeout 30 bootpc --dev bootp1 --returniffail --timeoutwait 10 --serverbcast");
    EXPECT_NE(output.find("IPADDR='10.77.1.20'"), std::string::npos) << output;
    EXPECT_NE(output.find("BOOTFILE='vantrel.img'"), std::string::npos) << output;
    EXPECT_TRUE(capture.WaitUntil([&](const auto&) { return assigned.load() >= 1; }));
}
