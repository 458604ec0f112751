// Reliability of the BOOTP server: start and stop cycles with traffic in flight leave no thread and
// no descriptor behind, and a flood of valid, invalid and unknown requests from another namespace
// neither crashes it nor keeps a known device from its answer nor slows its stop down to a kill.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Support/BootpRequest.hpp"
#include "Support/PeerNamespace.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <random>
#include <set>
#include <thread>
#include <vector>

using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelTest::Bytes;
using VantrelTest::MakeRequest;
using VantrelTest::Xid;

namespace
{

using Clock = std::chrono::steady_clock;

// A UDP socket; bound to `port` on any address when `port` is not 0.
int OpenSocket(int port)
{
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
    if (port != 0)
    {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(static_cast<std::uint16_t>(port));
        if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0)
        {
            ::close(descriptor);
            return -1;
        }
    }
    return descriptor;
}

void SendTo(int descriptor, const Bytes& message, const char* address, int port)
{
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<std::uint16_t>(port));
    server.sin_addr.s_addr = inet_addr(address);
    ::sendto(descriptor, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&server), sizeof(server));
}

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

// Anything but an answerable request of a known device: unknown devices, replies, other hardware
// types, every hlen but 6, and datagrams of any length from empty to oversized.
Bytes Hostile(std::mt19937& random, std::uint32_t xid)
{
    Bytes message = MakeRequest(xid, MacAddress(0x02, 0x66, static_cast<std::uint8_t>(random()), 0, 0, 1));
    switch (random() % 6)
    {
    case 0: // unknown device, otherwise a proper request
        break;
    case 1: // a known device, but a reply
        message = MakeRequest(xid, KnownDevice(random() % 8));
        message[0] = 2;
        break;
    case 2: // a known device, but not Ethernet or not 6 bytes long
        message = MakeRequest(xid, KnownDevice(random() % 8));
        message[random() % 2 + 1] = static_cast<std::uint8_t>(random() % 2 ? 0 : 7 + random() % 249);
        break;
    case 3: // truncated: too short to hold the hardware address at all. Not a request, since a short
            // request is deliberately completed from what earlier datagrams left in the buffer.
        message.resize(random() % 34);
        if (!message.empty())
        {
            message[0] = 3;
        }
        break;
    case 4: // oversized: more than the server's 700-byte buffer
        message.resize(700 + random() % 800, static_cast<std::uint8_t>(random()));
        break;
    default: // random bytes of random length
        message.resize(random() % 700);
        for (auto& byte : message)
        {
            byte = static_cast<std::uint8_t>(random());
        }
        if (message.size() > 2 && message[0] == 1 && message[1] == 1 && message[2] == 6)
        {
            message[0] = 3;
        }
        break;
    }
    return message;
}

} // namespace

