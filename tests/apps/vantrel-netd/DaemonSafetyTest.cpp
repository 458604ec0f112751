// End-to-end tests of what the daemon shields its users from: hostile request names, the user switch
// with BOOTP on, stalled sessions and reloads a confined daemon could not serve.
#include "DaemonProcess.hpp"

#include "Support/Files.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/PeerNamespace.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <thread>

using VantrelTest::CountOf;
using VantrelTest::DaemonProcess;
using VantrelTest::ReadFile;
using VantrelTest::UdpClient;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{

using DaemonSafetyTest = VantrelTest::DaemonTest;

// Every entry below `folder` but those under `skipped`: path -> kind, target or content.
std::map<std::string, std::string> Snapshot(const fs::path& folder, const std::set<fs::path>& skipped)
{
    std::map<std::string, std::string> entries;
    for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator(); ++entry)
    {
        if (skipped.count(entry->path()) != 0)
        {
            entry.disable_recursion_pending();
            continue;
        }
        const fs::file_status status = entry->symlink_status();
        entries[entry->path().string()] = fs::is_symlink(status) ? "link " + fs::read_symlink(*entry).string()
                                          : fs::is_regular_file(status) ? "file " + *ReadFile(entry->path())
                                                                        : "folder";
    }
    return entries;
}

// The daemon started as the README starts it, as root, and once more with a switch to nobody.
class HostilePathTest : public DaemonSafetyTest, public testing::WithParamInterface<std::vector<std::string>>
{
};

} // namespace

TEST_P(HostilePathTest, NothingOutsideTheHomesIsReadOrWritten)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // root/outside and root/srv/secret.txt are outside both homes; boot/escape* link to the outside.
    fs::create_directories(root / "outside");
    fs::create_directories(root / "srv" / "boot" / "sub");
    fs::create_directories(root / "srv" / "cfg");
    Write(root / "outside" / "secret.txt", "SECRET outside\n");
    Write(root / "srv" / "secret.txt", "SECRET beside the homes\n");
    Write(root / "srv" / "boot" / "inside.txt", "inside\n");
    fs::create_directory_symlink(root / "outside", root / "srv" / "boot" / "escape");
    fs::create_symlink(root / "outside" / "secret.txt", root / "srv" / "boot" / "escape.txt");
    fs::permissions(root / "srv" / "boot", fs::perms::all);
    fs::permissions(root / "srv" / "cfg", fs::perms::all);
    const std::string planted = "/tmp/vantrel-netd-planted-" + std::to_string(::getpid());
    std::string longClimb;
    for (int level = 0; level < 1200; ++level)
    {
        longClimb += "../";
    }
    const std::string toRoot = longClimb.substr(0, 3 * 30);
    const std::string secret = (root / "outside" / "secret.txt").relative_path().string();
    const std::string config = Config("[tftp]\nwrite = true\noverwrite = true\ntimeout = 1\n[[tftp.home]]\n"
                                      "path = \"srv/boot\"\n[[tftp.home]]\nalias = \"/cfg\"\npath = \"srv/cfg\"\n");
    const std::set<fs::path> homes{root / "srv" / "boot", root / "srv" / "cfg", root / "client"};
    const auto before = Snapshot(root, homes);
    std::vector<std::string> arguments{"--config", config};
    arguments.insert(arguments.end(), GetParam().begin(), GetParam().end());
    auto daemon = StartDaemon(arguments);

    const std::vector<std::string> reads{
        "../secret.txt", "../../outside/secret.txt", "..\\..\\outside\\secret.txt", "/../../outside/secret.txt",
        "sub/../../../outside/secret.txt", ".//..//..//outside//secret.txt", "../../outside/./secret.txt",
        "..\\../..\\outside/secret.txt", "/cfg../secret.txt", "/cfg/../../outside/secret.txt",
        "/cfg..\\..\\outside\\secret.txt", "escape/secret.txt", "escape.txt", toRoot + secret, longClimb + secret,
        std::string(4000, 'x'), toRoot + "etc/passwd"};
    for (const std::string& name : reads)
    {
        UdpClient client;
        client.Send(VantrelTest::Request(1, name));
        const auto reply = client.Receive(2000ms);
        ASSERT_TRUE(reply.has_value()) << "no reply to a read of " << name.substr(0, 80);
        EXPECT_EQ(reply->raw.find("SECRET"), std::string::npos) << name.substr(0, 80);
        EXPECT_EQ(reply->raw.find("root:"), std::string::npos) << name.substr(0, 80);
    }
    const std::vector<std::string> writes{
        "../planted.txt", "../../outside/planted.txt", "../../outside/secret.txt", "..\\..\\outside\\planted.txt",
        "sub/../../../outside/planted.txt", "/cfg../planted.txt", "/cfg../secret.txt", "escape/planted.txt",
        "escape/secret.txt", "../../planted/deep/file.txt", toRoot + planted.substr(1), longClimb + planted.substr(1)};
    for (const std::string& name : writes)
    {
        UdpClient client;
        client.Upload(name, "PLANTED\n");
    }

    // The homes themselves still serve and take files, so the refusals above are not a broken server.
    UdpClient downloader;
    EXPECT_EQ(downloader.Download("inside.txt"), "inside\n");
    UdpClient uploader;
    EXPECT_TRUE(uploader.Upload("/cfg/landed.txt", "landed\n"));
    EXPECT_EQ(Read(root / "srv" / "cfg" / "landed.txt"), "landed\n");

    EXPECT_EQ(Snapshot(root, homes), before);
    EXPECT_FALSE(fs::exists(planted));
    EXPECT_EQ(daemon->Stop(), 0) << daemon->StandardError();
    EXPECT_NE(daemon->StandardError().find("Confined: the file system holds only the home folders (read-write)"),
              std::string::npos)
        << daemon->StandardError();
}

