// Tests of the BOOTP server: its table lookup and reply building, then the running server in the
// test's namespace on port 67 with clients in a peer namespace behind a veth pair, sending crafted
// requests and receiving the broadcast replies.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/BootpEndpoint.hpp"
#include "Support/Concurrency.hpp"
#include "Support/IdlePipe.hpp"
#include "Support/JoinLimit.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/PeerNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Threading::Thread;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelTest::Bytes;
using VantrelTest::MakeRequest;

namespace
{

// Opens the server's protected parts to its tests.
class TestableBootpServer : public BootpServer
{
public:
    using BootpServer::BootpServer;
    using BootpServer::Buffer;
    using BootpServer::BuildReply;
    using BootpServer::FormatHardware;
    using BootpServer::TryGetIpConfiguration;
};

const MacAddress KnownDevice(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);
const std::string NoConfiguration = "No IP configuration for hardware ";

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

// A message buffer whose every byte differs from its neighbours, so a stray write shows.
TestableBootpServer::Buffer PatternBuffer()
{
    TestableBootpServer::Buffer buffer{};
    for (std::size_t i = 0; i < buffer.size(); ++i)
    {
        buffer[i] = static_cast<std::uint8_t>((i * 7 + 3) & 0xFF);
    }
    return buffer;
}

} // namespace

TEST(BootpServerTest, NonEmptyTableIsSearchedWithItsOwnOrdering)
{
    BootpServerSettings settings;
    settings.ipConfigurations[MacAddress(0x01, 0x02, 0, 0, 0, 0)] = Ip("10.0.0.1");
    settings.ipConfigurations[MacAddress(0x02, 0x01, 0, 0, 0, 0)] = Ip("10.0.0.2");
    TestableBootpServer server(settings);
    IpAddress found;
    EXPECT_TRUE(server.TryGetIpConfiguration(MacAddress(0x01, 0x02, 0, 0, 0, 0), found));
    EXPECT_EQ(found, Ip("10.0.0.1"));
    // Deliberate: the second entry is held but the search cannot reach it; the device gets no reply.
    EXPECT_FALSE(server.TryGetIpConfiguration(MacAddress(0x02, 0x01, 0, 0, 0, 0), found));
    EXPECT_FALSE(server.TryGetIpConfiguration(MacAddress(0x00, 0x01, 0, 0, 0, 0), found));

    // Deliberate: the pair constructor reads only the colon form, so a dash form keys the zero address.
    TestableBootpServer dashed("00-11-22-33-44-55", "192.168.1.10");
    EXPECT_FALSE(dashed.TryGetIpConfiguration(KnownDevice, found));
    EXPECT_TRUE(dashed.TryGetIpConfiguration(MacAddress(), found));
    EXPECT_EQ(found, Ip("192.168.1.10"));
    EXPECT_THROW(TestableBootpServer("00:11:22:33:44:55", "192.168.1"), InvalidFormatException);
}

TEST(BootpServerTest, HardwareTextRunsOnToTheLargestHlen)
{
    auto buffer = PatternBuffer();
    buffer[2] = 0;
    EXPECT_EQ(TestableBootpServer::FormatHardware(buffer), "(unknown hardware address)");
    for (const std::size_t hlen : {1U, 255U})
    {
        buffer[2] = static_cast<std::uint8_t>(hlen);
        std::string expected;
        for (std::size_t i = 0; i < hlen; ++i)
        {
            expected += fmt::format("{}{:02X}", i == 0 ? "" : ":", static_cast<unsigned int>(buffer[28 + i]));
        }
        EXPECT_EQ(TestableBootpServer::FormatHardware(buffer), expected);
    }
}

