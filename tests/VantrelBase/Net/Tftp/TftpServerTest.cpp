// Tests of the TFTP server: how it takes its time-out and maps requested paths, then, through UDP
// traffic in the test's own network namespace, dialogues of datagrams and their replies, sessions
// and their time-outs, files at the edges, hostile input and the real clients installed here.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/Socket.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/Files.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/PrivateTmpfs.hpp"
#include "Support/TempDirectory.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <fstream>
#include <optional>
#include <thread>
#include <vector>

namespace
{

using namespace VantrelTest;
using namespace std::chrono_literals;
using Qib::System::Commons::Net::IpAddress;
using Qib::System::Commons::Net::Socket;
using VantrelBase::Net::Tftp::Configuration::HomePathSetting;
using Settings = VantrelBase::Net::Tftp::Configuration::TftpServerSettings;
namespace fs = std::filesystem;

// Opens the protected operations of the server to the tests.
class TestServer : public VantrelBase::Net::Tftp::TftpServer
{
public:
    using TftpServer::TftpServer;
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::GetTimeout;
    using TftpServer::HandleReadRequest;
    using TftpServer::HandleWriteRequest;
};

const std::string Unexpected = Error(4, "Unexpected packet.");
const std::string NotFound = Error(1, "File not found.");
const std::string AccessViolation = Error(2, "Access violation.");

// `text` with each placeholder replaced by its value.
std::string Substitute(std::string text, const std::vector<std::pair<std::string, std::string>>& values)
{
    for (const auto& [placeholder, value] : values)
    {
        for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + value.size()))
        {
            text.replace(at, placeholder.size(), value);
        }
    }
    return text;
}

// Starts a server on port 69 of the test's network namespace with a temporary home folder.
class TftpServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VANTREL_REQUIRE_NETWORK_NAMESPACE();
        // The main thread's loop never ends by itself: keep the join before its termination short.
        Qib::System::Commons::Threading::Thread::SetJoinLimit(20);
    }

    void TearDown() override
    {
        StopServer();
        ::umount2(tmpfs.Path().c_str(), MNT_DETACH);
    }

    Settings DefaultSettings() const
    {
        Settings settings;
        settings.HomePaths = {{"/", home.Path()}};
        settings.WriteEnabled = true;
        settings.OverwriteEnabled = true;
        settings.Timeout = 1;
        settings.MaxRetries = 2;
        settings.ThreadCount = 4;
        return settings;
    }

    // Starts the server with the default settings, changed by `configure`, and waits until its
    // socket is bound.
    void StartServer(const std::function<void(Settings&)>& configure = nullptr)
    {
        StopServer();
        Settings settings = DefaultSettings();
        if (configure)
        {
            configure(settings);
        }
        server = std::make_unique<TestServer>(settings);
        logs.Clear();
        server->Start();
        ASSERT_TRUE(logs.WaitFor("Start main thread work"));
    }

    // Starts the server on a private tmpfs home, filled and made read-only by `fill` when given;
    // why not when that cannot be had.
    std::string StartServerOnTmpfs(const std::function<void()>& fill = {})
    {
        std::string reason = MountPrivateTmpfs(tmpfs.Path(), fill);
        if (reason.empty())
        {
            StartServer([this](Settings& settings) { settings.HomePaths = {{"/", tmpfs.Path()}}; });
        }
        return reason;
    }

    // A derived server is stopped before its destruction begins, so that its main thread never
    // meets a half-destroyed object.
    void StopServer()
    {
        if (server)
        {
            server->Stop();
            server.reset();
        }
    }

    LogCapture logs{8};
    TempDirectory home;
    TempDirectory tmpfs;
    std::unique_ptr<TestServer> server;
};

