// Tests of uploads to the TFTP server through a UDP client on loopback.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "TftpTestSupport.hpp"

#include "Support/PrivateTmpfs.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>


#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

namespace
{

using namespace VantrelTest;
using namespace VantrelTest::Tftp;
using namespace std::chrono_literals;

TEST_F(TftpServerTest, UploadsFilesOfBoundarySizes)
{
    StartServer();
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}, std::size_t{507}, std::size_t{512},
                                   std::size_t{1124}, std::size_t{70000}})
    {
        const std::string name = "up" + std::to_string(size) + ".bin";
        const std::string contents = PatternBytes(size, static_cast<unsigned>(size) + 3);
        UdpClient client;
        EXPECT_TRUE(client.Upload(name, contents)) << size;
        EXPECT_TRUE(logs->WaitFor("Received last packet of " + (home / name) + " from " + client.Name()));
        EXPECT_EQ(ReadFile(home / name), contents) << size;
        EXPECT_FALSE(Exists(home / name + ".part"));
        // The write request is logged as a read request without the mapped path. Deliberate.
        EXPECT_TRUE(logs->Contains("Client " + client.Name() + " read request `" + name + "` -> ``", 6));
    }
}

TEST_F(TftpServerTest, UploadGoesThroughThePartFile)
{
    StartServer();
    WriteFile(home / "t.bin", "old contents");
    UdpClient client;
    client.Send(Request(2, "t.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    const std::string first = PatternBytes(512);
    client.Send(Data(1, first));
    EXPECT_EQ(client.Receive()->raw, Ack(1));
    EXPECT_EQ(ReadFile(home / "t.bin.part"), first);
    EXPECT_EQ(ReadFile(home / "t.bin"), "old contents") << "the target is untouched until the last block";
    client.Send(Data(2, "end"));
    EXPECT_EQ(client.Receive()->raw, Ack(2));
    EXPECT_EQ(ReadFile(home / "t.bin"), first + "end");
    EXPECT_FALSE(Exists(home / "t.bin.part"));
    // The upload is complete: a further DATA meets no transfer.
    client.Send(Data(3, "x"));
    EXPECT_EQ(client.Receive()->body, "Unexpected packet.");
}

TEST_F(TftpServerTest, FinalBlockOf508To511BytesIsNotLast)
{
    // The last-block test measures the whole datagram: 508 to 511 payload bytes leave the upload
    // open until the time-out. Deliberate.
    StartServer();
    for (const std::size_t tail : {std::size_t{508}, std::size_t{510}, std::size_t{511}})
    {
        const std::string name = "tail" + std::to_string(tail) + ".bin";
        const std::string contents = PatternBytes(512 + tail, 5);
        UdpClient client;
        EXPECT_TRUE(client.Upload(name, contents)) << "every block is acknowledged";
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(Exists(home / name)) << tail;
        EXPECT_EQ(ReadFile(home / name + ".part"), contents) << tail;
        EXPECT_EQ(logs->IndexOf("Received last packet of " + (home / name) + " from " + client.Name()), -1);
    }
}

TEST_F(TftpServerTest, WriteDisabledIsAnAccessViolation)
{
    auto settings = DefaultSettings();
    settings.WriteEnabled = false;
    StartServer(settings);
    UdpClient client;
    client.Send(Request(2, "w.bin"));
    EXPECT_EQ(client.Receive()->raw, Error(2, "Access violation."));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " attempt to write " + (home / "w.bin") +
                                   ". Write is disabled.",
                               3));
    EXPECT_FALSE(Exists(home / "w.bin.part"));
}

TEST_F(TftpServerTest, OverwriteDisabledKeepsAnExistingFile)
{
    auto settings = DefaultSettings();
    settings.OverwriteEnabled = false;
    StartServer(settings);
    WriteFile(home / "keep.bin", "precious");
    UdpClient client;
    client.Send(Request(2, "keep.bin"));
    EXPECT_EQ(client.Receive()->raw, Error(6, "File already exists."));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " attempt to write " + (home / "keep.bin") +
                                   ". Overwrite is disabled.",
                               3));
    EXPECT_EQ(ReadFile(home / "keep.bin"), "precious");
    UdpClient other;
    EXPECT_TRUE(other.Upload("new.bin", "fresh")) << "new files are still accepted";
    EXPECT_EQ(ReadFile(home / "new.bin"), "fresh");
}