TEST(BootpServerTest, LongBootfileRunsIntoVendAndStopsAtBufferEnd)
{
    // Deliberate: no limit at the file field's end; 200 bytes reach into vend. 591 characters and the
    // zero fill the buffer exactly; a longer name is cut there.
    for (const std::size_t length : {200U, 591U, 592U, 1000U})
    {
        auto buffer = PatternBuffer();
        auto expected = buffer;
        const std::size_t end = std::min<std::size_t>(108 + length, expected.size() - 1);
        std::fill(expected.begin() + 108, expected.begin() + static_cast<long>(end), 'g');
        expected[end] = 0;
        TestableBootpServer::BuildReply(buffer, IpAddress(), IpAddress(), std::string(length, 'g'));
        std::copy_n(buffer.begin(), 108, expected.begin()); // the header fields are not this test's
        EXPECT_EQ(buffer, expected) << length;
    }
}

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
        client = std::make_unique<VantrelTest::BootpEndpoint>(68, peer.get());
        ASSERT_TRUE(client->Ready());
    }

    // Without settings, a server answering the known device with 10.77.1.10, boot server 10.77.1.1 and
    // boot file "b".
    TestableBootpServer& MakeServer(BootpServerSettings* settings = nullptr)
    {
        BootpServerSettings standard;
        standard.ipConfigurations[KnownDevice] = Ip("10.77.1.10");
        standard.bootserver = Ip("10.77.1.1");
        standard.bootfile = "b";
        servers.push_back(std::make_unique<TestableBootpServer>(settings != nullptr ? *settings : standard));
        return *servers.back();
    }

    TestableBootpServer& StartServer(TestableBootpServer& server)
    {
        server.Start();
        EXPECT_TRUE(WaitForListening());
        return server;
    }

    // Number of "Server listening" lines so far reached `count`.
    bool WaitForListening(std::size_t count = 1)
    {
        return capture.WaitUntil([count](const std::vector<VantrelTest::LogCapture::LogRecord>& records) {
            return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [](const auto& record) {
                       return record.Message.rfind("Server listening on socket #", 0) == 0;
                   })) >= count;
        });
    }

    bool Send(const Bytes& message) { return client->Send(message, "10.77.1.1"); }

    // Sends the known device's request and receives the 300-byte reply to `xid`.
    std::optional<VantrelTest::Datagram> Ask(std::uint32_t xid, std::size_t size = 300)
    {
        EXPECT_TRUE(Send(MakeRequest(xid, KnownDevice, size)));
        auto reply = client->Receive();
        if (!reply || reply->bytes.size() != 300U || VantrelTest::Xid(reply->bytes) != xid)
        {
            ADD_FAILURE() << "no 300-byte reply to " << xid;
            return std::nullopt;
        }
        return reply;
    }

    // Destroyed in reverse: servers first, the namespace last.
    VantrelTest::LogCapture capture;
    std::unique_ptr<VantrelTest::PeerNamespace> peer;
    std::unique_ptr<VantrelTest::BootpEndpoint> client;
    std::vector<std::unique_ptr<TestableBootpServer>> servers;
};

TEST_F(BootpServerNetworkTest, AnswersByBroadcastWithTheRequestRewrittenInPlaceAndShortOnesCompletedFromThePrevious)
{
    auto& server = StartServer(MakeServer());
    // The buffer starts zeroed.
    auto reply = Ask(1, 250);
    ASSERT_TRUE(reply);
    EXPECT_EQ(Bytes(reply->bytes.begin() + 250, reply->bytes.end()), Bytes(50, 0));
    reply = Ask(0x01020304);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->destination.s_addr, htonl(INADDR_BROADCAST));
    EXPECT_EQ(reply->source.sin_addr.s_addr, inet_addr("10.77.1.1"));
    EXPECT_EQ(ntohs(reply->source.sin_port), 67);
    // op, yiaddr, siaddr and "b" with its zero over the client's "generic"; nothing else changes.
    Bytes expected = MakeRequest(0x01020304, KnownDevice);
    expected[0] = 2;
    const std::uint8_t addresses[] = {10, 77, 1, 10, 10, 77, 1, 1};
    std::copy(std::begin(addresses), std::end(addresses), expected.begin() + 16);
    expected[108] = 'b';
    expected[109] = 0;
    EXPECT_EQ(reply->bytes, expected);
    // Deliberate: the buffer is reused uncleared, so bytes 250 to 299 of a short request are the previous one's.
    reply = Ask(3, 250);
    ASSERT_TRUE(reply);
    EXPECT_EQ(Bytes(reply->bytes.begin() + 250, reply->bytes.end()), Bytes(expected.begin() + 250, expected.end()));

    // The setters take effect with the next reply; unreadable text keeps the value.
    server.SetBootserver(Ip("10.77.1.3"));
    EXPECT_THROW(server.SetBootserver("not an address"), InvalidFormatException);
    server.SetBootfile("second.img");
    reply = Ask(2);
    ASSERT_TRUE(reply);
    EXPECT_EQ(AddressAt(reply->bytes, 20), Ip("10.77.1.3"));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&reply->bytes[108])), "second.img");
}