TEST_F(TftpServerTest, TimeoutZeroMeansTenAndLargeValuesAreCapped)
{
    const std::pair<std::uint16_t, std::uint16_t> cases[] = {{0, 10}, {1, 1}, {255, 255}, {256, 255}, {65535, 255}};
    for (const auto& [given, taken] : cases)
    {
        Settings settings;
        settings.Timeout = given;
        settings.ThreadCount = 1;
        EXPECT_EQ(TestServer(settings).GetTimeout(), taken) << "setting " << given;
    }
}

TEST_F(TftpServerTest, RequestedPathsMapOntoTheHomeOrTheFirstMatchingAlias)
{
    struct Case
    {
        std::vector<HomePathSetting> homes;
        std::string requested;
        std::string mapped;
    };
    const Case cases[] = {
        {{{"/", "/srv/d"}}, "a\\b\\c.txt", "/srv/d/a/b/c.txt"},
        {{{"/", "/srv/d"}, {"/cfg", "/etc/c"}}, "/cfg/x.xml", "/etc/c/x.xml"},
        {{{"/", "/srv/d"}, {"/cfg", "/etc/c"}}, "cfg\\sub\\x.xml", "/etc/c/sub/x.xml"},
        // Deliberately a plain, case-sensitive text prefix: no slash is needed behind the alias.
        {{{"/log", "/var/l"}}, "/logbook.txt", "/var/l/book.txt"},
        {{{"/Log", "/var/l"}, {"/", "/d"}}, "/log/x", "/d/log/x"},
        {{{"/a", "/one"}, {"/ab", "/two"}}, "/abc", "/one/bc"},
        {{{"/ab", "/two"}, {"/a", "/one"}}, "/abc", "/two/c"},
        {{{"/", "/first"}, {"/", "/second"}}, "f", "/second/f"},
        {{{"/", "/first"}, {"/x", "/alias"}, {"/", "/later"}}, "/y", "/later/y"},
        {{}, "dir\\f.bin", "/dir/f.bin"},
        {{}, "", "/"},
        // Deliberate, and a documented risk: parent components are passed on.
        {{{"/", "/srv"}}, "../etc/passwd", "/srv/../etc/passwd"},
    };
    for (const auto& c : cases)
    {
        Settings settings;
        settings.HomePaths = c.homes;
        settings.ThreadCount = 1;
        EXPECT_EQ(TestServer(settings).GetAbsoluteFilepath(c.requested), c.mapped) << c.requested;
    }
}

// What a step of a dialogue may look at once its reply arrived.
struct Context
{
    const TempDirectory& home;
    const LogCapture& logs;
    std::string client;
    std::chrono::steady_clock::duration waited; // for the reply
};

struct Step
{
    std::optional<std::string> send; // nothing: only wait for the next reply
    std::string reply;               // empty: no reply at all
    void (*then)(const Context&) = nullptr;
};

// One client's datagrams against a server with the default settings, changed by `configure`.
struct Dialogue
{
    const char* name;
    std::vector<std::pair<std::string, std::string>> files; // put into the home folder first
    std::vector<Step> steps;
    std::vector<std::pair<std::string, std::optional<std::string>>> after = {}; // contents; nothing: absent
    std::vector<std::string> logged = {}; // "@" stands for the client, "~" for the home folder
    void (*configure)(Settings&, const TempDirectory&) = nullptr;
};

void PrintTo(const Dialogue& dialogue, std::ostream* out)
{
    *out << dialogue.name;
}

