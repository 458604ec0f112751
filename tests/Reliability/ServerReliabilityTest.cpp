// Reliability of the servers: start and stop cycles with traffic in flight leave no thread and no
// descriptor behind; a flood of valid, invalid and unknown BOOTP requests from another namespace
// neither crashes the BOOTP server nor keeps a known device from its answer nor slows its stop down
// to a kill; thirty tftp-hpa clients downloading and uploading at once through a link that drops
// datagrams at random never get a corrupted file, while the TFTP server answers afterwards and gives
// back its threads and descriptors once the sessions have aged out.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/BootpEndpoint.hpp"
#include "Support/Concurrency.hpp"
#include "Support/Files.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/PeerNamespace.hpp"
#include "Support/ProcessStatus.hpp"
#include "Support/TempDirectory.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace VantrelTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Threading::Thread;
using VantrelBase::Net::IServer;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelBase::Net::Tftp::TftpServer;
using VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

constexpr int Cycles = 200;

// Runs `cycles` while another thread calls `sendOne` with a running count every 250 µs (for at most
// 120 s); then expects the threads and descriptors back where they were.
template <typename Cycle, typename SendOne>
void ExpectNothingLeftBehind(Cycle cycles, SendOne sendOne)
{
    std::atomic<bool> sending{true};
    std::thread traffic([&] {
        const auto deadline = Clock::now() + 120s;
        for (std::uint32_t i = 0; sending && Clock::now() < deadline; ++i)
        {
            sendOne(i);
            std::this_thread::sleep_for(250us);
        }
    });
    const std::size_t threadsBefore = CountThreads();
    const std::size_t descriptorsBefore = CountOpenDescriptors();
    cycles();
    sending = false;
    traffic.join();
    // The sender's thread has ended since the first count.
    EXPECT_EQ(WaitForThreadCount(threadsBefore - 1), threadsBefore - 1) << "threads leaked";
    EXPECT_EQ(CountOpenDescriptors(), descriptorsBefore) << "descriptors leaked";
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
        return Eventually([&] { return started > before; }, std::chrono::seconds(5));
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
    const std::uint32_t xid = Xid(reply);
    std::uint32_t yiaddr = 0;
    std::memcpy(&yiaddr, &reply[16], sizeof(yiaddr));
    const MacAddress device = KnownDevice(xid);
    return xid < devices && reply[0] == 2 && yiaddr == KnownAddress(xid).GetValue() &&
           std::equal(device.bytes.begin(), device.bytes.end(), reply.begin() + 28);
}

TEST(BootpServerReliabilityTest, StartAndStopTwoHundredTimesWithTrafficInFlightLeavesNothingBehind)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    LogCapture logs(3);
    CountingServer counting(1, "127.0.0.1", 6767);
    const BootpEndpoint sender;
    ASSERT_TRUE(sender.Ready());
    std::mt19937 random(7);
    ExpectNothingLeftBehind(
        [&] {
            for (int cycle = 0; cycle < Cycles; ++cycle)
            {
                ASSERT_TRUE(counting.StartAndWait()) << "cycle " << cycle << " never listened";
                std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 3));
                counting.server->Stop();
                ASSERT_FALSE(counting.server->IsRunning());
            }
        },
        [&](std::uint32_t i) {
            sender.Send(i % 2 == 0 ? MakeRequest(i, KnownDevice(0)) : Hostile(random, i), "127.0.0.1", 6767);
        });
    // Every stop ended the loop by its flag: the stopped callbacks ran, no thread was killed.
    EXPECT_EQ(counting.stopped.load(), Cycles);
    EXPECT_GT(counting.assigned.load(), 0) << "no request was ever handled: the traffic was not in flight";
    EXPECT_FALSE(logs.Contains("Cannot allocate socket"));
}

TEST(BootpServerReliabilityTest, FloodOfHostileRequestsStillAnswersEveryKnownDeviceAndStopsPromptly)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    PeerNamespace peer("rflood", "rflood0", "10.77.40.1/24", "rflood1", "10.77.40.2/24");
    ASSERT_EQ(peer.Error(), "");
    // The limited broadcast of the replies leads over the veth pair only.
    ASSERT_EQ(Shell("ip route add 255.255.255.255/32 dev rflood0"), 0);
    LogCapture logs(3);
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
    Eventually([&] { return floodSent >= 3000; }, std::chrono::seconds(2));
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
                answered.insert(Xid(reply->bytes));
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

// A silent session is examined after 1 s and, with no retries, given up then: a stalled transfer
// (the server never re-sends DATA) would otherwise be kept for as long as it has sent no more than
// the retry count.
TftpServerSettings Settings(const std::string& home)
{
    TftpServerSettings settings;
    settings.HomePaths = {{"/", home}};
    settings.WriteEnabled = true;
    settings.Timeout = 1;
    settings.MaxRetries = 0;
    settings.ThreadCount = 4;
    return settings;
}