TEST_F(BootpServerNetworkTest, UnansweredDatagramsSendNothing)
{
    std::atomic<int> assigned{0};
    auto& server = MakeServer();
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress&, IpAddress&) { ++assigned; });
    StartServer(server);

    const MacAddress unknown(0x0A, 0xBB, 0xCC, 0xDD, 0xEE, 0x01);
    struct Row
    {
        const MacAddress& device;
        std::size_t offset; // 0 with value 1: the request unchanged
        std::uint8_t value;
    };
    // An unknown device; a known one's reply, other hardware type, and hlen 16; unknown with hlen 0 and 20.
    const Row rows[] = {{unknown, 0, 1}, {KnownDevice, 0, 2}, {KnownDevice, 1, 6}, {KnownDevice, 2, 16},
                        {unknown, 2, 0},  {unknown, 2, 20}};
    std::uint32_t xid = 10;
    for (const Row& row : rows)
    {
        Bytes message = MakeRequest(xid++, row.device);
        message[row.offset] = row.value;
        ASSERT_TRUE(Send(message));
    }
    // Datagrams are handled in order: had any of the above been answered, its reply would come first.
    ASSERT_TRUE(Ask(16));
    // The callbacks run after the send: wait for the one of the answered request.
    EXPECT_TRUE(VantrelTest::Eventually([&] { return assigned.load() >= 1; }));
    EXPECT_EQ(assigned.load(), 1);
    // Twenty pairs run on into sname ("clie"); a known first six bytes is found whatever hlen says.
    for (const char* hardware : {"0A:BB:CC:DD:EE:01", "(unknown hardware address)",
                                 "0A:BB:CC:DD:EE:01:00:00:00:00:00:00:C4:00:00:00:63:6C:69:65"})
    {
        EXPECT_TRUE(capture.Contains(NoConfiguration + hardware + ". Do not respond.", 6)) << hardware;
    }
    EXPECT_EQ(capture.Count(NoConfiguration + "00:11:22:33:44:55:00:00:00:00:00:00:C4:00:00:00. Do not respond."), 0U);
    EXPECT_EQ(capture.Count("Verify packet"), 7U);
    EXPECT_EQ(capture.Count("Assign 10.77.1.10 to 00:11:22:33:44:55"), 1U);
}

TEST_F(BootpServerNetworkTest, CallbacksRunOnTheServerThreadWithCopiesAndEachStepIsLogged)
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
    // The first callback changes its arguments; the second still sees the server's values.
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        record("assigned " + hardware.ToString() + " " + address.ToString().GetStdString());
        hardware = MacAddress();
        address = IpAddress();
    });
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        record("then " + hardware.ToString() + " " + address.ToString().GetStdString());
    });
    server.stoppedCallbacks.push_back([&](BootpServer&) { record("stopped"); });
    StartServer(server);
    ASSERT_TRUE(Ask(31));
    ASSERT_TRUE(Ask(32));
    // A generous join limit: on a loaded machine the loop must still end by itself, not by termination.
    const unsigned long joinLimit = Thread::GetJoinLimit();
    Thread::SetJoinLimit(30000);
    server.Stop();
    Thread::SetJoinLimit(joinLimit);
    {
        // Stop from another thread returns once the stopped callbacks have run.
        const std::string assigned = "assigned 00:11:22:33:44:55 10.77.1.10";
        const std::string then = "then 00:11:22:33:44:55 10.77.1.10";
        std::lock_guard<std::mutex> guard(lock);
        EXPECT_EQ(calls, (std::vector<std::string>{"started", assigned, then, assigned, then, "stopped"}));
    }
    // Deliberately printed as a plain number after the point: 16 ms shows as "0.16000s".
    EXPECT_TRUE(capture.Contains("Waiting for packet (timeout: 0.16000s)", 7));
}

TEST_F(BootpServerNetworkTest, StopFromCallbackOrANewStartEndsTheLoopAndAStuckLoopIsTerminated)
{
    std::atomic<int> stopped{0};
    const VantrelTest::IdlePipe pipe;
    std::atomic<int> calls{0};
    std::atomic<bool> stuck{false};
    std::chrono::system_clock::time_point unwoundAt{};
    auto& server = MakeServer();
    // Stopped on every way out, before the values its callbacks use go out of scope.
    const struct StopAtExit
    {
        BootpServer& server;
        ~StopAtExit() { server.Stop(); }
    } stopAtExit{server};
    server.assignedCallbacks.push_back([](BootpServer& self, MacAddress&, IpAddress&) { self.Stop(); });
    server.stoppedCallbacks.push_back([&](BootpServer&) { ++stopped; });
    StartServer(server);
    ASSERT_TRUE(Ask(41));
    ASSERT_TRUE(VantrelTest::Eventually([&] { return stopped.load() == 1 && !server.IsRunning(); }));
    const long async = capture.IndexOf("Attempt to stop server 0.0.0.0:67 asynchronously");
    ASSERT_GE(async, 0);
    EXPECT_LT(async, capture.IndexOf("Closing network connections"));
    EXPECT_EQ(capture.Count("Attempt to stop server 0.0.0.0:67"), 0U);

    capture.Clear();
    // The second request's callback gets stuck past the join limit: the next start terminates that
    // loop before it begins, so that the new loop finds the port free. The terminated loop runs no
    // stopped callbacks.
    server.assignedCallbacks = {[&](BootpServer&, MacAddress&, IpAddress&) {
        if (++calls != 2)
        {
            return;
        }
        struct Unwound
        {
            std::chrono::system_clock::time_point& at;
            ~Unwound() { at = std::chrono::system_clock::now(); }
        } unwound{unwoundAt};
        stuck = true;
        pipe.BlockInRead();
    }};
    // Started again, and once more while running: that start stops the first loop, so one thread
    // is left. A thread just joined may still be listed for a moment, hence the wait.
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    StartServer(server);
    server.Start();
    ASSERT_TRUE(WaitForListening(2));
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore + 1), threadsBefore + 1);
    ASSERT_TRUE(Ask(42));
    EXPECT_EQ(stopped.load(), 2);
    ASSERT_TRUE(Ask(43));
    ASSERT_TRUE(VantrelTest::Eventually([&] { return stuck.load(); }));
    {
        VantrelTest::JoinLimit limit(50);
        server.Start();
    }
    const auto records = capture.Records();
    const auto restart = std::find_if(records.rbegin(), records.rend(), [](const auto& record) {
        return record.Message == "Attempt to start server 0.0.0.0:67";
    });
    ASSERT_NE(restart, records.rend());
    EXPECT_LT(unwoundAt, restart->Time) << "the stuck loop ended only after the next start began";
    ASSERT_TRUE(WaitForListening(3));
    ASSERT_TRUE(Ask(44));
    server.Stop();
    EXPECT_EQ(stopped.load(), 3);
    EXPECT_EQ(capture.IndexOf("Cannot allocate socket"), -1) << "the port was given back at every start";
}