std::vector<Dialogue> Dialogues()
{
    const std::string p512 = PatternBytes(512);
    const std::string p2000 = PatternBytes(2000);
    const std::string text = std::string("line\r\nline\n\0\xff", 13);
    auto block = [&p2000](std::uint16_t n) { return Data(n, p2000.substr(n * 512U - 512U, 512)); };
    const std::vector<std::pair<std::string, std::string>> files = {{"f.txt", "served"}, {"f.bin", p2000}};
    const Step download = {Request(1, "f.bin"), block(1)};
    const Step served = {Request(1, "f.txt"), Data(1, "served")};
    return {
        {"StrayPacketsAreUnexpectedAndTheirSessionsReaped", {},
         {{Data(1, "stray"), Unexpected,
           // One idle pass of the main thread reaps the idle session.
           [](const Context&) { std::this_thread::sleep_for(Socket::ReceiveTimeout + 100ms); }},
          {Ack(1), Unexpected,
           [](const Context& c) { EXPECT_EQ(c.logs.Count("Create session: address=" + c.client), 2U); }}}},
        {"MalformedDatagramsAreUnexpectedPacketsAndServingGoesOn", files,
         {{"", Unexpected}, {std::string(1, '\0'), Unexpected}, {std::string("\0\0", 2), Unexpected},
          {std::string("\0\x09\0\x01", 4), Unexpected}, {"\xff\xff", Unexpected},
          {std::string("\0\x06\0\x01", 4), Unexpected}, // option acknowledgement, never negotiated
          {std::string(1400, 'z'), Unexpected}, {Data(1, std::string(1000, 'd')), Unexpected}, served}},
        // Opening a named pipe waits for a writer for ever; a device reads without end.
        {"PipesDevicesFoldersAndMissingFilesAreNotFoundAndServingGoesOn", files,
         {{Request(1, "absent"), NotFound}, {Request(1, "pipe"), NotFound}, {Request(1, "device"), NotFound},
          {Request(1, "folder"), NotFound}, served},
         {}, {},
         [](Settings&, const TempDirectory& home) {
             ASSERT_EQ(::mkfifo((home / "pipe").c_str(), 0644), 0);
             fs::create_symlink("/dev/zero", home / "device");
             fs::create_directory(home / "folder");
         }},
        // The session went idle when the last DATA was built. Deliberate.
        {"FinalAcknowledgeGetsUnexpectedPacket", files, {served, {Ack(1), Unexpected}}, {},
         {"Client @ read request `f.txt` -> `~/f.txt`", "Sent last packet of ~/f.txt to @"}},
        {"DuplicateAcknowledgeIsIgnored", files, {download, {Ack(1), block(2)}, {Ack(1), ""}, {Ack(2), block(3)}}, {},
         {"Client @ has transmitted a duplicate block number"}},
        {"AcknowledgeAheadEndsTheTransfer", files,
         {download, {Ack(1), block(2)}, {Ack(5), Error(5, "Unknown transfer ID.")}, {Ack(2), Unexpected}}, {},
         {"Client @ has transmitted an unexpected block number: 5"}},
        {"FileDeletedDuringTransferIsNotFoundAtTheNextAcknowledge", files,
         {{Request(1, "f.bin"), block(1), [](const Context& c) { fs::remove(c.home / "f.bin"); }}, {Ack(1), NotFound}}},
        {"OtherPacketInAReadIsInvalid", files, {download, {Data(1, "zz"), Error(4, "Invalid packet.")}}},
        {"NetAsciiAndUnknownModesServeTheBytesUnchanged", {{"t.txt", text}},
         {{Request(1, "t.txt", "netascii"), Data(1, text)}, {Request(1, "t.txt", "MAIL"), Data(1, text)},
          {Request(1, "t.txt", "whatever"), Data(1, text)}}},
        {"PathsStayUnderTheirHomeOrAlias", {{"etc/hosts", "inside"}, {"configs/x.xml", "<x/>"}},
         {{Request(1, "/etc/hosts"), Data(1, "inside")}, {Request(1, "\\etc\\hosts"), Data(1, "inside")},
          {Request(1, "/cfg/x.xml"), Data(1, "<x/>")}, {Request(1, "/etc/passwd"), NotFound}},
         {}, {},
         [](Settings& settings, const TempDirectory& home) {
             settings.HomePaths.push_back({"/cfg", home / "configs"});
         }},
        // Deliberate, and a documented risk: ".." reaches the home folder's parent. Deployments
        // confine the server with allowed clients and a dedicated user.
        {"ParentComponentsLeaveTheHomeFolder", {{"outside.txt", "secret"}, {"inner/kept", ""}},
         {{Request(1, "../outside.txt"), Data(1, "secret")},
          {Request(2, "..\\up.bin"), Ack(0)},
          {Data(1, "up"), Ack(1)}},
         {{"up.bin", "up"}}, {},
         [](Settings& settings, const TempDirectory& home) { settings.HomePaths = {{"/", home / "inner"}}; }},
        {"ControlCharactersOfRequestedNamesAreCleanedInLogLines", {}, {{Request(1, "bad\x1b[2Jname\n"), NotFound}}, {},
         {"Client @ read request `bad?[2Jname?` -> `~/bad?[2Jname?`"}},
        {"UploadGoesThroughThePartFile", files,
         {{Request(2, "f.txt"), Ack(0)},
          {Data(1, p512), Ack(1),
           [](const Context& c) {
               EXPECT_EQ(ReadFile(c.home / "f.txt.part"), PatternBytes(512));
               EXPECT_EQ(ReadFile(c.home / "f.txt"), "served") << "the target is untouched until the last block";
           }},
          {Data(2, "end"), Ack(2)}, {Data(3, "x"), Unexpected}},
         {{"f.txt", p512 + "end"}, {"f.txt.part", std::nullopt}},
         // The write request is logged as a read request without the mapped path. Deliberate.
         {"Client @ read request `f.txt` -> ``", "Received last packet of ~/f.txt from @"}},
        {"ReadOrWriteDisabledIsAnAccessViolation", files,
         {{Request(1, "f.txt"), AccessViolation}, {Request(2, "w.bin"), AccessViolation}},
         {{"w.bin.part", std::nullopt}},
         {"Client @ attempt to write ~/w.bin. Write is disabled."},
         [](Settings& settings, const TempDirectory&) {
             settings.ReadEnabled = false;
             settings.WriteEnabled = false;
         }},
        // Checked at the request and again at every DATA packet.
        {"OverwriteDisabledKeepsEveryExistingFile", files,
         {{Request(2, "f.txt"), Error(6, "File already exists.")},
          {Request(2, "race.bin"), Ack(0), [](const Context& c) { WriteFile(c.home / "race.bin", "meanwhile"); }},
          {Data(1, "abc"), Error(6, "File already exists.")},
          {Request(2, "new.bin"), Ack(0)},
          {Data(1, "new"), Ack(1)}},
         {{"f.txt", "served"}, {"race.bin", "meanwhile"}, {"new.bin", "new"}},
         {"Client @ attempt to write ~/f.txt. Overwrite is disabled."},
         [](Settings& settings, const TempDirectory&) { settings.OverwriteEnabled = false; }},
        {"MissingDirectoriesAreCreatedBeforeTheFirstAcknowledge", {},
         {{Request(2, "dir/sub/f.bin"), Ack(0),
           [](const Context& c) { EXPECT_TRUE(fs::is_directory(c.home / "dir/sub")); }},
          {Data(1, "deep"), Ack(1)}},
         {{"dir/sub/f.bin", "deep"}}},
        // The same client starts over: block 0 again, every old part file discarded.
        {"SecondWriteRequestDiscardsAnOldPartFile", {{"f.bin.part", p2000}},
         {{Request(2, "f.bin"), Ack(0)},
          {Data(1, p512), Ack(1)},
          {Request(2, "f.bin"), Ack(0)},
          {Data(1, "new"), Ack(1)}},
         {{"f.bin", "new"}}},
        // Nothing is written for a duplicate; a block ahead ends the upload.
        {"DuplicateAndOutOfSequenceData", {},
         {{Request(2, "f.bin"), Ack(0)}, {Data(1, p512), Ack(1)}, {Data(2, p512), Ack(2)}, {Data(1, "x"), Ack(2)},
          {Data(4, "x"), Error(5, "Unknown transfer ID.")}, {Data(3, "x"), Unexpected}},
         {{"f.bin.part", p512 + p512}},
         {"Client @ has transmitted a duplicate block number",
          "Client @ has transmitted an unexpected block number: 4"}},
        {"AcknowledgeInAnUploadIsIllegal", {},
         {{Request(2, "f.bin"), Ack(0)}, {Ack(0), Error(4, "Illegal operation.")}}},
        {"PartFileThatCannotBeOpenedIsAnAccessViolation", {},
         {{Request(2, "f.bin"), Ack(0), [](const Context& c) { fs::create_directory(c.home / "f.bin.part"); }},
          {Data(1, "data"), AccessViolation}, {Data(2, "data"), Unexpected}},
         {{"f.bin", std::nullopt}}, {"Failed to open file for writing: ~/f.bin.part"}},
        // Deliberately no block size check: the payload is the datagram less its header.
        {"OversizedDataBlockIsWrittenWhole", {},
         {{Request(2, "f.bin"), Ack(0)}, {Data(1, p2000), Ack(1)}, {Data(2, "end"), Ack(2)}},
         {{"f.bin", p2000 + "end"}}},
        // The final move onto the directory fails unseen by the client.
        {"UploadOntoADirectoryIsAcknowledgedButLandsOnlyInThePartFile", {{"dir/kept.txt", "kept"}},
         {{Request(2, "dir"), Ack(0)}, {Data(1, "payload"), Ack(1)}},
         {{"dir/kept.txt", "kept"}, {"dir.part", "payload"}}},
        // The session stays in its transfer: its expired re-send returns the client's own packet
        // while the send count is at most 2, then the session times out, after its time-out (1 s)
        // and the main thread's next idle pass (300 ms for scheduling on a loaded machine), and is gone.
        {"ClientErrorIsSentBackUntilTheSessionTimesOut", files,
         {download, {Error(3, "full"), Error(3, "full")}, {std::nullopt, Error(3, "full")},
          {std::nullopt, Error(0, "Timeout."),
           [](const Context& c) {
               EXPECT_TRUE(c.waited >= 900ms && c.waited < 1s + Socket::ReceiveTimeout + 300ms) << c.waited.count();
           }},
          {Ack(1), Unexpected}},
         {}, {"Client @ has sent error: code=3, message=full", "Session @ timed out\n"}},
        // Expired, but nothing to re-send and too few sends to give up: kept indefinitely. Deliberate.
        {"StalledSessionWithFewSendsIsKept", files, {download, {std::nullopt, ""}, {Ack(1), block(2)}}, {}, {},
         [](Settings& settings, const TempDirectory&) { settings.MaxRetries = 5; }},
    };
}