// Starts the server and waits until its main thread has run its start-up (the socket is bound);
// `started` counts the start-ups.
bool StartAndWait(TftpServer& server, std::atomic<int>& started)
{
    if (server.startedCallbacks.empty())
    {
        server.startedCallbacks.push_back([&started](IServer&) { ++started; });
    }
    const int before = started;
    server.Start();
    return Eventually([&] { return started != before; }, 5s);
}

class TftpServerReliabilityTest : public ::testing::Test
{
protected:
    void SetUp() override { VANTREL_REQUIRE_NETWORK_NAMESPACE(); }
    void TearDown() override { Thread::SetJoinLimit(1000); }
    TempDirectory scratch;
};

TEST_F(TftpServerReliabilityTest, StartAndStopTwoHundredTimesWithTrafficInFlightLeavesNothingBehind)
{
    // The server's loop never ends by itself: every stop ends in termination after the join limit.
    Thread::SetJoinLimit(5);
    LogCapture logs(3);
    WriteFile(scratch / "file.bin", PatternBytes(3000));
    UdpClient client;
    std::size_t replies = 0; // on the sender's thread until it has ended
    const std::string datagrams[] = {Request(1, "file.bin"), Ack(1), Data(1, "xyz"), Request(2, "up/new.bin"),
                                     std::string("\0\x09junk", 6)};
    ExpectNothingLeftBehind(
        [&] {
            TftpServer server(Settings(scratch.Path()));
            std::atomic<int> started{0};
            for (int cycle = 0; cycle < Cycles; ++cycle)
            {
                ASSERT_TRUE(StartAndWait(server, started)) << "cycle " << cycle << " never started";
                std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 4));
                server.Stop();
                ASSERT_FALSE(server.IsRunning());
            }
            // Once more, destroyed while running: the destructor stops it.
            ASSERT_TRUE(StartAndWait(server, started));
        },
        [&](std::uint32_t i) {
            client.Send(datagrams[i % std::size(datagrams)]);
            while (client.Receive(0ms))
            {
                ++replies;
            }
        });
    std::cout << "TFTP start/stop cycles: " << Cycles + 1 << ", replies seen by the sender: " << replies << std::endl;
    EXPECT_GT(replies, 0U) << "the server never answered: the traffic was not in flight";
    EXPECT_FALSE(logs.Contains("Failed to bind socket 98"));
}

// One transfer of a tftp-hpa client in the peer namespace.
struct Transfer
{
    bool upload = false;
    std::string remote;
    std::string local;
    std::string contents;
    bool reportedSuccess = false;
    std::string output = {};
};

// tftp -c cannot set a short retransmission time-out, so the commands go through standard input;
// driven so, tftp-hpa exits 0 either way and tells in its output.
void RunClient(const PeerNamespace& peer, Transfer& transfer)
{
    const std::string command = transfer.upload ? "put " + transfer.local + " " + transfer.remote
                                                : "get " + transfer.remote + " " + transfer.local;
    transfer.output = ShellOutput("printf 'verbose\\nmode octet\\nrexmt 1\\ntimeout 3\\n" + command +
                                  "\\nquit\\n' | timeout 20 ip netns exec " + peer.Name() + " tftp 10.77.41.1 2>&1");
    const auto says = [&transfer](const char* text) { return transfer.output.find(text) != std::string::npos; };
    transfer.reportedSuccess = says(transfer.upload ? "Sent " : "Received ") && !says("Transfer timed out") &&
                               !says("Error code") && !says("tftp: ");
}

// Every download matches or its failure was reported; every upload lands whole or not at all (a
// ".part" may stay), and one reported as done is there.
bool Corrupted(const Transfer& transfer, const std::string& home)
{
    const auto landed = ReadFile(transfer.upload ? home + "/" + transfer.remote : transfer.local);
    const bool corrupted = transfer.upload ? (landed ? *landed != transfer.contents : transfer.reportedSuccess)
                                           : transfer.reportedSuccess && landed != transfer.contents;
    EXPECT_FALSE(corrupted) << transfer.remote << ":\n" << transfer.output;
    return corrupted;
}