TEST_F(BootpServerNetworkTest, SecondServerOnBoundPortReportsBindError)
{
    auto& first = StartServer(MakeServer());
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
    EXPECT_TRUE(VantrelTest::Eventually([&] { return !second.IsRunning(); }));
    EXPECT_EQ(started.load(), 0);
    // The first server is unaffected.
    EXPECT_TRUE(first.IsRunning());
    ASSERT_TRUE(Ask(61));
}

TEST_F(BootpServerNetworkTest, EmptyTableAsksTheKernelArpTable)
{
    ASSERT_EQ(VantrelTest::Shell("ip neigh add 10.77.1.50 lladdr 00:11:22:33:44:55 dev bootp0 nud permanent"), 0);
    ASSERT_EQ(VantrelTest::Shell("ip neigh add 10.77.1.51 lladdr 0a:11:22:33:44:55 dev bootp0 nud permanent"), 0);
    BootpServerSettings settings;
    StartServer(MakeServer(&settings));
    // Deliberate: the kernel's lower-case text is compared with the upper-case text form, so only
    // addresses without letters are found.
    ASSERT_TRUE(Send(MakeRequest(81, MacAddress(0x0A, 0x11, 0x22, 0x33, 0x44, 0x55))));
    const auto reply = Ask(82);
    ASSERT_TRUE(reply);
    EXPECT_EQ(AddressAt(reply->bytes, 16), Ip("10.77.1.50"));
    EXPECT_TRUE(capture.Contains(NoConfiguration + "0A:11:22:33:44:55. Do not respond."));
    // With one entry in the table, the kernel's table is not asked.
    TestableBootpServer tableServer("02:00:00:00:00:01", "10.77.1.60");
    IpAddress found;
    EXPECT_FALSE(tableServer.TryGetIpConfiguration(KnownDevice, found));
}

TEST_F(BootpServerNetworkTest, RealBootpClientReceivesItsAddress)
{
    const MacAddress peerDevice(0x02, 0x77, 0x01, 0x00, 0x00, 0x02);
    BootpServerSettings settings;
    settings.ipConfigurations[peerDevice] = Ip("10.77.1.20");
    settings.bootserver = Ip("10.77.1.1");
    settings.bootfile = "vantrel.img";
    std::atomic<int> assigned{0};
    auto& server = MakeServer(&settings);
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress& hardware, IpAddress& address) {
        assigned += hardware == peerDevice && address == Ip("10.77.1.20") ? 1 : 0;
    });
    StartServer(server);
    client.reset(); // frees port 68 in the peer namespace for the real client
    // The client broadcasts its request; the route keeps that on the veth pair.
    ASSERT_EQ(peer->Run("ip route add 255.255.255.255/32 dev bootp1"), 0);
    const std::string output =
        peer->Output("timeout 30 bootpc --dev bootp1 --returniffail --timeoutwait 10 --serverbcast");
    EXPECT_NE(output.find("IPADDR='10.77.1.20'"), std::string::npos) << output;
    EXPECT_NE(output.find("BOOTFILE='vantrel.img'"), std::string::npos) << output;
    EXPECT_TRUE(VantrelTest::Eventually([&] { return assigned.load() >= 1; }));
}