INSTANTIATE_TEST_SUITE_P(StartedAs, HostilePathTest,
                         testing::Values(std::vector<std::string>{}, std::vector<std::string>{"--user", "nobody"}),
                         [](const testing::TestParamInfo<std::vector<std::string>>& param) {
                             return param.param.empty() ? std::string("Root") : std::string("RootSwitchingToNobody");
                         });

TEST_F(DaemonSafetyTest, UserNobodyKeepsBootpAndTftpServingThroughAReload)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    VantrelTest::PeerNamespace peer("netd-user", "vnetd0", "10.77.42.1/24", "vnetd1", "10.77.42.2/24",
                                    "02:77:42:00:00:32");
    ASSERT_EQ(peer.Error(), "");
    ASSERT_EQ(VantrelTest::Shell("ip route add 255.255.255.255/32 dev vnetd0"), 0);
    ASSERT_EQ(peer.Run("ip route add 255.255.255.255/32 dev vnetd1"), 0);
    const std::string config = Config(ControlConfig() + TftpConfig("boot") +
                                      "[bootp]\nboot_server = \"10.77.42.1\"\nboot_file = \"image.bin\"\n"
                                      "[[bootp.hosts]]\nmac = \"02-77-42-00-00-32\"\nip = \"10.77.42.50\"\n");
    // Nobody by number: the name is looked up by HostilePathTest.
    auto daemon = StartDaemon({"--config", config, "--user", "65534"}, "BOOTP server on 0.0.0.0:67");
    const std::string status = Read("/proc/" + std::to_string(daemon->GetPid()) + "/status");
    EXPECT_NE(status.find("\nUid:\t65534\t65534\t65534\t65534\n"), std::string::npos) << status;
    EXPECT_NE(status.find("\nGid:\t65534\t65534\t65534\t65534\n"), std::string::npos) << status;

    // Ten rounds of about a second: downloads throughout, the BOOTP client in round 3, a reload in round 5.
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < 10; ++round)
    {
        const std::string name = "fetched-" + std::to_string(round) + ".bin";
        Tftp("get image.bin " + name);
        EXPECT_EQ(Read(root / "client" / name), content) << "round " << round;
        if (round == 3)
        {
            const std::string reply =
                peer.Output("timeout 30 bootpc --dev vnetd1 --returniffail --timeoutwait 10 2>&1");
            EXPECT_NE(reply.find("IPADDR='10.77.42.50'"), std::string::npos) << reply << daemon->StandardError();
            EXPECT_NE(reply.find("image.bin"), std::string::npos) << reply;
        }
        if (round == 5)
        {
            const std::size_t logged = daemon->StandardError().size();
            daemon->Signal(SIGHUP);
            EXPECT_TRUE(daemon->WaitForError("Reload done", 10s, logged)) << daemon->StandardError();
        }
        std::this_thread::sleep_until(start + std::chrono::seconds(round + 1));
    }
    EXPECT_TRUE(daemon->WaitForError("bootp: new device 02:77:42:00:00:32 (in the table)"));
    EXPECT_TRUE(daemon->WaitForError("bootp: assigned 10.77.42.50 to 02:77:42:00:00:32 (request 1 from it)"));
    const std::string text = Status({}).Output;
    EXPECT_NE(text.find("02:77:42:00:00:32  seen 1 time(s)"), std::string::npos) << text;
    EXPECT_NE(text.find("assigned 10.77.42.50"), std::string::npos) << text;
    EXPECT_EQ(daemon->Stop(), 0) << daemon->StandardError();
    EXPECT_EQ(daemon->StandardError().find("ERROR"), std::string::npos) << daemon->StandardError();
}