class TftpServerDialogueTest : public TftpServerTest, public ::testing::WithParamInterface<Dialogue>
{
};

TEST_P(TftpServerDialogueTest, Replies)
{
    const Dialogue& dialogue = GetParam();
    for (const auto& [name, contents] : dialogue.files)
    {
        fs::create_directories(fs::path(home / name).parent_path());
        WriteFile(home / name, contents);
    }
    StartServer([&](Settings& settings) {
        if (dialogue.configure != nullptr)
        {
            dialogue.configure(settings, home);
        }
    });
    UdpClient client;
    for (std::size_t i = 0; i < dialogue.steps.size() && !HasFatalFailure(); ++i)
    {
        const Step& step = dialogue.steps[i];
        if (step.send)
        {
            client.Send(*step.send);
        }
        const auto sent = std::chrono::steady_clock::now();
        const auto reply = client.Receive(step.reply.empty() ? 1500ms : 3000ms);
        EXPECT_EQ(reply ? reply->raw : "", step.reply) << "step " << i + 1;
        if (step.then != nullptr)
        {
            step.then({home, logs, client.Name(), std::chrono::steady_clock::now() - sent});
        }
    }
    for (const auto& [name, contents] : dialogue.after)
    {
        EXPECT_EQ(ReadFile(home / name), contents) << name;
    }
    for (const auto& line : dialogue.logged)
    {
        const std::string expected = Substitute(line, {{"@", client.Name()}, {"~", home.Path()}});
        EXPECT_TRUE(logs.WaitFor(expected, 2s)) << expected;
    }
}

