// Hostile input against a running TFTP server: malformed and oversized datagrams, absolute and
// parent-directory paths, uploads onto a directory and into a read-only folder.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "../VantrelBase/Net/Tftp/TftpTestSupport.hpp"
#include "Support/PrivateTmpfs.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

using namespace VantrelTest;
using namespace VantrelTest::Tftp;

class TftpHostileInputTest : public TftpServerTest
{
};

TEST_F(TftpHostileInputTest, MalformedDatagramsAreUnexpectedPacketsAndServingGoesOn)
{
    WriteFile(home / "file.bin", PatternBytes(700));
    StartServer();
    const std::string datagrams[] = {
        std::string(),                                   // empty
        std::string(1, '\0'),                            // shorter than an opcode
        std::string("\0\0", 2),                          // opcode 0
        std::string("\0\x09\0\x01", 4),                  // unknown opcode
        std::string("\0\x06\0\x01", 4),                  // option acknowledgement, never negotiated
        std::string("\xff\xff", 2),                      // opcode 65535
        std::string(1400, '\x5a'),                       // oversized junk
        std::string("\0\x03\0\x01", 4) + std::string(1000, 'd'), // oversized DATA of no transfer
    };
    for (const auto& datagram : datagrams)
    {
        UdpClient client;
        client.Send(datagram);
        const auto reply = client.Receive();
        ASSERT_TRUE(reply) << "no answer to a datagram of " << datagram.size() << " bytes";
        EXPECT_EQ(reply->raw, Error(4, "Unexpected packet.")) << datagram.size() << " bytes";
    }
    UdpClient client;
    EXPECT_EQ(client.Download("file.bin"), PatternBytes(700));
}

TEST_F(TftpHostileInputTest, OversizedDataBlockIsWrittenWhole)
{
    StartServer();
    UdpClient client;
    client.Send(Request(2, "big-block.bin"));
    ASSERT_EQ(client.Receive()->raw, Ack(0));
    // Deliberately no block size check: the payload is the datagram less its header, whatever its size.
    const std::string first = PatternBytes(1000, 2);
    client.Send(Data(1, first));
    ASSERT_EQ(client.Receive()->raw, Ack(1));
    client.Send(Data(2, "end"));
    ASSERT_EQ(client.Receive()->raw, Ack(2));
    EXPECT_EQ(ReadFile(home / "big-block.bin"), first + "end");
}

TEST_F(TftpHostileInputTest, AbsolutePathsAndBackslashesStayUnderTheHomeFolder)
{
    std::filesystem::create_directories(home / "etc");
    WriteFile(home / "etc/hosts", "inside");
    StartServer();
    UdpClient client;
    EXPECT_EQ(client.Download("/etc/hosts"), "inside");
    UdpClient backslashes;
    EXPECT_EQ(backslashes.Download("\\etc\\hosts"), "inside");
    // The system's own /etc/passwd is not reached: the name is looked up under the home folder.
    UdpClient system;
    system.Send(Request(1, "/etc/passwd"));
    EXPECT_EQ(system.Receive()->raw, Error(1, "File not found."));
}

TEST_F(TftpHostileInputTest, ParentComponentsLeaveTheHomeFolder)
{
    // Deliberate, and a documented risk: ".." is passed on, so a client reaches the home folder's
    // parent. Deployments confine the server with allowed clients and a dedicated user.
    TempDirectory outer;
    const std::string inner = outer / "home";
    std::filesystem::create_directories(inner);
    WriteFile(outer / "outside.txt", "secret");
    auto settings = DefaultSettings();
    settings.HomePaths = {{"/", inner}};
    StartServer(settings);
    UdpClient reader;
    EXPECT_EQ(reader.Download("../outside.txt"), "secret");
    UdpClient writer;
    EXPECT_TRUE(writer.Upload("..\\escaped.bin", "planted"));
    EXPECT_EQ(ReadFile(outer / "escaped.bin"), "planted");
}

TEST_F(TftpHostileInputTest, UploadOntoADirectoryIsAcknowledgedButLandsOnlyInThePartFile)
{
    std::filesystem::create_directories(home / "dir");
    WriteFile(home / "dir/kept.txt", "kept");
    StartServer();
    UdpClient client;
    // Every block is acknowledged; the final move onto the directory fails unseen by the client.
    EXPECT_TRUE(client.Upload("dir", "payload"));
    EXPECT_TRUE(std::filesystem::is_directory(home / "dir"));
    EXPECT_EQ(ReadFile(home / "dir/kept.txt"), "kept");
    EXPECT_EQ(ReadFile(home / "dir.part"), "payload");
}

TEST_F(TftpHostileInputTest, ReadOnlyFolderRefusesUploadsAndStillServesDownloads)
{
    TempDirectory readOnly;
    const std::string reason =
        MountPrivateTmpfs(readOnly.Path(), [&] { WriteFile(readOnly / "present.bin", PatternBytes(600, 5)); });
    if (!reason.empty())
    {
        GTEST_SKIP() << "needs a private read-only tmpfs: " << reason;
    }
    auto settings = DefaultSettings();
    settings.HomePaths = {{"/", readOnly.Path()}};
    StartServer(settings);

    UdpClient writer;
    writer.Send(Request(2, "new.bin"));
    // Preparing needs no write (the folder exists, no old ".part"): the refusal comes with the data.
    ASSERT_EQ(writer.Receive()->raw, Ack(0));
    writer.Send(Data(1, "x"));
    EXPECT_EQ(writer.Receive()->raw, Error(2, "Access violation."));
    EXPECT_TRUE(logs->Contains("Failed to open file for writing: " + (readOnly / "new.bin.part"), 3));
    EXPECT_FALSE(Exists(readOnly / "new.bin"));

    UdpClient deeper;
    deeper.Send(Request(2, "sub/new.bin"));
    const auto refused = deeper.Receive();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->opCode, 5);
    EXPECT_EQ(refused->number, 2) << "a folder that cannot be created is an access violation";

    UdpClient reader;
    EXPECT_EQ(reader.Download("present.bin"), PatternBytes(600, 5));
    StopServer();
    ::umount2(readOnly.Path().c_str(), MNT_DETACH);
}