TEST_F(TftpServerReliabilityTest, ThirtyClientsThroughALossyLinkNeverGetACorruptedFile)
{
    ASSERT_EQ(Shell("command -v tftp >/dev/null && command -v nft >/dev/null"), 0)
        << "needs tftp-hpa and nftables (scripts/setup installs them)";
    PeerNamespace peer("rloss", "rloss0", "10.77.41.1/24", "rloss1", "10.77.41.2/24");
    ASSERT_EQ(peer.Error(), "");
    LogCapture logs(3);
    const std::string home = scratch / "home";
    std::filesystem::create_directories(home + "/up");
    // Sizes that matter: empty, below a block, exactly one block, several blocks and a bit. Uploads
    // avoid a last block of 508 to 511 bytes, which the server deliberately does not take as last.
    const std::vector<std::size_t> sizes{0, 100, 512, 1300, 3000, 6000};
    for (std::size_t i = 0; i < sizes.size(); ++i)
    {
        WriteFile(home + "/file" + std::to_string(i), PatternBytes(sizes[i], static_cast<unsigned>(i)));
    }
    TftpServer server(Settings(home));
    std::atomic<int> started{0};
    ASSERT_TRUE(StartAndWait(server, started));
    std::this_thread::sleep_for(100ms);
    const std::size_t threadsBefore = CountThreads();
    const std::size_t descriptorsBefore = CountOpenDescriptors();

    // Datagrams to and from the clients are dropped at random, in both directions, each where it
    // arrives (a drop on the way out would show the sender an error instead of a silent loss).
    constexpr int LossPercent = 4;
    const std::string drop = " numgen random mod 100 lt " + std::to_string(LossPercent) + " drop";
    const std::string table = "nft add table inet loss && "
                              "nft add chain inet loss in \"{ type filter hook input priority 0 ; }\" && "
                              "nft add rule inet loss in ip saddr ";
    ASSERT_EQ(peer.Run(table + "10.77.41.1 udp sport 69" + drop), 0);
    ASSERT_EQ(Shell(table + "10.77.41.2 udp dport 69" + drop), 0);

    constexpr int Clients = 30;
    const char* configured = std::getenv("VANTREL_LOAD_SECONDS");
    const int seconds = configured != nullptr ? std::atoi(configured) : 30;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::vector<Transfer>> transfers(Clients);
    RunConcurrently(Clients, [&](std::size_t c) {
        for (std::size_t n = 0; n < 1000 && Clock::now() < deadline; ++n)
        {
            // Uploads and downloads alternate; an upload's contents are those of a file served.
            const std::size_t file = (c + n / 2) % sizes.size();
            const std::string name = "c" + std::to_string(c) + "-" + std::to_string(n);
            Transfer transfer{(c + n) % 2 == 0, "file" + std::to_string(file), scratch / name,
                              PatternBytes(sizes[file], static_cast<unsigned>(file))};
            if (transfer.upload)
            {
                transfer.remote = "up/" + name;
                WriteFile(transfer.local, transfer.contents);
            }
            RunClient(peer, transfer);
            transfers[c].push_back(std::move(transfer));
        }
    });
    ASSERT_EQ(peer.Run("nft delete table inet loss"), 0);
    ASSERT_EQ(Shell("nft delete table inet loss"), 0);
    // Every session ages out: a second of silence, then the next passes of the main thread.
    std::this_thread::sleep_for(3s);

    std::size_t count = 0, succeeded = 0, corrupted = 0, uploadsLanded = 0;
    for (const auto& list : transfers)
    {
        for (const auto& transfer : list)
        {
            const bool bad = Corrupted(transfer, home);
            ++count;
            corrupted += bad ? 1 : 0;
            succeeded += transfer.reportedSuccess && !bad ? 1 : 0;
            uploadsLanded += transfer.upload && Exists(home + "/" + transfer.remote) ? 1 : 0;
        }
    }
    // The server still serves new clients, and has given back what the sessions held.
    Transfer after{false, "file4", scratch / "after", PatternBytes(sizes[4], 4)};
    RunClient(peer, after);
    EXPECT_TRUE(after.reportedSuccess && ReadFile(after.local) == after.contents) << after.output;
    std::this_thread::sleep_for(2s);
    const int leakedThreads = static_cast<int>(WaitForThreadCount(threadsBefore)) - static_cast<int>(threadsBefore);
    const int leakedDescriptors = static_cast<int>(CountOpenDescriptors()) - static_cast<int>(descriptorsBefore);

    std::cout << "TFTP loss and load: loss " << LossPercent << "% each way, " << seconds << " s, clients " << Clients
              << ", transfers " << count << ", succeeded " << succeeded << ", failed as reported "
              << count - succeeded - corrupted << ", corrupted " << corrupted << ", uploads landed " << uploadsLanded
              << ", leaked threads " << leakedThreads << ", leaked descriptors " << leakedDescriptors << std::endl;
    EXPECT_EQ(corrupted, 0U);
    EXPECT_GE(count, std::size_t{Clients});
    EXPECT_GT(succeeded, 0U) << "no transfer got through";
    EXPECT_EQ(leakedThreads, 0);
    EXPECT_EQ(leakedDescriptors, 0);
}

} // namespace
