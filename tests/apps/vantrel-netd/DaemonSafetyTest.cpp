// End-to-end tests of what the daemon shields its users from: hostile request names, the user switch
// with BOOTP on, stalled sessions, stale uploads and deployments the library would quietly fail in.
#include "DaemonProcess.hpp"

#include "Support/PeerNamespace.hpp"
#include "Support/Files.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"
#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <utime.h>

#include <ctime>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

using VantrelTest::DaemonProcess;
using VantrelTest::UdpClient;
namespace fs = std::filesystem;

namespace
{

class DaemonSafetyTest : public VantrelTest::DaemonTest
{
protected:
    // Every entry below `folder` but those under `skipped`: path -> kind, target or content.
    static std::map<std::string, std::string> Snapshot(const fs::path& folder, const std::set<fs::path>& skipped)
    {
        std::map<std::string, std::string> entries;
        for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator();
             ++entry)
        {
            if (skipped.count(entry->path()) != 0)
            {
                entry.disable_recursion_pending();
                continue;
            }
            const fs::file_status status = entry->symlink_status();
            entries[entry->path().string()] =
                fs::is_symlink(status)        ? "link " + fs::read_symlink(*entry).string()
                : fs::is_regular_file(status) ? "file " + std::to_string(std::hash<std::string>()(Read(*entry)))
                                              : "folder";
        }
        return entries;
    }

    static void SetAge(const fs::path& path, std::time_t seconds)
    {
        const std::time_t then = std::time(nullptr) - seconds;
        const utimbuf times{then, then};
        ASSERT_EQ(::utime(path.c_str(), &times), 0) << path;
    }

    static std::size_t Count(const std::string& text, const std::string& part)
    {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        {
            ++count;
        }
        return count;
    }
};

// The daemon started as the README starts it, as root, and once more with a switch to nobody.
class HostilePathTest : public DaemonSafetyTest, public testing::WithParamInterface<std::vector<std::string>>
{
};

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
    for (const char* home : {"boot", "cfg"})
    {
        fs::permissions(root / "srv" / home, fs::perms::all);
    }
    const std::string planted = "/tmp/vantrel-netd-planted-" + std::to_string(::getpid());
    const std::string toRoot = [] {
        std::string climb;
        for (int level = 0; level < 30; ++level)
        {
            climb += "../";
        }
        return climb;
    }();
    const std::string longClimb = [&] {
        std::string climb;
        for (int level = 0; level < 1200; ++level)
        {
            climb += "../";
        }
        return climb;
    }();
    const std::string secret = (root / "outside" / "secret.txt").relative_path().string();
    const fs::path config =
        Config("[tftp]\nwrite = true\noverwrite = true\ntimeout = 1\n[[tftp.home]]\npath = \"srv/boot\"\n"
               "[[tftp.home]]\nalias = \"/cfg\"\npath = \"srv/cfg\"\n");
    const auto before = Snapshot(root, {root / "srv" / "boot", root / "srv" / "cfg", root / "client"});
    std::vector<std::string> arguments{"--config", config.string()};
    arguments.insert(arguments.end(), GetParam().begin(), GetParam().end());
    auto daemon = StartDaemon(arguments);

    const std::vector<std::string> reads = {
        "../secret.txt", "../../outside/secret.txt", "..\\..\\outside\\secret.txt", "/../../outside/secret.txt",
        "sub/../../../outside/secret.txt", ".//..//..//outside//secret.txt", "../../outside/./secret.txt",
        "..\\../..\\outside/secret.txt", "/cfg../secret.txt", "/cfg/../../outside/secret.txt",
        "/cfg..\\..\\outside\\secret.txt", "escape/secret.txt", "escape.txt", toRoot + secret, longClimb + secret,
        std::string(4000, 'x'), toRoot + "etc/passwd"};
    for (const std::string& name : reads)
    {
        UdpClient client;
        client.Send(VantrelTest::Request(1, name));
        const auto reply = client.Receive(std::chrono::milliseconds(2000));
        ASSERT_TRUE(reply.has_value()) << "no reply to a read of " << name.substr(0, 80);
        EXPECT_EQ(reply->raw.find("SECRET"), std::string::npos) << name.substr(0, 80);
        EXPECT_EQ(reply->raw.find("root:"), std::string::npos) << name.substr(0, 80);
    }
    const std::vector<std::string> writes = {
        "../planted.txt", "../../outside/planted.txt", "../../outside/secret.txt", "..\\..\\outside\\planted.txt",
        "sub/../../../outside/planted.txt", "/cfg../planted.txt", "/cfg../secret.txt", "escape/planted.txt",
        "escape/secret.txt", "../../planted/deep/file.txt", toRoot + planted.substr(1), longClimb + planted.substr(1)};
    for (const std::string& name : writes)
    {
        UdpClient client;
        client.Upload(name, "PLANTED\n");
    }

    // The homes themselves still serve and take files, so the refusals above are not a broken server.
    UdpClient control;
    EXPECT_EQ(control.Download("inside.txt"), "inside\n");
    UdpClient uploader;
    EXPECT_TRUE(uploader.Upload("/cfg/landed.txt", "landed\n"));
    EXPECT_EQ(Read(root / "srv" / "cfg" / "landed.txt"), "landed\n");

    EXPECT_EQ(Snapshot(root, {root / "srv" / "boot", root / "srv" / "cfg", root / "client"}), before);
    EXPECT_FALSE(fs::exists(planted));
    EXPECT_EQ(Read(root / "outside" / "secret.txt"), "SECRET outside\n");
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0) << daemon->StandardError();
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
    const fs::path config = Config(TftpConfig("boot") + "[bootp]\nboot_server = \"10.77.42.1\"\n"
                                   "boot_file = \"image.bin\"\n[[bootp.hosts]]\nmac = \"02:77:42:00:00:32\"\n"
                                   "ip = \"10.77.42.50\"\n");
    auto daemon = StartDaemon({"--config", config.string(), "--user", "nobody"}, "BOOTP server on 0.0.0.0:67");

    // Twenty rounds of about a second: downloads throughout, the BOOTP client in round 5, a reload in round 10.
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < 20; ++round)
    {
        const std::string name = "fetched-" + std::to_string(round) + ".bin";
        EXPECT_EQ(Tftp("get image.bin " + name), 0);
        EXPECT_EQ(Read(root / "client" / name), content) << "round " << round;
        if (round == 5)
        {
            const std::string reply =
                peer.Output("timeout 30 bootpc --dev vnetd1 --returniffail --timeoutwait 10 2>&1");
            EXPECT_NE(reply.find("IPADDR='10.77.42.50'"), std::string::npos) << reply << daemon->StandardError();
        }
        if (round == 10)
        {
            const std::size_t logged = daemon->StandardError().size();
            daemon->Signal(SIGHUP);
            EXPECT_TRUE(daemon->WaitForError("Reload done", std::chrono::seconds(10), logged))
                << daemon->StandardError();
        }
        std::this_thread::sleep_until(start + std::chrono::seconds(round + 1));
    }
    const std::string status = Read("/proc/" + std::to_string(daemon->GetPid()) + "/status");
    EXPECT_NE(status.find("\nUid:\t65534\t65534\t65534\t65534\n"), std::string::npos) << status;
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0) << daemon->StandardError();
    EXPECT_EQ(daemon->StandardError().find("ERROR"), std::string::npos) << daemon->StandardError();
}