INSTANTIATE_TEST_SUITE_P(Dialogues, TftpServerDialogueTest, ::testing::ValuesIn(Dialogues()),
                         [](const auto& entry) { return std::string(entry.param.name); });

std::uint32_t Value(const char* address)
{
    return IpAddress::Parse(address).GetValue();
}

TEST_F(TftpServerTest, OnlyClientsInAnAllowedRangeAreServed)
{
    StartServer([](Settings& settings) {
        settings.AllowedClients = {{Value("127.0.0.1"), Value("127.0.0.10")}, {Value("127.0.0.40"), Value("127.0.0.40")}};
    });
    WriteFile(home / "f.txt", "served");
    UdpClient outside("127.0.0.20");
    outside.Send(Request(1, "f.txt"));
    EXPECT_FALSE(outside.Receive(300ms)) << "a refused client gets no reply";
    EXPECT_TRUE(logs.Contains("Client " + outside.Name() + " tried to get access but is not within the allowed range."));
    EXPECT_EQ(logs.IndexOf("Create session: address=" + outside.Name()), -1);
    // The bounds compare the values as held in network byte order: on this machine that puts
    // 127.0.1.5 between 127.0.0.1 and 127.0.0.10. Deliberate.
    for (const char* address : {"127.0.0.1", "127.0.0.10", "127.0.0.40", "127.0.1.5"})
    {
        EXPECT_EQ(UdpClient(address).Download("f.txt"), "served") << address;
    }
}

