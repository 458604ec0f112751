// Tests of the TFTP server engine: client filter, sessions and their time-outs, log lines,
// concurrent clients and the server's end while traffic is in flight.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "TftpTestSupport.hpp"

#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace
{

using namespace VantrelTest;
using namespace VantrelTest::Tftp;
using namespace std::chrono_literals;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Socket;

std::uint32_t Value(const char* address)
{
    return IpAddress::Parse(address).GetValue();
}

TEST_F(TftpServerTest, OnlyClientsInAnAllowedRangeAreServed)
{
    auto settings = DefaultSettings();
    settings.AllowedClients = {{Value("127.0.0.1"), Value("127.0.0.10")}, {Value("127.0.0.40"), Value("127.0.0.40")}};
    StartServer(settings);
    WriteFile(home / "f.txt", "served");

    UdpClient outside("127.0.0.20");
    outside.Send(Request(1, "f.txt"));
    EXPECT_FALSE(outside.Receive(300ms)) << "a refused client gets no reply";
    EXPECT_TRUE(logs->Contains("Client " + outside.Name() + " tried to get access but is not within the allowed range.", 6));
    EXPECT_EQ(logs->IndexOf("Create session: address=" + outside.Name()), -1);

    for (const char* address : {"127.0.0.1", "127.0.0.10", "127.0.0.40"})
    {
        UdpClient inside(address);
        EXPECT_EQ(inside.Download("f.txt"), "served") << address;
    }
    // The bounds compare the values as held in network byte order: on this machine that puts
    // 127.0.1.5 between 127.0.0.1 and 127.0.0.10. Deliberate.
    UdpClient byRepresentation("127.0.1.5");
    EXPECT_EQ(byRepresentation.Download("f.txt"), "served");
}

TEST_F(TftpServerTest, PacketFromAnUnknownClientIsUnexpectedAndItsSessionReaped)
{
    StartServer();
    UdpClient client;
    for (int round = 0; round < 2; ++round)
    {
        client.Send(Data(1, "stray"));
        EXPECT_EQ(client.Receive()->raw, Error(4, "Unexpected packet."));
        std::this_thread::sleep_for(50ms);
    }
    // Each stray packet made a fresh session: the idle one was reaped in between.
    EXPECT_EQ(logs->Count("Create session: address=" + client.Name()), 2U);
    EXPECT_TRUE(logs->Contains("Create session: address=" + client.Name(), 6));
}

TEST_F(TftpServerTest, ClientErrorIsSentBackUntilTheSessionTimesOut)
{
    StartServer(); // time-out 1 s, 2 retries
    WriteFile(home / "f.bin", PatternBytes(3000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1); // one send so far
    const std::string error = Error(3, "disk full here");
    client.Send(error);
    ASSERT_TRUE(logs->WaitFor("Client " + client.Name() + " has sent error: code=3, message=disk full here"));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " has sent error: code=3, message=disk full here", 3));
    // The session stays in its transfer; its expired re-send returns the client's own packet while
    // the send count is at most 2, then the session times out.
    EXPECT_EQ(client.Receive()->raw, error);
    EXPECT_EQ(client.Receive()->raw, error);
    EXPECT_EQ(client.Receive()->raw, Error(0, "Timeout."));
    EXPECT_TRUE(logs->Contains("Session " + client.Name() + " timed out\n", 6));
    EXPECT_FALSE(client.Receive(1500ms)) << "nothing more after the time-out";
}

