// Tests of downloads from the TFTP server through a UDP client on loopback.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "TftpTestSupport.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace
{

using namespace VantrelTest;
using namespace VantrelTest::Tftp;
using namespace std::chrono_literals;

TEST_F(TftpServerTest, DownloadsFilesOfBoundarySizes)
{
    StartServer();
    // Sizes around the block size, and one over 64 KiB.
    const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {
        {0, {0}}, {511, {511}}, {512, {512, 0}}, {513, {512, 1}}, {1024, {512, 512, 0}}};
    for (const auto& [size, blocks] : cases)
    {
        const std::string name = "file" + std::to_string(size) + ".bin";
        const std::string contents = PatternBytes(size, static_cast<unsigned>(size));
        WriteFile(home / name, contents);
        UdpClient client;
        std::vector<std::size_t> seen;
        EXPECT_EQ(client.Download(name, &seen), contents) << size;
        EXPECT_EQ(seen, blocks) << size;
        EXPECT_TRUE(logs->WaitFor("Sent last packet of " + (home / name) + " to " + client.Name()));
        EXPECT_TRUE(logs->Contains("Client " + client.Name() + " read request `" + name + "` -> `" + (home / name) + "`", 6));
    }
    const std::string large = PatternBytes(70000, 7);
    WriteFile(home / "large.bin", large);
    UdpClient client;
    std::vector<std::size_t> seen;
    EXPECT_EQ(client.Download("large.bin", &seen), large);
    EXPECT_EQ(seen.size(), 137U);
}

TEST_F(TftpServerTest, FinalAcknowledgeGetsUnexpectedPacket)
{
    StartServer();
    WriteFile(home / "small.txt", "hello");
    UdpClient client;
    ASSERT_EQ(client.Download("small.txt"), "hello");
    // The session went idle when the last DATA was built; the closing ACK finds no transfer. Deliberate.
    client.Send(Ack(1));
    const auto reply = client.Receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->opCode, 5);
    EXPECT_EQ(reply->number, 4);
    EXPECT_EQ(reply->body, "Unexpected packet.");
}

TEST_F(TftpServerTest, DuplicateAcknowledgeIsIgnored)
{
    StartServer();
    const std::string contents = PatternBytes(2000);
    WriteFile(home / "f.bin", contents);
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    client.Send(Ack(1));
    ASSERT_EQ(client.Receive()->number, 2);
    client.Send(Ack(1));
    EXPECT_FALSE(client.Receive(300ms)) << "nothing is re-sent for a duplicate";
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " has transmitted a duplicate block number", 5));
    client.Send(Ack(2));
    const auto third = client.Receive();
    ASSERT_TRUE(third);
    EXPECT_EQ(third->opCode, 3);
    EXPECT_EQ(third->number, 3);
    EXPECT_EQ(third->body, contents.substr(1024, 512));
}

TEST_F(TftpServerTest, AcknowledgeAheadEndsTheTransfer)
{
    StartServer();
    WriteFile(home / "f.bin", PatternBytes(3000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    client.Send(Ack(1));
    ASSERT_EQ(client.Receive()->number, 2);
    client.Send(Ack(5));
    const auto reply = client.Receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->raw, Error(5, "Unknown transfer ID."));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " has transmitted an unexpected block number: 5", 3));
    // The session is idle now and gets reaped: the next ACK is unexpected.
    std::this_thread::sleep_for(50ms);
    client.Send(Ack(2));
    EXPECT_EQ(client.Receive()->body, "Unexpected packet.");
}

TEST_F(TftpServerTest, MissingFileAndDisabledReading)
{
    StartServer();
    UdpClient client;
    client.Send(Request(1, "absent.bin"));
    EXPECT_EQ(client.Receive()->raw, Error(1, "File not found."));

    auto settings = DefaultSettings();
    settings.ReadEnabled = false;
    StopServer();
    StartServer(settings);
    WriteFile(home / "present.bin", "x");
    UdpClient other;
    other.Send(Request(1, "present.bin"));
    EXPECT_EQ(other.Receive()->raw, Error(2, "Access violation."));
}

TEST_F(TftpServerTest, PipesDevicesAndFoldersAreNotFoundAndServingGoesOn)
{
    // Opening a named pipe waits for a writer for ever; a device reads without end.
    ASSERT_EQ(::mkfifo((home / "pipe").c_str(), 0644), 0);
    std::filesystem::create_symlink("/dev/zero", home / "device");
    std::filesystem::create_directory(home / "folder");
    WriteFile(home / "f.bin", PatternBytes(700));
    StartServer();
    // More requests than the pool has threads.
    for (int round = 0; round < 5; ++round)
    {
        for (const char* name : {"pipe", "device", "folder"})
        {
            UdpClient client;
            client.Send(Request(1, name));
            const auto reply = client.Receive();
            ASSERT_TRUE(reply) << name;
            EXPECT_EQ(reply->raw, Error(1, "File not found.")) << name;
        }
    }
    UdpClient client;
    EXPECT_EQ(client.Download("f.bin"), PatternBytes(700));
}

