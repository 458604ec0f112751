// Reliability of the TFTP server: start and stop cycles with traffic in flight leave no thread and
// no descriptor behind, and thirty tftp-hpa clients downloading and uploading at once through a link
// that drops datagrams at random never get a corrupted file, while the server answers afterwards and
// gives back its threads and descriptors once the sessions have aged out.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"
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

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace VantrelTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Qib::System::Commons::Threading::Thread;
using VantrelBase::Net::IServer;
using VantrelBase::Net::Tftp::TftpServer;
using VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

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
    std::atomic<bool> sending{true};
    std::atomic<std::size_t> replies{0};
    std::thread sender([&] {
        const std::string datagrams[] = {Request(1, "file.bin"), Ack(1), Data(1, "xyz"), Request(2, "up/new.bin"),
                                         std::string("\0\x09junk", 6)};
        const auto deadline = Clock::now() + 120s;
        for (std::size_t i = 0; sending && Clock::now() < deadline; ++i)
        {
            client.Send(datagrams[i % std::size(datagrams)]);
            while (client.Receive(0ms))
            {
                ++replies;
            }
            std::this_thread::sleep_for(300us);
        }
    });
    const std::size_t threadsBefore = CountThreads();
    const std::size_t descriptorsBefore = CountOpenDescriptors();
    constexpr int Cycles = 200;
    {
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
    }
    sending = false;
    sender.join();
    const auto threadsExpected = static_cast<int>(threadsBefore) - 1; // the sender has ended
    const int leakedThreads = static_cast<int>(WaitForThreadCount(threadsBefore - 1)) - threadsExpected;
    const int leakedDescriptors = static_cast<int>(CountOpenDescriptors()) - static_cast<int>(descriptorsBefore);
    std::cout << "TFTP start/stop cycles: " << Cycles + 1 << ", replies seen by the sender: " << replies.load()
              << ", leaked threads: " << leakedThreads << ", leaked descriptors: " << leakedDescriptors << std::endl;
    EXPECT_EQ(leakedThreads, 0);
    EXPECT_EQ(leakedDescriptors, 0);
    EXPECT_GT(replies.load(), 0U) << "the server never answered: the traffic was not in flight";
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
