// Reliability of the TFTP server: start and stop cycles with traffic in flight leave no thread and
// no descriptor behind, and thirty tftp-hpa clients downloading and uploading at once through a link
// that drops datagrams at random never get a corrupted file, while the server answers afterwards and
// gives back its threads and descriptors once the sessions have aged out.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Support/PeerNamespace.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using Qib::System::Commons::Threading::Thread;
using VantrelBase::Net::IServer;
using VantrelBase::Net::Tftp::TftpServer;
using VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

namespace
{

using Clock = std::chrono::steady_clock;

// A folder under /tmp, removed with its contents at the end.
class Scratch
{
public:
    Scratch()
    {
        char pattern[] = "/tmp/vantrel-reliability-XXXXXX";
        path = ::mkdtemp(pattern);
    }
    ~Scratch()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    fs::path operator/(const std::string& name) const { return path / name; }

private:
    fs::path path;
};

std::string Pattern(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    std::mt19937 random(seed);
    for (auto& byte : bytes)
    {
        byte = static_cast<char>(random());
    }
    return bytes;
}

void WriteFile(const fs::path& path, const std::string& contents)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

bool ReadFile(const fs::path& path, std::string& contents)
{
    std::error_code error;
    const auto size = fs::file_size(path, error);
    std::ifstream stream(path, std::ios::binary);
    if (error || !stream)
    {
        return false;
    }
    contents.assign(static_cast<std::size_t>(size), '\0');
    stream.read(contents.data(), static_cast<std::streamsize>(size));
    return static_cast<std::uintmax_t>(stream.gcount()) == size;
}

std::size_t ResidentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
    {
        if (line.rfind("VmRSS:", 0) == 0)
        {
            return std::strtoul(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

TftpServerSettings Settings(const fs::path& home)
{
    TftpServerSettings settings;
    settings.HomePaths = {{"/", home.string()}};
    settings.ReadEnabled = true;
    settings.WriteEnabled = true;
    settings.OverwriteEnabled = false;
    // A silent session is examined after 1 s and, with no retries, given up then: a stalled transfer
    // (the server never re-sends DATA) would otherwise be kept for as long as it has sent no more
    // than the retry count.
    settings.Timeout = 1;
    settings.MaxRetries = 0;
    settings.ThreadCount = 4;
    return settings;
}

// Starts the server and waits until its main thread has run its start-up (the socket is bound).
bool StartAndWait(TftpServer& server, std::atomic<int>& started)
{
    const int before = started;
    server.Start();
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (started == before && Clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return started != before;
}

std::string Datagram(std::uint16_t opCode, const std::string& body)
{
    std::string datagram;
    datagram += static_cast<char>(opCode >> 8);
    datagram += static_cast<char>(opCode & 0xFF);
    return datagram + body;
}

} // namespace

class TftpServerReliabilityTest : public ::testing::Test
{
protected:
    void TearDown() override { Thread::SetJoinLimit(1000); }
};

TEST_F(TftpServerReliabilityTest, StartAndStopTwoHundredTimesWithTrafficInFlightLeavesNothingBehind)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // The server's loop never ends by itself: every stop ends in termination after the join limit.
    Thread::SetJoinLimit(5);
    VantrelTest::LogCapture logs(3);
    Scratch scratch;
    WriteFile(scratch / "home/file.bin", Pattern(3000, 1));

    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_GE(descriptor, 0);
    std::atomic<bool> sending{true};
    std::atomic<std::size_t> replies{0};
    std::thread sender([&] {
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(69);
        server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string datagrams[] = {Datagram(1, std::string("file.bin") + '\0' + "octet" + '\0'),
                                         Datagram(4, std::string("\0\1", 2)), Datagram(3, std::string("\0\1xyz", 5)),
                                         Datagram(2, std::string("up/new.bin") + '\0' + "octet" + '\0'),
                                         Datagram(9, "junk")};
        const auto deadline = Clock::now() + std::chrono::seconds(120);
        for (std::size_t i = 0; sending && Clock::now() < deadline; ++i)
        {
            const std::string& datagram = datagrams[i % std::size(datagrams)];
            ::sendto(descriptor, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&server),
                     sizeof(server));
            char reply[600];
            while (::recv(descriptor, reply, sizeof(reply), 0) > 0)
            {
                ++replies;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    const std::size_t descriptorsBefore = VantrelTest::CountOpenDescriptors();

    constexpr int Cycles = 200;
    {
        TftpServer server(Settings(scratch / "home"));
        std::atomic<int> started{0};
        server.startedCallbacks.push_back([&](IServer&) { ++started; });
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
    const std::size_t threadsAfter = VantrelTest::WaitForThreadCount(threadsBefore - 1);
    const std::size_t descriptorsAfter = VantrelTest::CountOpenDescriptors();
    ::close(descriptor);

    const int leakedThreads = static_cast<int>(threadsAfter) - static_cast<int>(threadsBefore - 1);
    const int leakedDescriptors = static_cast<int>(descriptorsAfter) - static_cast<int>(descriptorsBefore);
    std::cout << "TFTP start/stop cycles: " << Cycles + 1 << ", replies seen by the sender: " << replies.load()
              << ", leaked threads: " << leakedThreads << ", leaked descriptors: " << leakedDescriptors << std::endl;
    RecordProperty("cycles", Cycles + 1);
    RecordProperty("replies", static_cast<int>(replies.load()));
    RecordProperty("leakedThreads", leakedThreads);
    RecordProperty("leakedDescriptors", leakedDescriptors);
    EXPECT_EQ(leakedThreads, 0);
    EXPECT_EQ(leakedDescriptors, 0);
    EXPECT_GT(replies.load(), 0U) << "the server never answered: the traffic was not in flight";
    EXPECT_FALSE(logs.Contains("Failed to bind socket 98"));
}

namespace
{

// One transfer of a tftp-hpa client in the peer namespace, with a short retransmission time-out
// (tftp -c cannot set it, so the commands go through standard input) and a bound on its run.
struct Transfer
{
    bool upload = false;
    std::string remote;
    fs::path local;
    std::string contents;
    bool reportedSuccess = false;
    std::string output;
};

void RunClient(const VantrelTest::PeerNamespace& peer, Transfer& transfer)
{
    const std::string command = std::string(transfer.upload ? "put " : "get ") +
                                (transfer.upload ? transfer.local.string() + " " + transfer.remote
                                                 : transfer.remote + " " + transfer.local.string());
    transfer.output = VantrelTest::ShellOutput("printf 'verbose\\nmode octet\\nrexmt 1\\ntimeout 3\\n" + command +
                                               "\\nquit\\n' | timeout 20 ip netns exec " + peer.Name() +
                                               " tftp 10.77.41.1 2>&1");
    // tftp-hpa exits 0 either way when driven through standard input; it tells in its output.
    const bool completed = transfer.output.find(transfer.upload ? "Sent " : "Received ") != std::string::npos;
    const bool failed = transfer.output.find("Transfer timed out") != std::string::npos ||
                        transfer.output.find("Error code") != std::string::npos ||
                        transfer.output.find("tftp: ") != std::string::npos;
    transfer.reportedSuccess = completed && !failed;
}

} // namespace

TEST_F(TftpServerReliabilityTest, ThirtyClientsThroughALossyLinkNeverGetACorruptedFile)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    ASSERT_EQ(VantrelTest::Shell("command -v tftp >/dev/null && command -v nft >/dev/null"), 0)
        << "needs tftp-hpa and nftables (scripts/setup installs them)";
    VantrelTest::PeerNamespace peer("rloss", "rloss0", "10.77.41.1/24", "rloss1", "10.77.41.2/24");
    ASSERT_EQ(peer.Error(), "");
    VantrelTest::LogCapture logs(3);
    Scratch scratch;
    const fs::path home = scratch / "home";
    // Sizes that matter: empty, below a block, exactly one block, several blocks and a bit. Uploads
    // avoid a last block of 508 to 511 bytes, which the server deliberately does not take as last.
    const std::vector<std::size_t> sizes{0, 100, 512, 1300, 3000, 6000};
    for (std::size_t i = 0; i < sizes.size(); ++i)
    {
        WriteFile(home / ("file" + std::to_string(i) + ".bin"), Pattern(sizes[i], static_cast<unsigned>(i)));
    }

    TftpServer server(Settings(home));
    std::atomic<int> started{0};
    server.startedCallbacks.push_back([&](IServer&) { ++started; });
    ASSERT_TRUE(StartAndWait(server, started));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    const std::size_t descriptorsBefore = VantrelTest::CountOpenDescriptors();
    const std::size_t memoryBefore = ResidentKilobytes();

    // Datagrams to and from the clients are dropped at random, in both directions, each where it
    // arrives (a drop on the way out would show the sender an error instead of a silent loss).
    constexpr int LossPercent = 4;
    const std::string drop = " numgen random mod 100 lt " + std::to_string(LossPercent) + " drop";
    const std::string table = "nft add table inet loss && "
                              "nft add chain inet loss in \"{ type filter hook input priority 0 ; }\" && "
                              "nft add rule inet loss in ip saddr ";
    ASSERT_EQ(peer.Run(table + "10.77.41.1 udp sport 69" + drop), 0);
    ASSERT_EQ(VantrelTest::Shell(table + "10.77.41.2 udp dport 69" + drop), 0);

    constexpr int Clients = 30;
    const char* configured = std::getenv("VANTREL_LOAD_SECONDS");
    const int seconds = configured != nullptr ? std::atoi(configured) : 30;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::vector<Transfer>> transfers(Clients);
    std::vector<std::thread> clients;
    for (int c = 0; c < Clients; ++c)
    {
        clients.emplace_back([&, c] {
            for (int n = 0; n < 1000 && Clock::now() < deadline; ++n)
            {
                Transfer transfer;
                transfer.upload = (c + n) % 2 == 0;
                const std::string name = "c" + std::to_string(c) + "-" + std::to_string(n) + ".bin";
                if (transfer.upload)
                {
                    std::size_t size = (static_cast<std::size_t>(c) * 977 + static_cast<std::size_t>(n) * 331) % 5000;
                    if (size % 512 >= 508)
                    {
                        size -= 8;
                    }
                    transfer.contents = Pattern(size, static_cast<unsigned>(c * 1000 + n + 100));
                    transfer.remote = "up/" + name;
                    transfer.local = scratch / ("out/" + name);
                    WriteFile(transfer.local, transfer.contents);
                }
                else
                {
                    const std::size_t file = static_cast<std::size_t>(c + n) % sizes.size();
                    transfer.remote = "file" + std::to_string(file) + ".bin";
                    transfer.contents = Pattern(sizes[file], static_cast<unsigned>(file));
                    transfer.local = scratch / ("in/" + name);
                    fs::create_directories(transfer.local.parent_path());
                }
                RunClient(peer, transfer);
                transfers[static_cast<std::size_t>(c)].push_back(std::move(transfer));
            }
        });
    }
    for (auto& client : clients)
    {
        client.join();
    }
    ASSERT_EQ(peer.Run("nft delete table inet loss"), 0);
    ASSERT_EQ(VantrelTest::Shell("nft delete table inet loss"), 0);

    // Every sessions ages out: a second of silence, then the next passes of the main thread.
    std::this_thread::sleep_for(std::chrono::seconds(3));

    std::size_t count = 0, succeeded = 0, failedAsReported = 0, corrupted = 0, uploadsLanded = 0;
    for (const auto& list : transfers)
    {
        for (const auto& transfer : list)
        {
            ++count;
            std::string contents;
            if (transfer.upload)
            {
                // Landed byte for byte, or not there at all (a ".part" may stay).
                const bool present = ReadFile(home / transfer.remote, contents);
                const bool intact = !present || contents == transfer.contents;
                const bool lost = transfer.reportedSuccess && !present;
                uploadsLanded += present ? 1 : 0;
                if (!intact || lost)
                {
                    ++corrupted;
                    ADD_FAILURE() << "upload " << transfer.remote << (lost ? " reported done but missing" : " corrupted")
                                  << "\n" << transfer.output;
                    continue;
                }
            }
            else if (transfer.reportedSuccess && (!ReadFile(transfer.local, contents) || contents != transfer.contents))
            {
                ++corrupted;
                ADD_FAILURE() << "download " << transfer.remote << " to " << transfer.local << " corrupted\n"
                              << transfer.output;
                continue;
            }
            (transfer.reportedSuccess ? succeeded : failedAsReported) += 1;
        }
    }

    // The server still serves new clients, and has given back what the sessions held.
    Transfer after;
    after.remote = "file4.bin";
    after.contents = Pattern(sizes[4], 4);
    after.local = scratch / "in/after.bin";
    RunClient(peer, after);
    std::string afterContents;
    EXPECT_TRUE(after.reportedSuccess && ReadFile(after.local, afterContents) && afterContents == after.contents)
        << after.output;
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const int leakedThreads = static_cast<int>(VantrelTest::WaitForThreadCount(threadsBefore)) -
                              static_cast<int>(threadsBefore);
    const int leakedDescriptors = static_cast<int>(VantrelTest::CountOpenDescriptors()) -
                                  static_cast<int>(descriptorsBefore);
    const std::size_t memoryAfter = ResidentKilobytes();

    std::cout << "TFTP loss and load: loss " << LossPercent << "% each way, " << seconds << " s, clients " << Clients
              << ", transfers " << count << ", succeeded " << succeeded << ", failed as reported "
              << failedAsReported << ", corrupted " << corrupted << ", uploads landed " << uploadsLanded
              << ", leaked threads " << leakedThreads << ", leaked descriptors " << leakedDescriptors
              << ", resident memory " << memoryBefore << " kB before, " << memoryAfter << " kB after" << std::endl;
    RecordProperty("clients", Clients);
    RecordProperty("transfers", static_cast<int>(count));
    RecordProperty("succeeded", static_cast<int>(succeeded));
    RecordProperty("failedAsReported", static_cast<int>(failedAsReported));
    RecordProperty("corrupted", static_cast<int>(corrupted));
    RecordProperty("leakedThreads", leakedThreads);
    RecordProperty("leakedDescriptors", leakedDescriptors);
    RecordProperty("residentKilobytesBefore", static_cast<int>(memoryBefore));
    RecordProperty("residentKilobytesAfter", static_cast<int>(memoryAfter));

    EXPECT_EQ(corrupted, 0U);
    EXPECT_GE(count, static_cast<std::size_t>(Clients));
    // The load is real: transfers got through, and the loss made some of them fail.
    EXPECT_GT(succeeded, 0U);
    EXPECT_EQ(leakedThreads, 0);
    EXPECT_EQ(leakedDescriptors, 0);
}