TEST_F(TftpServerTest, OverwriteCheckIsRepeatedForEveryDataPacket)
{
    auto settings = DefaultSettings();
    settings.OverwriteEnabled = false;
    StartServer(settings);
    UdpClient client;
    client.Send(Request(2, "race.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    WriteFile(home / "race.bin", "appeared meanwhile");
    client.Send(Data(1, "abc"));
    EXPECT_EQ(client.Receive()->raw, Error(6, "File already exists."));
    EXPECT_EQ(ReadFile(home / "race.bin"), "appeared meanwhile");
}

TEST_F(TftpServerTest, MissingDirectoriesAreCreatedBeforeTheFirstAcknowledge)
{
    StartServer();
    UdpClient client;
    client.Send(Request(2, "dir/sub/file.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    EXPECT_TRUE(std::filesystem::is_directory(home / "dir/sub"));
    client.Send(Data(1, "deep"));
    EXPECT_EQ(client.Receive()->raw, Ack(1));
    EXPECT_EQ(ReadFile(home / "dir/sub/file.bin"), "deep");
}

TEST_F(TftpServerTest, FailedPreparationRepliesWithTheReason)
{
    StartServer();
    WriteFile(home / "blocker", "a file where a folder is needed");
    UdpClient client;
    client.Send(Request(2, "blocker/file.bin"));
    const auto reply = client.Receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->opCode, 5);
    EXPECT_EQ(reply->number, 2);
    EXPECT_NE(reply->body.find("blocker"), std::string::npos) << reply->body;
    EXPECT_TRUE(logs->Contains("Failed to prepare for writing: " + reply->body, 3));
}

TEST_F(TftpServerTest, SecondWriteRequestDiscardsAnOldPartFile)
{
    StartServer();
    WriteFile(home / "again.bin.part", PatternBytes(3000, 9));
    UdpClient client;
    client.Send(Request(2, "again.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    EXPECT_FALSE(Exists(home / "again.bin.part"));
    client.Send(Data(1, PatternBytes(512, 1)));
    EXPECT_EQ(client.Receive()->raw, Ack(1));
    // The same client starts over: block 0 again, the half-written part file is gone.
    client.Send(Request(2, "again.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    EXPECT_FALSE(Exists(home / "again.bin.part"));
    client.Send(Data(1, "short"));
    EXPECT_EQ(client.Receive()->raw, Ack(1));
    EXPECT_EQ(ReadFile(home / "again.bin"), "short");
}

TEST_F(TftpServerTest, DuplicateAndOutOfSequenceData)
{
    StartServer();
    UdpClient client;
    client.Send(Request(2, "seq.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    const std::string block = PatternBytes(512, 4);
    for (std::uint16_t n = 1; n <= 4; ++n)
    {
        client.Send(Data(n, block));
        EXPECT_EQ(client.Receive()->raw, Ack(n));
    }
    client.Send(Data(3, PatternBytes(512, 8)));
    EXPECT_EQ(client.Receive()->raw, Ack(4)) << "a duplicate acknowledges the last block written";
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " has transmitted a duplicate block number", 5));
    EXPECT_EQ(ReadFile(home / "seq.bin.part")->size(), 4U * 512) << "nothing is written for a duplicate";
    client.Send(Data(6, "x"));
    EXPECT_EQ(client.Receive()->raw, Error(5, "Unknown transfer ID."));
    EXPECT_TRUE(logs->Contains("Client " + client.Name() + " has transmitted an unexpected block number: 6", 3));
    // That ended the upload: the block it was waiting for meets no transfer.
    client.Send(Data(5, "x"));
    EXPECT_EQ(client.Receive()->body, "Unexpected packet.");
    EXPECT_EQ(ReadFile(home / "seq.bin.part")->size(), 4U * 512);
}

TEST_F(TftpServerTest, AcknowledgeInAnUploadIsIllegal)
{
    StartServer();
    UdpClient client;
    client.Send(Request(2, "u.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    client.Send(Ack(0));
    EXPECT_EQ(client.Receive()->raw, Error(4, "Illegal operation."));
}

TEST_F(TftpServerTest, PartFileThatCannotBeOpenedIsAnAccessViolation)
{
    StartServer();
    UdpClient client;
    client.Send(Request(2, "blocked.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    std::filesystem::create_directory(home / "blocked.bin.part");
    client.Send(Data(1, "data"));
    EXPECT_EQ(client.Receive()->raw, Error(2, "Access violation."));
    EXPECT_TRUE(logs->Contains("Failed to open file for writing: " + (home / "blocked.bin.part"), 3));
    EXPECT_FALSE(Exists(home / "blocked.bin"));
    // The session went idle.
    std::this_thread::sleep_for(50ms);
    client.Send(Data(2, "data"));
    EXPECT_EQ(client.Receive()->body, "Unexpected packet.");
}

TEST_F(TftpServerTest, UploadBeyondTheBlockCounterNeverCompletes)
{
    // After block 65535 the expected number is 65536: wrapped blocks count as duplicates. Deliberate.
    TestServer direct(DefaultSettings());
    auto session = std::make_shared<VantrelBase::Net::Tftp::Session>(Qib::System::Commons::Net::IpAddress(), 1,
                                                                      nullptr, 1);
    session->status = 2;
    session->absoluteFilepath = home / "wrap.bin";
    session->blockNumber = 65535;
    const std::string data = Data(0, "tail");
    const auto reply = direct.HandleWriteRequest(
        VantrelBase::Net::Tftp::Packet::Create(reinterpret_cast<const unsigned char*>(data.data()), data.size()),
        session);
    ASSERT_TRUE(reply);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(reply->GetRawData()), reply->GetLength()), Ack(65535));
    EXPECT_FALSE(Exists(home / "wrap.bin.part"));
}

TEST_F(TftpServerTest, FullDiskEndsTheUploadWithoutATarget)
{
    TempDirectory small;
    const std::string reason = MountPrivateTmpfs(small.Path());
    if (!reason.empty())
    {
        GTEST_SKIP() << "needs a private tmpfs: " << reason;
    }
    auto settings = DefaultSettings();
    settings.HomePaths = {{"/", small.Path()}};
    StartServer(settings);
    UdpClient client;
    client.Send(Request(2, "big.bin"));
    EXPECT_EQ(client.Receive()->raw, Ack(0));
    const std::string contents = PatternBytes(200 * 1024, 3);
    std::optional<Reply> reply;
    std::uint16_t block = 1;
    for (; block <= 400; ++block)
    {
        client.Send(Data(block, contents.substr((block - 1U) * 512U, 512)));
        reply = client.Receive();
        if (!reply || reply->opCode != 4)
        {
            break;
        }
    }
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->raw, Error(2, "Access violation.")) << "a full disk is reported as code 2";
    EXPECT_LT(block, 200) << "the disk filled before the upload ended";
    EXPECT_TRUE(logs->Contains("Unable to write to file", 3));
    EXPECT_FALSE(Exists(small / "big.bin"));
    StopServer();
    ::umount2(small.Path().c_str(), MNT_DETACH);
}

} // namespace