TEST_F(TftpServerTest, SecondServerCannotBindAndServesNothing)
{
    StartServer();
    WriteFile(home / "f.txt", "first");
    TestServer second(DefaultSettings());
    second.Start();
    ASSERT_TRUE(logs.WaitFor("Failed to bind socket 98"));
    EXPECT_TRUE(second.IsRunning()) << "a failed bind does not stop the server";
    second.Stop();
    UdpClient client;
    EXPECT_EQ(client.Download("f.txt"), "first");
}

TEST_F(TftpServerTest, PerPacketLogLinesAreInformationOnlyWhenVerbose)
{
    WriteFile(home / "f.bin", PatternBytes(600));
    for (const bool verbose : {false, true})
    {
        StartServer([verbose](Settings& settings) { settings.Verbose = verbose; });
        UdpClient client;
        ASSERT_TRUE(client.Download("f.bin"));
        const int level = verbose ? 6 : 8;
        ASSERT_TRUE(logs.WaitFor("Send packet to " + client.Name() + ": len=92, opcode=3"));
        EXPECT_TRUE(logs.Contains("Starting server, threadpool=4", 6));
        EXPECT_TRUE(logs.Contains("Use session: address=" + client.Name() + ", status=1", level)) << verbose;
        EXPECT_TRUE(logs.Contains("Send packet to " + client.Name() + ": len=516, opcode=3", level)) << verbose;
    }
}

// Drives a session directly through HandleReadRequest or HandleWriteRequest; the raw reply.
std::string Handle(TestServer& server, const std::string& datagram,
                   const std::shared_ptr<VantrelBase::Net::Tftp::Session>& session)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(datagram.data());
    const auto packet = VantrelBase::Net::Tftp::Packet::Create(bytes, datagram.size());
    const auto reply = session->status == 1 ? server.HandleReadRequest(packet, session)
                                            : server.HandleWriteRequest(packet, session);
    return reply ? std::string(reinterpret_cast<const char*>(reply->GetRawData()), reply->GetLength()) : "";
}