TEST_F(DaemonSafetyTest, StalledReadRequestsEndWithinTheTimeOutByDefault)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    constexpr int Requests = 200;
    constexpr int Timeout = 2;
    auto daemon = StartDaemon(
        {"--config", Config("[logging]\nlevel = \"debug\"\n[tftp]\ntimeout = " + std::to_string(Timeout) +
                            "\n[[tftp.home]]\npath = \"boot\"\n")
                         .string()});
    std::vector<std::unique_ptr<UdpClient>> clients;
    for (int index = 0; index < Requests; ++index)
    {
        clients.push_back(std::make_unique<UdpClient>());
        clients.back()->Send(VantrelTest::Request(1, "image.bin"));
    }
    const auto sent = std::chrono::steady_clock::now();
    const auto deadline = sent + std::chrono::seconds(Timeout + 4);
    // The library's own line for each session: the journal collapses its repeats, the debug level shows them all.
    const std::string timedOut = "TftpServer: Session ";
    while (Count(daemon->StandardError(), timedOut) < Requests && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const std::string log = daemon->StandardError();
    RecordProperty("SecondsUntilAllTimedOut",
                   std::to_string(std::chrono::duration<double>(std::chrono::steady_clock::now() - sent).count()));
    EXPECT_EQ(Count(log, timedOut), static_cast<std::size_t>(Requests)) << log.substr(log.size() - 2000);
    for (const auto& client : clients)
    {
        EXPECT_NE(log.find("Session " + client->Name() + " timed out"), std::string::npos) << client->Name();
    }
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}