TEST_F(TftpServerTest, FileDeletedDuringTransferIsNotFoundAtTheNextAcknowledge)
{
    StartServer();
    WriteFile(home / "f.bin", PatternBytes(2000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    std::remove((home / "f.bin").c_str());
    client.Send(Ack(1));
    EXPECT_EQ(client.Receive()->raw, Error(1, "File not found."));
}

TEST_F(TftpServerTest, OtherPacketInAReadIsInvalid)
{
    StartServer();
    WriteFile(home / "f.bin", PatternBytes(2000));
    UdpClient client;
    client.Send(Request(1, "f.bin"));
    ASSERT_EQ(client.Receive()->number, 1);
    client.Send(Data(1, "zz"));
    EXPECT_EQ(client.Receive()->raw, Error(4, "Invalid packet."));
}

TEST_F(TftpServerTest, NetAsciiAndUnknownModesServeTheBytesUnchanged)
{
    StartServer();
    const std::string contents = "line\r\nline\n\x00\xff";
    WriteFile(home / "t.txt", contents);
    for (const char* mode : {"netascii", "MAIL", "whatever"})
    {
        UdpClient client;
        client.Send(Request(1, "t.txt", mode));
        const auto reply = client.Receive();
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->body, contents) << mode;
    }
}

TEST_F(TftpServerTest, AliasesAndBackslashesReachTheirFolders)
{
    TempDirectory configs;
    WriteFile(configs / "x.xml", "<x/>");
    std::filesystem::create_directories(home / "sub");
    WriteFile(home / "sub" + "/f.txt", "sub file");
    auto settings = DefaultSettings();
    settings.HomePaths.push_back({"/cfg", configs.Path()});
    StartServer(settings);
    UdpClient client;
    EXPECT_EQ(client.Download("/cfg/x.xml"), "<x/>");
    UdpClient other;
    EXPECT_EQ(other.Download("sub\\f.txt"), "sub file");
}

TEST_F(TftpServerTest, ControlCharactersOfRequestedNamesAreCleanedInLogLines)
{
    StartServer();
    UdpClient client;
    client.Send(Request(1, "bad\x1b[2Jname\n"));
    EXPECT_EQ(client.Receive()->raw, Error(1, "File not found."));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " read request `bad?[2Jname?` -> `" + home.Path() +
                               "/bad?[2Jname?`"));
}

TEST_F(TftpServerTest, BlockCounterWrapsToTheStartOfTheFile)
{
    // Past 65535 blocks the 16-bit counter wraps and the seek goes back to the start. Deliberate.
    TestServer direct(DefaultSettings());
    const std::string head = PatternBytes(512, 1);
    const std::string far = PatternBytes(512, 2);
    {
        // A sparse file of 65537 blocks with known first and 65536th blocks.
        std::FILE* file = std::fopen((home / "huge.bin").c_str(), "wb");
        ASSERT_NE(file, nullptr);
        std::fwrite(head.data(), 1, head.size(), file);
        std::fseek(file, 65535L * 512, SEEK_SET);
        std::fwrite(far.data(), 1, far.size(), file);
        std::fwrite(head.data(), 1, 100, file);
        std::fclose(file);
    }
    auto session = std::make_shared<VantrelBase::Net::Tftp::Session>(Qib::System::Commons::Net::IpAddress(), 1,
                                                                      nullptr, 1);
    session->status = 1;
    session->absoluteFilepath = home / "huge.bin";
    session->blockNumber = 65535;
    auto step = [&](std::uint16_t block) {
        const std::string ack = Ack(block);
        const auto reply = direct.HandleReadRequest(
            VantrelBase::Net::Tftp::Packet::Create(reinterpret_cast<const unsigned char*>(ack.data()), ack.size()),
            session);
        return reply ? std::string(reinterpret_cast<const char*>(reply->GetRawData()), reply->GetLength())
                     : std::string();
    };
    EXPECT_EQ(step(65535), Data(0, far));
    EXPECT_EQ(session->blockNumber, 0);
    EXPECT_EQ(step(0), Data(1, head)) << "the next block is read from the start again";
}

} // namespace