TEST_F(TftpServerTest, BlockCounterWrapsAfter65535Blocks)
{
    // Downloads start over at the file's start; uploads take wrapped blocks as duplicates and never
    // complete. Both deliberate.
    TestServer direct(DefaultSettings());
    const std::string head = PatternBytes(512, 1);
    const std::string far = PatternBytes(512, 2);
    WriteFile(home / "huge.bin", head);
    fs::resize_file(home / "huge.bin", 65535UL * 512);
    std::ofstream(home / "huge.bin", std::ios::binary | std::ios::app) << far << head.substr(0, 100);
    auto session = std::make_shared<VantrelBase::Net::Tftp::Session>(IpAddress(), 1, nullptr, 1);
    session->status = 1;
    session->absoluteFilepath = home / "huge.bin";
    session->blockNumber = 65535;
    EXPECT_EQ(Handle(direct, Ack(65535), session), Data(0, far));
    EXPECT_EQ(Handle(direct, Ack(0), session), Data(1, head)) << "the next block is read from the start again";

    session->status = 2;
    session->absoluteFilepath = home / "wrap.bin";
    session->blockNumber = 65535;
    EXPECT_EQ(Handle(direct, Data(0, "tail"), session), Ack(65535));
    EXPECT_FALSE(Exists(home / "wrap.bin.part"));
}

TEST_F(TftpServerTest, FullDiskEndsTheUploadWithoutATarget)
{
    const std::string reason = StartServerOnTmpfs();
    if (!reason.empty())
    {
        GTEST_SKIP() << "needs a private tmpfs: " << reason;
    }
    UdpClient client;
    client.Send(Request(2, "big.bin"));
    const std::string contents = PatternBytes(200 * 1024, 3);
    std::optional<Reply> reply = client.Receive();
    std::uint16_t block = 0;
    for (; block < 400 && reply && reply->raw == Ack(block); ++block)
    {
        client.Send(Data(static_cast<std::uint16_t>(block + 1), contents.substr(block * 512U, 512)));
        reply = client.Receive();
    }
    EXPECT_EQ(reply ? reply->raw : "", AccessViolation) << "a full disk is reported as code 2";
    EXPECT_LT(block, 200) << "the disk filled before the upload ended";
    EXPECT_TRUE(logs.Contains("Unable to write to file", 3));
    EXPECT_FALSE(Exists(tmpfs / "big.bin"));
}

TEST_F(TftpServerTest, ReadOnlyFolderRefusesUploadsAndStillServesDownloads)
{
    const std::string reason = StartServerOnTmpfs([this] {
        WriteFile(tmpfs / "present.bin", "present");
        WriteFile(tmpfs / "blocker", "a file where a folder is needed");
    });
    if (!reason.empty())
    {
        GTEST_SKIP() << "needs a private read-only tmpfs: " << reason;
    }
    UdpClient writer;
    writer.Send(Request(2, "new.bin"));
    // Preparing needs no write (the folder exists, no old ".part"): the refusal comes with the data.
    ASSERT_EQ(writer.Receive()->raw, Ack(0));
    writer.Send(Data(1, "x"));
    EXPECT_EQ(writer.Receive()->raw, AccessViolation);
    EXPECT_FALSE(Exists(tmpfs / "new.bin"));
    // A folder that cannot be created, or one in place of a file: error 2 with the reason.
    for (const std::string name : {"sub/new.bin", "blocker/new.bin"})
    {
        UdpClient deeper;
        deeper.Send(Request(2, name));
        const auto refused = deeper.Receive();
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->raw.substr(0, 4), Error(2, "").substr(0, 4)) << name;
        EXPECT_NE(refused->body.find(name.substr(0, name.find('/'))), std::string::npos) << refused->body;
        EXPECT_TRUE(logs.Contains("Failed to prepare for writing: " + refused->body, 3));
    }
    EXPECT_EQ(UdpClient().Download("present.bin"), "present");
}

// A real client: its program, and command lines with %R for the remote and %L for the local name.
struct RealClient
{
    const char* name;
    const char* program;
    const char* get;
    const char* put;
};

