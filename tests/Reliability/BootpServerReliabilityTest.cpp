// Reliability of the BOOTP server: start and stop cycles with traffic in flight leave no thread and
// no descriptor behind, and a flood of valid, invalid and unknown requests from another namespace
// neither crashes it nor keeps a known device from its answer nor slows its stop down to a kill.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Support/BootpEndpoint.hpp"
#include "Support/Concurrency.hpp"
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
#include <random>
#include <set>
#include <thread>

using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelTest::BootpEndpoint;
using VantrelTest::Bytes;
using VantrelTest::MakeRequest;

namespace
{

using Clock = std::chrono::steady_clock;

// Devices whose addresses differ in the last byte only: among them MacAddress's ordering is a proper
// one, so the table finds every entry.
MacAddress KnownDevice(std::size_t index)
{
    return MacAddress(0x02, 0x77, 0x40, 0x00, 0x00, static_cast<std::uint8_t>(0x10 + index));
}

IpAddress KnownAddress(std::size_t index)
{
    return IpAddress(htonl(0x0A4D2864U + static_cast<std::uint32_t>(index))); // 10.77.40.100 + index
}

// A server answering the first `devices` known devices, bound to `address`:`port`, counting its
// callbacks.
struct CountingServer
{
    CountingServer(std::size_t devices, const char* address, std::uint16_t port)
    {
        settings.localAddress = IpAddress::Parse(address);
        settings.localPort = port;
        for (std::size_t i = 0; i < devices; ++i)
        {
            settings.ipConfigurations.insert({KnownDevice(i), KnownAddress(i)});
        }
        server = std::make_unique<BootpServer>(settings);
        server->startedCallbacks.push_back([this](BootpServer&) { ++started; });
        server->stoppedCallbacks.push_back([this](BootpServer&) { ++stopped; });
        server->assignedCallbacks.push_back([this](BootpServer&, MacAddress&, IpAddress&) { ++assigned; });
    }

    bool StartAndWait()
    {
        const int before = started;
        server->Start();
        return VantrelTest::Eventually([&] { return started > before; }, std::chrono::seconds(5));
    }

    BootpServerSettings settings;
    std::unique_ptr<BootpServer> server;
    std::atomic<int> started{0};
    std::atomic<int> stopped{0};
    std::atomic<int> assigned{0};
};

// Anything but an answerable request of a known device: unknown devices, replies, other hardware
// types, an hlen other than 6, and datagrams of any length from empty to oversized.
Bytes Hostile(std::mt19937& random, std::uint32_t xid)
{
    Bytes message = MakeRequest(xid, MacAddress(0x02, 0x66, static_cast<std::uint8_t>(random()), 0, 0, 1));
    switch (random() % 4)
    {
    case 0: // an unknown device, otherwise a proper request
        break;
    case 1: // a known device, but not a request, not Ethernet or not 6 bytes long
        message = MakeRequest(xid, KnownDevice(random() % 8));
        message[random() % 3] = static_cast<std::uint8_t>(7 + random() % 249);
        break;
    case 2: // an unknown device, oversized: more than the server's 700-byte buffer
        message.resize(700 + random() % 800, static_cast<std::uint8_t>(random()));
        break;
    default: // random bytes of random length, never a request: a short request is deliberately
             // completed from what earlier datagrams left in the buffer
        message.resize(random() % 700);
        std::generate(message.begin(), message.end(), [&] { return static_cast<std::uint8_t>(random()); });
        if (!message.empty())
        {
            message[0] = 3;
        }
        break;
    }
    return message;
}

// True when `reply` answers known device `xid` with its address.
bool AnswersKnownDevice(const Bytes& reply, std::size_t devices)
{
    if (reply.size() != 300)
    {
        return false;
    }
    const std::uint32_t xid = VantrelTest::Xid(reply);
    std::uint32_t yiaddr = 0;
    std::memcpy(&yiaddr, &reply[16], sizeof(yiaddr));
    const MacAddress device = KnownDevice(xid);
    return xid < devices && reply[0] == 2 && yiaddr == KnownAddress(xid).GetValue() &&
           std::equal(device.bytes.begin(), device.bytes.end(), reply.begin() + 28);
}

} // namespace