TEST_F(TftpServerTest, StalledSessionWithFewSendsIsKept)
{
    auto settings = DefaultSettings();
    settings.MaxRetries = 5;
    StartServer(settings);
    WriteFile(home / "f.bin", PatternBytes(3000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    // Expired, but nothing to re-send and too few sends to give up: kept indefinitely. Deliberate.
    EXPECT_FALSE(client.Receive(2500ms));
    EXPECT_EQ(logs->IndexOf("Session " + client.Name() + " timed out\n"), -1);
    client.Send(Ack(1));
    const auto reply = client.Receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->opCode, 3);
    EXPECT_EQ(reply->number, 2);
}

TEST_F(TftpServerTest, StalledTransferWithManySendsTimesOut)
{
    auto settings = DefaultSettings();
    settings.MaxRetries = 1;
    StartServer(settings);
    WriteFile(home / "f.bin", PatternBytes(3000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    client.Send(Ack(1));
    ASSERT_EQ(client.Receive()->number, 2);
    const auto sent = std::chrono::steady_clock::now();
    EXPECT_EQ(client.Receive()->raw, Error(0, "Timeout."));
    EXPECT_GE(std::chrono::steady_clock::now() - sent, 900ms) << "not before the session's time-out";
    EXPECT_TRUE(logs->Contains("Session " + client.Name() + " timed out\n", 6));
    client.Send(Ack(2));
    EXPECT_EQ(client.Receive()->body, "Unexpected packet.") << "the timed-out session is gone";
}

TEST_F(TftpServerTest, IdleServerTimesASessionOutWithinOneReceiveTimeoutOfItsOwn)
{
    auto settings = DefaultSettings();
    settings.MaxRetries = 0;
    StartServer(settings); // time-out 1 s
    WriteFile(home / "f.bin", PatternBytes(3000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    const auto sent = std::chrono::steady_clock::now();
    // Nothing arrives any more: only receives that give up let the passes age the session.
    EXPECT_EQ(client.Receive()->raw, Error(0, "Timeout."));
    const auto slack = 300ms; // scheduling on a loaded machine
    EXPECT_LT(std::chrono::steady_clock::now() - sent, 1s + Socket::ReceiveTimeout + slack);
}

TEST_F(TftpServerTest, SecondServerCannotBindAndServesNothing)
{
    StartServer();
    WriteFile(home / "f.txt", "first");
    TestServer second(DefaultSettings());
    second.Start();
    ASSERT_TRUE(logs->WaitFor("Failed to bind socket 98"));
    EXPECT_TRUE(logs->Contains("Failed to bind socket 98", 3));
    EXPECT_TRUE(second.IsRunning()) << "a failed bind does not stop the server";
    second.Stop();
    UdpClient client;
    EXPECT_EQ(client.Download("f.txt"), "first");
}

TEST_F(TftpServerTest, StartUpAndPerPacketLogLines)
{
    auto settings = DefaultSettings();
    settings.ThreadCount = 3;
    StartServer(settings);
    EXPECT_TRUE(logs->Contains("Starting server, threadpool=3", 6));
    WriteFile(home / "f.bin", PatternBytes(600));
    UdpClient client;
    ASSERT_TRUE(client.Download("f.bin"));
    ASSERT_TRUE(logs->WaitFor("Use session: address=" + client.Name() + ", status=1"));
    EXPECT_TRUE(logs->Contains("Use session: address=" + client.Name() + ", status=1", 8));
    EXPECT_TRUE(logs->Contains("Send packet to " + client.Name() + ": len=516, opcode=3", 8));
    EXPECT_TRUE(logs->Contains("Send packet to " + client.Name() + ": len=92, opcode=3", 8));

    settings.Verbose = true;
    StopServer();
    StartServer(settings);
    UdpClient verbose;
    ASSERT_TRUE(verbose.Download("f.bin"));
    ASSERT_TRUE(logs->WaitFor("Use session: address=" + verbose.Name() + ", status=1"));
    EXPECT_TRUE(logs->Contains("Use session: address=" + verbose.Name() + ", status=1", 6));
    EXPECT_TRUE(logs->Contains("Send packet to " + verbose.Name() + ": len=516, opcode=3", 6));
}

TEST_F(TftpServerTest, ServesAgainAfterStopAndStart)
{
    StartServer();
    WriteFile(home / "f.txt", "again");
    UdpClient client;
    EXPECT_EQ(client.Download("f.txt"), "again");
    std::this_thread::sleep_for(50ms);
    server->Stop();
    EXPECT_FALSE(server->IsRunning());
    logs->Clear();
    server->Start();
    ASSERT_TRUE(logs->WaitFor("Start main thread work"));
    EXPECT_EQ(logs->IndexOf("Failed to bind socket 98"), -1);
    UdpClient other;
    EXPECT_EQ(other.Download("f.txt"), "again");
}

TEST_F(TftpServerTest, ManyClientsAtOnceTransferExactBytes)
{
    auto settings = DefaultSettings();
    settings.Timeout = 10;
    StartServer(settings);
    constexpr int Clients = 24;
    std::vector<std::string> contents;
    for (int i = 0; i < Clients; ++i)
    {
        contents.push_back(PatternBytes(static_cast<std::size_t>(3000 + i * 1531), static_cast<unsigned>(i)));
        if (i % 2 == 0)
        {
            WriteFile(home / ("down" + std::to_string(i)), contents.back());
        }
    }
    std::vector<std::optional<std::string>> downloaded(Clients);
    std::vector<char> uploaded(Clients, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < Clients; ++i)
    {
        threads.emplace_back([&, i] {
            UdpClient client;
            if (i % 2 == 0)
            {
                downloaded[static_cast<std::size_t>(i)] = client.Download("down" + std::to_string(i));
            }
            else
            {
                uploaded[static_cast<std::size_t>(i)] =
                    client.Upload("up" + std::to_string(i), contents[static_cast<std::size_t>(i)]) ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads)
    {
        thread.join();
    }
    for (int i = 0; i < Clients; ++i)
    {
        const auto index = static_cast<std::size_t>(i);
        if (i % 2 == 0)
        {
            EXPECT_EQ(downloaded[index], contents[index]) << "download " << i;
        }
        else
        {
            EXPECT_TRUE(uploaded[index]) << "upload " << i;
            EXPECT_EQ(ReadFile(home / ("up" + std::to_string(i))), contents[index]) << "upload " << i;
        }
    }
}

TEST_F(TftpServerTest, DestroyingARunningServerWithTrafficInFlightIsClean)
{
    // Counted after the first round, so that helper threads of the runtime that start with the
    // first thread do not count; each further round must leave no thread behind.
    std::size_t threadsBefore = 0;
    WriteFile(home / "f.bin", PatternBytes(5000));
    for (int round = 0; round < 3; ++round)
    {
        auto settings = DefaultSettings();
        settings.ThreadCount = 2;
        // A plain server object: its own destructor stops it while datagrams are being handled.
        auto running = std::make_unique<VantrelBase::Net::Tftp::TftpServer>(settings);
        logs->Clear();
        running->Start();
        ASSERT_TRUE(logs->WaitFor("Start main thread work"));
        std::atomic<bool> stop{false};
        std::vector<std::thread> senders;
        for (int s = 0; s < 4; ++s)
        {
            senders.emplace_back([&stop] {
                UdpClient client;
                // Bounded: at most 2000 datagrams, or until the server is gone.
                for (int i = 0; i < 2000 && !stop; ++i)
                {
                    client.Send(i % 3 == 0 ? Request(1, "f.bin") : (i % 3 == 1 ? Ack(1) : Request(2, "w.bin")));
                    client.Receive(1ms);
                }
            });
        }
        ASSERT_TRUE(logs->WaitUntil([](const auto& records) { return records.size() > 50; }));
        running.reset();
        stop = true;
        for (auto& sender : senders)
        {
            sender.join();
        }
        if (round == 0)
        {
            threadsBefore = VantrelTest::WaitForThreadCount(1);
        }
    }
    EXPECT_LE(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore) << "no thread outlives the server";
    // The port was released with the server.
    StartServer();
    EXPECT_EQ(logs->IndexOf("Failed to bind socket 98"), -1);
    UdpClient client;
    EXPECT_EQ(client.Download("f.bin"), PatternBytes(5000));
}

} // namespace