void PrintTo(const RealClient& client, std::ostream* out)
{
    *out << client.name;
}

class TftpServerClientsTest : public TftpServerTest, public ::testing::WithParamInterface<RealClient>
{
protected:
    // Runs the client's command with a time limit; its exit status and what it printed.
    std::pair<int, std::string> Run(const char* command, const std::string& remote, const std::string& local)
    {
        const std::string output = ShellOutput("timeout 60 " + Substitute(command, {{"%R", remote}, {"%L", local}}) +
                                               " 2>&1; echo \"exit=$?\"");
        const auto marker = output.rfind("exit=");
        return {std::stoi(output.substr(marker + 5)), output.substr(0, marker)};
    }
};

TEST_P(TftpServerClientsTest, DownloadsAndUploadsByteForByte)
{
    const RealClient& client = GetParam();
    if (Shell(std::string("command -v ") + client.program + " >/dev/null 2>&1") != 0)
    {
        GTEST_SKIP() << client.program << " is not installed";
    }
    StartServer([](Settings& settings) {
        settings.Timeout = 5;
        settings.MaxRetries = 5;
    });
    TempDirectory local;
    // The last-block test of uploads measures the whole datagram: a final block of 508 to 511 bytes
    // (1020, 1022) is taken as complete by every client while the server keeps it in the part file.
    // Deliberate.
    const std::pair<bool, std::size_t> transfers[] = {
        {false, 0},  {false, 511}, {false, 512},  {false, 513},  {false, 70000}, {true, 0},
        {true, 507}, {true, 512},  {true, 1020}, {true, 1022}, {true, 70000}};
    for (const auto& [upload, size] : transfers)
    {
        const std::string name = (upload ? "up" : "down") + std::to_string(size);
        const std::string contents = PatternBytes(size, static_cast<unsigned>(size) + 11);
        WriteFile((upload ? local : home) / name, contents);
        const auto [status, output] = Run(upload ? client.put : client.get, name, local / name);
        EXPECT_EQ(status, 0) << name << ": " << output;
        const bool kept = size == 1020 || size == 1022;
        EXPECT_EQ(ReadFile(upload ? home / (kept ? name + ".part" : name) : local / name), contents) << name;
        EXPECT_EQ(Exists(home / name), !kept) << name;
    }
    // curl tells a missing file only by its status, 68 (its text is about getpeername: the error
    // comes from port 69 rather than a new port); the others print the server's text.
    const auto [status, output] = Run(client.get, "missing.bin", local / "missing.bin");
    EXPECT_TRUE(output.find("File not found.") != std::string::npos || status == 68) << status << ": " << output;
}

INSTANTIATE_TEST_SUITE_P(
    RealClients, TftpServerClientsTest,
    ::testing::Values(
        RealClient{"TftpHpa", "tftp", "tftp -m binary 127.0.0.1 -c get %R %L", "tftp -m binary 127.0.0.1 -c put %L %R"},
        RealClient{"CurlWithoutOptions", "curl", "curl -sS --tftp-no-options -o %L tftp://127.0.0.1/%R",
                   "curl -sS --tftp-no-options -T %L tftp://127.0.0.1/%R"},
        // curl asks for options (tsize, blksize) by default; this server answers with plain DATA or ACK.
        RealClient{"CurlWithOptionsTheServerIgnores", "curl", "curl -sS -o %L tftp://127.0.0.1/%R",
                   "curl -sS -T %L tftp://127.0.0.1/%R"},
        RealClient{"Atftp", "atftp", "atftp -g -r %R -l %L 127.0.0.1", "atftp -p -l %L -r %R 127.0.0.1"},
        RealClient{"Busybox", "busybox", "busybox tftp -g -r %R -l %L 127.0.0.1",
                   "busybox tftp -p -l %L -r %R 127.0.0.1"}),
    [](const auto& entry) { return std::string(entry.param.name); });

} // namespace