TEST(BootpServerReliabilityTest, StartAndStopTwoHundredTimesWithTrafficInFlightLeavesNothingBehind)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    VantrelTest::LogCapture logs(3);
    BootpServerSettings settings;
    settings.localAddress = IpAddress::Parse("127.0.0.1");
    settings.localPort = 6767;
    settings.ipConfigurations.insert({KnownDevice(0), KnownAddress(0)});
    BootpServer server(settings);
    std::atomic<int> started{0};
    std::atomic<int> stopped{0};
    std::atomic<int> assigned{0};
    server.startedCallbacks.push_back([&](BootpServer&) { ++started; });
    server.stoppedCallbacks.push_back([&](BootpServer&) { ++stopped; });
    server.assignedCallbacks.push_back([&](BootpServer&, MacAddress&, IpAddress&) { ++assigned; });

    // Known requests and junk, sent without pause for as long as the cycles last (bounded).
    const int descriptor = OpenSocket(0);
    std::atomic<bool> sending{true};
    std::thread sender([&] {
        std::mt19937 random(7);
        const auto deadline = Clock::now() + std::chrono::seconds(90);
        for (std::uint32_t i = 0; sending && Clock::now() < deadline; ++i)
        {
            SendTo(descriptor, i % 2 == 0 ? MakeRequest(i, KnownDevice(0)) : Hostile(random, i), "127.0.0.1", 6767);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    const std::size_t descriptorsBefore = VantrelTest::CountOpenDescriptors();

    constexpr int Cycles = 200;
    for (int cycle = 0; cycle < Cycles; ++cycle)
    {
        server.Start();
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (started.load() <= cycle && Clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        ASSERT_EQ(started.load(), cycle + 1) << "cycle " << cycle << " never listened";
        // Let a few datagrams arrive, so that the stop meets a server at work.
        std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 3));
        server.Stop();
        ASSERT_FALSE(server.IsRunning());
    }
    sending = false;
    sender.join();

    const std::size_t threadsAfter = VantrelTest::WaitForThreadCount(threadsBefore - 1);
    const std::size_t descriptorsAfter = VantrelTest::CountOpenDescriptors();
    ::close(descriptor);
    std::cout << "BOOTP start/stop cycles: " << Cycles << ", replies built: " << assigned.load()
              << ", threads before/after: " << threadsBefore << "/" << threadsAfter + 1
              << ", descriptors before/after: " << descriptorsBefore << "/" << descriptorsAfter << std::endl;
    ::testing::Test::RecordProperty("cycles", Cycles);
    ::testing::Test::RecordProperty("replies", assigned.load());
    ::testing::Test::RecordProperty("leakedThreads", static_cast<int>(threadsAfter + 1) - static_cast<int>(threadsBefore));
    ::testing::Test::RecordProperty("leakedDescriptors",
                                    static_cast<int>(descriptorsAfter) - static_cast<int>(descriptorsBefore));
    // The sender thread has ended since the first count.
    EXPECT_EQ(threadsAfter, threadsBefore - 1);
    EXPECT_EQ(descriptorsAfter, descriptorsBefore);
    // Every stop ended the loop by its flag: the stopped callbacks ran, no thread was killed.
    EXPECT_EQ(stopped.load(), Cycles);
    EXPECT_GT(assigned.load(), 0) << "no request was ever handled: the traffic was not in flight";
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
    BootpServerSettings settings;
    settings.localAddress = IpAddress::Parse("10.77.40.1");
    for (std::size_t i = 0; i < Devices; ++i)
    {
        settings.ipConfigurations.insert({KnownDevice(i), KnownAddress(i)});
    }
    BootpServer server(settings);
    server.SetBootfile("boot.bin");
    std::atomic<int> stopped{0};
    std::atomic<int> started{0};
    server.startedCallbacks.push_back([&](BootpServer&) { ++started; });
    server.stoppedCallbacks.push_back([&](BootpServer&) { ++stopped; });
    server.Start();
    for (int i = 0; i < 500 && started == 0; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(started.load(), 1);

    // A socket made inside the peer namespace stays there. The flood goes out through it too, so
    // that an answer to the flood would arrive where it is looked for.
    int client = -1;
    ASSERT_TRUE(peer.Within([&] { client = OpenSocket(68); }));
    ASSERT_GE(client, 0);

    constexpr std::uint32_t FloodXid = 0xF1000000U;
    std::atomic<bool> flooding{true};
    std::atomic<std::size_t> floodSent{0};
    std::thread flood([&] {
        std::mt19937 random(11);
        const auto deadline = Clock::now() + std::chrono::seconds(20);
        for (std::uint32_t i = 0; i < 30000 && flooding && Clock::now() < deadline; ++i)
        {
            SendTo(client, Hostile(random, FloodXid + i), "10.77.40.1", 67);
            ++floodSent;
            if (i % 64 == 63)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });

    // Each known device asks like a real client, in the middle of the flood: again every 200 ms until
    // it has its answer.
    for (int i = 0; i < 2000 && floodSent < 3000; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::set<std::size_t> answered;
    std::size_t wrongReplies = 0;
    std::size_t requests = 0;
    std::size_t floodAtLastAnswer = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (answered.size() < Devices && Clock::now() < deadline)
    {
        for (std::size_t i = 0; i < Devices; ++i)
        {
            if (answered.count(i) == 0)
            {
                SendTo(client, MakeRequest(static_cast<std::uint32_t>(i), KnownDevice(i)), "10.77.40.1", 67);
                ++requests;
            }
        }
        const auto round = Clock::now() + std::chrono::milliseconds(200);
        pollfd wait{client, POLLIN, 0};
        while (Clock::now() < round && ::poll(&wait, 1, 50) >= 0)
        {
            if ((wait.revents & POLLIN) == 0)
            {
                continue;
            }
            Bytes reply(1500);
            const ssize_t received = ::recv(client, reply.data(), reply.size(), 0);
            if (received < 300)
            {
                ++wrongReplies;
                continue;
            }
            const std::uint32_t xid = Xid(reply);
            std::uint32_t yiaddr = 0;
            std::memcpy(&yiaddr, &reply[16], sizeof(yiaddr));
            const MacAddress device = KnownDevice(xid);
            if (xid < Devices && reply[0] == 2 && yiaddr == KnownAddress(xid).GetValue() &&
                std::equal(device.bytes.begin(), device.bytes.end(), reply.begin() + 28))
            {
                answered.insert(xid);
                floodAtLastAnswer = floodSent;
            }
            else
            {
                ++wrongReplies; // an answer to the flood, or a wrong one
            }
        }
    }
    // The flood runs to its end (bounded in count and time) before the stop; whatever arrives until
    // a quiet moment after it is an answer to the flood.
    flood.join();
    flooding = false;
    pollfd wait{client, POLLIN, 0};
    while (::poll(&wait, 1, 300) == 1)
    {
        Bytes reply(1500);
        if (::recv(client, reply.data(), reply.size(), 0) >= 0)
        {
            ++wrongReplies;
        }
    }

    EXPECT_TRUE(server.IsRunning()) << "the flood ended the server";
    server.Stop();
    ::close(client);

    std::cout << "BOOTP flood: hostile datagrams " << floodSent.load() << ", known devices " << Devices
              << ", answered " << answered.size() << " (the last after " << floodAtLastAnswer
              << " hostile datagrams), known requests sent " << requests << ", wrong replies " << wrongReplies
              << std::endl;
    ::testing::Test::RecordProperty("floodDatagrams", static_cast<int>(floodSent.load()));
    ::testing::Test::RecordProperty("knownDevicesAnswered", static_cast<int>(answered.size()));
    ::testing::Test::RecordProperty("wrongReplies", static_cast<int>(wrongReplies));
    EXPECT_EQ(answered.size(), Devices);
    EXPECT_EQ(wrongReplies, 0U);
    // The stop was seen by the loop itself (stopped callbacks ran), not forced by termination.
    EXPECT_EQ(stopped.load(), 1);
    EXPECT_FALSE(server.IsRunning());
    EXPECT_FALSE(logs.Contains("Cannot allocate socket"));
}