TEST_F(DaemonSafetyTest, StalledReadRequestsEndWithinTheTimeOutByDefault)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    constexpr std::size_t Requests = 200;
    constexpr int Timeout = 2;
    auto daemon = StartDaemon({"--config", Config("[logging]\nlevel = \"debug\"\n[tftp]\ntimeout = " +
                                                  std::to_string(Timeout) + "\n[[tftp.home]]\npath = \"boot\"\n")});
    std::vector<std::unique_ptr<UdpClient>> clients;
    for (std::size_t index = 0; index < Requests; ++index)
    {
        clients.push_back(std::make_unique<UdpClient>());
        clients.back()->Send(VantrelTest::Request(1, "image.bin"));
    }
    // The library's own line for each session: the journal collapses its repeats, the debug level shows them all.
    const auto timedOut = [&] { return CountOf(daemon->StandardError(), "TftpServer: Session "); };
    VantrelTest::Eventually([&] { return timedOut() >= Requests; }, std::chrono::seconds(Timeout + 4));
    const std::string log = daemon->StandardError();
    EXPECT_EQ(timedOut(), Requests) << log.substr(log.size() - 2000);
    for (const auto& client : clients)
    {
        EXPECT_NE(log.find("Session " + client->Name() + " timed out"), std::string::npos) << client->Name();
    }
    EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(DaemonSafetyTest, AConfinedDaemonRefusesAReloadItCouldNotServe)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    fs::create_directories(root / "other");
    fs::create_directories(root / "boot" / "sub");
    const std::string config = Config(TftpConfig("boot"));
    auto daemon = StartDaemon({"--config", config});
    // A broken config; a folder outside the view is not even seen; one inside a home is seen but is another home.
    const std::pair<std::string, std::string> refusals[] = {
        {"[tftp]\nread = maybe\n", config + ":2:"},
        {TftpConfig("other"), "tftp.home[0].path: directory \"" + (root / "other").string() +
                                  "\" is not one of the home folders the confined daemon was started with: restart "
                                  "vantrel-netd to serve it"},
        {TftpConfig("boot/sub"), "the home folders changed (added: " + (root / "boot" / "sub").string() +
                                     "; removed: " + (root / "boot").string() + ")"},
        {TftpConfig("boot", true), "tftp.write was turned on"},
    };
    for (const auto& [text, refusal] : refusals)
    {
        const std::size_t logged = daemon->StandardError().size();
        Config(text);
        daemon->Signal(SIGHUP);
        EXPECT_TRUE(daemon->WaitForError(
            "ERROR VantrelNetd.Daemon: Reload refused, the running servers go on: ", 10s, logged));
        EXPECT_TRUE(daemon->WaitForError(refusal, 10s, logged)) << daemon->StandardError().substr(logged);
    }
    Tftp("get image.bin");
    EXPECT_EQ(Read(root / "client" / "image.bin"), content);
    EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(DaemonSafetyTest, WithoutThePrivilegeToConfineOneWarningSaysSo)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    std::vector<std::string> prefix = VantrelTest::AsNobody;
    prefix.insert(prefix.end(), {"--inh-caps=+net_bind_service", "--ambient-caps=+net_bind_service"});
    DaemonProcess daemon({"--config", Config(TftpConfig("boot"))}, prefix);
    ASSERT_TRUE(daemon.WaitForError("TFTP server on UDP port 69")) << daemon.StandardError();
    EXPECT_EQ(CountOf(daemon.StandardError(), "Not confined (no privilege to create a mount namespace"), 1U)
        << daemon.StandardError();
    EXPECT_EQ(daemon.Stop(), 0);
}