TEST(BootpServerReliabilityTest, StartAndStopTwoHundredTimesWithTrafficInFlightLeavesNothingBehind)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    VantrelTest::LogCapture logs(3);
    CountingServer counting(1, "127.0.0.1", 6767);

    // Known requests and junk, sent without pause for as long as the cycles last (bounded).
    const BootpEndpoint sender;
    ASSERT_TRUE(sender.Ready());
    std::atomic<bool> sending{true};
    std::thread traffic([&] {
        std::mt19937 random(7);
        const auto deadline = Clock::now() + std::chrono::seconds(90);
        for (std::uint32_t i = 0; sending && Clock::now() < deadline; ++i)
        {
            sender.Send(i % 2 == 0 ? MakeRequest(i, KnownDevice(0)) : Hostile(random, i), "127.0.0.1", 6767);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    const std::size_t descriptorsBefore = VantrelTest::CountOpenDescriptors();

    constexpr int Cycles = 200;
    for (int cycle = 0; cycle < Cycles; ++cycle)
    {
        ASSERT_TRUE(counting.StartAndWait()) << "cycle " << cycle << " never listened";
        // Let a few datagrams arrive, so that the stop meets a server at work.
        std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 3));
        counting.server->Stop();
        ASSERT_FALSE(counting.server->IsRunning());
    }
    sending = false;
    traffic.join();

    // The sender thread has ended since the first count.
    const std::size_t threadsAfter = VantrelTest::WaitForThreadCount(threadsBefore - 1) + 1;
    const std::size_t descriptorsAfter = VantrelTest::CountOpenDescriptors();
    EXPECT_EQ(threadsAfter, threadsBefore);
    EXPECT_EQ(descriptorsAfter, descriptorsBefore);
    // Every stop ended the loop by its flag: the stopped callbacks ran, no thread was killed.
    EXPECT_EQ(counting.stopped.load(), Cycles);
    EXPECT_GT(counting.assigned.load(), 0) << "no request was ever handled: the traffic was not in flight";
    EXPECT_FALSE(logs.Contains("Cannot allocate socket"));
}

TEST(BootpServerReliabilityTest, FloodOfHostileRequestsStillAnswersEveryKnownDeviceAndStopsPromptly)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    VantrelTest::PeerNamespace peer("rflood", "rflood0", "10.77.40.1/24", "rflood1", "10.77.40.2/24");
    ASSERT_EQ(peer.Error(), "");
    // The limited broadcast of the replies leads over the veth pair only.
    ASSERT_EQ(VantrelTest::Shell("ip route add 255.255.255.255/32 dev rflood0"), 0);
    VantrelTest::LogCapture logs(3);
    constexpr std::size_t Devices = 8;
    CountingServer counting(Devices, "10.77.40.1", 67);
    counting.server->SetBootfile("boot.bin");
    ASSERT_TRUE(counting.StartAndWait());

    // The flood goes out through the known devices' socket too, so that an answer to the flood would
    // arrive where answers are looked for.
    const BootpEndpoint client(68, &peer);
    ASSERT_TRUE(client.Ready());
    std::atomic<std::size_t> floodSent{0};
    std::thread flood([&] {
        std::mt19937 random(11);
        const auto deadline = Clock::now() + std::chrono::seconds(20);
        for (std::uint32_t i = 0; i < 30000 && Clock::now() < deadline; ++i)
        {
            client.Send(Hostile(random, 0xF1000000U + i), "10.77.40.1");
            if (++floodSent % 64 == 0)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });

    // Each known device asks like a real client, in the middle of the flood: again every 200 ms until
    // it has its answer.
    VantrelTest::Eventually([&] { return floodSent >= 3000; }, std::chrono::seconds(2));
    std::set<std::size_t> answered;
    std::size_t wrongReplies = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (answered.size() < Devices && Clock::now() < deadline)
    {
        for (std::size_t i = 0; i < Devices; ++i)
        {
            if (answered.count(i) == 0)
            {
                client.Send(MakeRequest(static_cast<std::uint32_t>(i), KnownDevice(i)), "10.77.40.1");
            }
        }
        for (const auto round = Clock::now() + std::chrono::milliseconds(200); Clock::now() < round;)
        {
            const auto reply = client.Receive(std::chrono::milliseconds(50));
            if (reply && AnswersKnownDevice(reply->bytes, Devices))
            {
                answered.insert(VantrelTest::Xid(reply->bytes));
            }
            else if (reply)
            {
                ++wrongReplies; // an answer to the flood, or a wrong one
            }
        }
    }
    // The flood runs to its end (bounded in count and time) before the stop; whatever arrives until
    // a quiet moment after it is an answer to the flood.
    flood.join();
    for (int i = 0; i < 100000 && client.Receive(std::chrono::milliseconds(300)); ++i)
    {
        ++wrongReplies;
    }
    EXPECT_TRUE(counting.server->IsRunning()) << "the flood ended the server";
    counting.server->Stop();

    EXPECT_EQ(answered.size(), Devices);
    EXPECT_EQ(wrongReplies, 0U);
    // The stop was seen by the loop itself (stopped callbacks ran), not forced by termination.
    EXPECT_EQ(counting.stopped.load(), 1);
    EXPECT_FALSE(logs.Contains("Cannot allocate socket"));
}