TEST_F(DaemonSafetyTest, AConfinedDaemonRefusesAReloadItCouldNotServe)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    fs::create_directories(root / "other");
    fs::create_directories(root / "boot" / "sub");
    const fs::path config = Config(TftpConfig("boot"));
    auto daemon = StartDaemon({"--config", config.string()});
    // A folder outside the view is not even seen; one inside a home is seen but is another home.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {TftpConfig("other"), "tftp.home[0].path: directory \"" + (root / "other").string() +
                                  "\" is not one of the home folders the confined daemon was started with: restart "
                                  "vantrel-netd to serve it"},
        {TftpConfig("boot/sub"), "the home folders changed (added: " + (root / "boot" / "sub").string() +
                                     "; removed: " + (root / "boot").string() + ")"},
        {TftpConfig("boot", true), "tftp.write was turned on"},
    };
    for (const auto& [text, refusal] : cases)
    {
        const std::size_t logged = daemon->StandardError().size();
        Config(text);
        daemon->Signal(SIGHUP);
        EXPECT_TRUE(daemon->WaitForError(refusal, std::chrono::seconds(10), logged))
            << daemon->StandardError().substr(logged);
        EXPECT_NE(daemon->StandardError().find("ERROR VantrelNetd.Daemon: Reload refused, the running servers go on: ",
                                               logged),
                  std::string::npos);
    }
    EXPECT_EQ(Tftp("get image.bin"), 0);
    EXPECT_EQ(Read(root / "client" / "image.bin"), content);
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}

TEST_F(DaemonSafetyTest, AConfinedDaemonStillReadsItsConfigAndOpensLogFilesInItsLogFolder)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path config = Config("[logging]\nfile = \"first.log\"\n" + TftpConfig("boot"));
    DaemonProcess daemon({"--config", config.string()});
    ASSERT_TRUE(WaitForFileText(root / "first.log", "Confined: the file system holds only the home folders"));

    Config("[logging]\nfile = \"second.log\"\n" + TftpConfig("boot"));
    daemon.Signal(SIGHUP);
    EXPECT_TRUE(WaitForFileText(root / "second.log", "Reload done")) << Read(root / "first.log");
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(), 0);
}

TEST_F(DaemonSafetyTest, StalePartFilesAreRemovedAndFreshOnesKept)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    fs::create_directories(root / "boot" / "a" / "b" / "c");
    const std::vector<std::pair<fs::path, bool>> files = {
        {root / "boot" / "stale.bin.part", true},
        {root / "boot" / "a" / "b" / "c" / "deep.bin.part", true},
        {root / "boot" / "fresh.bin.part", false},
        {root / "boot" / "old.txt", false},
    };
    for (const auto& [path, stale] : files)
    {
        Write(path, "x");
        SetAge(path, path.filename() == "fresh.bin.part" ? 0 : 3600);
    }
    auto daemon = StartDaemon({"--config", Config(TftpConfig("boot", true)).string()});
    for (const auto& [path, stale] : files)
    {
        EXPECT_NE(fs::exists(path), stale) << path;
        EXPECT_EQ(daemon->StandardError().find("Removed " + path.string() + ": no upload has written it for") !=
                      std::string::npos,
                  stale)
            << daemon->StandardError();
    }
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}

TEST_F(DaemonSafetyTest, CheckWarnsWhereTheLibraryWouldQuietlyFail)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // One byte past what 65,535 blocks hold, and the largest file that still transfers intact.
    fs::resize_file((Write(root / "boot" / "big.img", ""), root / "boot" / "big.img"), 65535ULL * 512ULL);
    fs::resize_file((Write(root / "boot" / "edge.img", ""), root / "boot" / "edge.img"), 65535ULL * 512ULL - 1);
    struct Case
    {
        std::string config;
        std::vector<std::string> extra;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {TftpConfig("boot"), {}, "warning: tftp: " + (root / "boot" / "big.img").string() + " has 33553920 bytes"},
        {"[bootp]\n", {}, "warning: bootp: no route for 255.255.255.255: every reply will fail (Network is unreachable) while the log "
                       "says the address was assigned; add one towards the devices with: ip route add "
                       "255.255.255.255/32 dev IFACE\n"},
        {TftpConfig("boot", true), {"--user", "nobody"}, "user nobody cannot write the home folder " +
                                                             (root / "boot").string()},
        {"[tftp]\nretries = 3\n[[tftp.home]]\npath = \"boot\"\n", {}, "tftp.retries: 3: a transfer that stalls"},
    };
    for (const Case& item : cases)
    {
        std::vector<std::string> arguments{"--config", Config(item.config).string(), "--check"};
        arguments.insert(arguments.end(), item.extra.begin(), item.extra.end());
        std::string output;
        EXPECT_EQ(DaemonProcess::Run(arguments, nullptr, &output), 0) << item.config;
        EXPECT_NE(output.find(item.expected), std::string::npos) << output;
        EXPECT_EQ(output.find("edge.img"), std::string::npos) << output;
    }
}

TEST_F(DaemonSafetyTest, WithoutThePrivilegeToConfineOneWarningSaysSo)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    DaemonProcess daemon({"--config", Config(TftpConfig("boot")).string()},
                         {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                          "--inh-caps=+net_bind_service", "--ambient-caps=+net_bind_service"});
    ASSERT_TRUE(daemon.WaitForError("TFTP server on UDP port 69")) << daemon.StandardError();
    EXPECT_EQ(Count(daemon.StandardError(), "Not confined (no privilege to create a mount namespace"), 1U)
        << daemon.StandardError();
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(), 0);
}

} // namespace
