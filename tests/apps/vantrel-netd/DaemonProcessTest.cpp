// End-to-end tests of the vantrel-netd binary: TFTP and BOOTP clients, signals, exit statuses.
#include "DaemonProcess.hpp"

#include "Support/NetworkNamespace.hpp"
#include "Support/Files.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using VantrelTest::DaemonProcess;
namespace fs = std::filesystem;

namespace
{

class DaemonProcessTest : public VantrelTest::DaemonTest
{
protected:
    // `vantrel-netd status` against the socket a ControlConfig() names; the exit status and the output.
    int Status(const std::vector<std::string>& options, std::string& output, std::string& error,
               const std::vector<std::string>& prefix = {})
    {
        std::vector<std::string> arguments{"status", "--socket", (root / "netd.sock").string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return DaemonProcess::Run(arguments, &error, &output, prefix);
    }

    std::string ControlConfig() const { return "[control]\nsocket = \"netd.sock\"\n"; }

    // Polls `status --json` (bounded) until a transfer of `name` is in progress; checks the text form then.
    bool WaitForRunning(const std::string& name)
    {
        for (int attempt = 0; attempt < 200; ++attempt)
        {
            std::string output;
            std::string error;
            if (Status({"--json"}, output, error) == 0)
            {
                const auto running = nlohmann::json::parse(output).at("running");
                if (running.size() == 1 && running[0].at("name") == name && running[0].at("direction") == "download")
                {
                    Status({}, output, error);
                    return output.find("Transfers in progress: 1\n  download 127.0.0.1:") != std::string::npos;
                }
            }
            usleep(20000);
        }
        return false;
    }
};

} // namespace

TEST_F(DaemonProcessTest, ServesDownloadsAndUploadsAndStopsWithSigtermWithinASecond)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path config = Config(TftpConfig("boot", true));
    auto daemon = StartDaemon({"--config", config.string()});

    Tftp("get image.bin fetched.bin");
    EXPECT_EQ(Read(root / "client" / "fetched.bin"), content);

    Write(root / "client" / "upload.txt", "uploaded by the test\n");
    Tftp("put upload.txt stored.txt");
    EXPECT_EQ(Read(root / "boot" / "stored.txt"), "uploaded by the test\n");

    // The TFTP loop never ends by itself: the stop is bounded by the join limit the daemon sets.
    const auto signalled = std::chrono::steady_clock::now();
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(std::chrono::seconds(5)), 0) << daemon->StandardError();
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::milliseconds(900));
    const std::string log = daemon->StandardError();
    EXPECT_NE(log.find("SIGTERM: stopping"), std::string::npos) << log;
    EXPECT_EQ(log.find("ERROR"), std::string::npos) << log;
    // One summary line each, no second session for the download's final acknowledgement, and the
    // engine's own lines left to the debug level.
    const std::string download = "`image.bin` (" + (root / "boot" / "image.bin").string() + ") octet: complete, " +
                                 std::to_string(content.size()) + " bytes in ";
    const std::string upload =
        "`stored.txt` (" + (root / "boot" / "stored.txt").string() + ") octet: complete, 21 bytes in ";
    EXPECT_NE(log.find(download), std::string::npos) << log;
    EXPECT_NE(log.find(upload), std::string::npos) << log;
    EXPECT_EQ(log.find("tftp: download"), log.rfind("tftp: download")) << log;
    EXPECT_EQ(log.find("Create session"), std::string::npos) << log;
}

TEST_F(DaemonProcessTest, WithoutAConfigServesTheTftpRootReadOnlyAndStopsWithSigint)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path folder = root / "fresh";
    auto daemon = std::make_unique<DaemonProcess>(
        std::vector<std::string>{"--tftp-root", folder.string(), "--log-file", (root / "netd.log").string()});
    // Logging goes to the file; wait there for the servers.
    ASSERT_TRUE(WaitForFileText(root / "netd.log", "TFTP server on"));
    ASSERT_TRUE(fs::exists(folder / "hello.txt"));
    Tftp("get hello.txt");
    EXPECT_EQ(Read(root / "client" / "hello.txt"), Read(folder / "hello.txt"));

    Write(root / "client" / "x.txt", "x");
    Tftp("put x.txt x.txt");
    EXPECT_FALSE(fs::exists(folder / "x.txt"));

    daemon->Signal(SIGINT);
    EXPECT_EQ(daemon->WaitForExit(std::chrono::seconds(5)), 0);
    EXPECT_NE(Read(root / "netd.log").find("SIGINT: stopping"), std::string::npos);
    EXPECT_EQ(daemon->StandardError(), "");
}

TEST_F(DaemonProcessTest, SighupWithAChangedConfigRestartsTheServersWithIt)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    fs::create_directories(root / "other");
    Write(root / "other" / "second.txt", "from the second home\n");
    // A confined daemon refuses new homes (DaemonSafetyTest); without confinement they are taken.
    const std::string unconfined = "[daemon]\nconfine = false\n";
    const fs::path config = Config(unconfined + TftpConfig("boot"));
    auto daemon = StartDaemon({"--config", config.string()});
    EXPECT_TRUE(daemon->WaitForError("WARN  VantrelNetd.Daemon: daemon.confine is false")) << daemon->StandardError();

    Config(unconfined + TftpConfig("other"));
    daemon->Signal(SIGHUP);
    ASSERT_TRUE(daemon->WaitForError("Reload done")) << daemon->StandardError();
    Tftp("get second.txt");
    EXPECT_EQ(Read(root / "client" / "second.txt"), "from the second home\n");
    Tftp("get image.bin");
    EXPECT_FALSE(fs::exists(root / "client" / "image.bin") && Read(root / "client" / "image.bin") == content);

    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}

TEST_F(DaemonProcessTest, SighupWithABrokenConfigIsRefusedAndTheServersGoOn)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path config = Config(TftpConfig("boot"));
    auto daemon = StartDaemon({"--config", config.string()});

    Config("[tftp]\nread = maybe\n");
    daemon->Signal(SIGHUP);
    ASSERT_TRUE(daemon->WaitForError("Reload refused, the running servers go on: " + config.string() + ":2:"))
        << daemon->StandardError();
    Tftp("get image.bin");
    EXPECT_EQ(Read(root / "client" / "image.bin"), content);

    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}

TEST_F(DaemonProcessTest, EveryKindOfBadConfigExits78WithOneLineNamingIt)
{
    struct Case
    {
        std::string text;
        std::string named;
    };
    const Case cases[] = {
        {"[tftp]\ncolour = 1\n", ":2:1: tftp.colour: unknown key"},
        {"[tftp]\nread = 1\n", ":2:8: tftp.read: expected a boolean"},
        {"[tftp]\nallowed_clients = [\"10.0.0\"]\n", ":2:20: tftp.allowed_clients[0]: \"10.0.0\" is not an IPv4"},
        {"[tftp]\n[[tftp.home]]\npath = \"absent\"\n", ":3:8: tftp.home[0].path: directory"},
        {"[bootp]\n[[bootp.hosts]]\nmac = \"00:11:22\"\nip = \"10.77.0.2\"\n", ":3:7: bootp.hosts[0].mac:"},
        {"[tftp\n", ":1:6: "},
        {"[web]\nlisten = \"localhost:8069\"\n[bootp]\n", ":2:10: web.listen: \"localhost:8069\" is not an address"},
        {"[web]\nlisten = \"127.0.0.1:0\"\n[bootp]\n", ":2:10: web.listen:"},
    };
    for (const Case& item : cases)
    {
        const fs::path config = Config(item.text);
        std::string error;
        EXPECT_EQ(DaemonProcess::Run({"--config", config.string()}, &error), 78) << item.text;
        EXPECT_EQ(error.rfind("vantrel-netd: " + config.string() + item.named, 0), 0U) << error;
        ExpectOneLine(error);
    }
    std::string error;
    EXPECT_EQ(DaemonProcess::Run({"--config", (root / "absent.toml").string()}, &error), 78);
    EXPECT_NE(error.find("absent.toml: cannot read the config file"), std::string::npos) << error;
    ExpectOneLine(error);
}

TEST_F(DaemonProcessTest, BadCommandLinesExit64WithOneLine)
{
    const std::vector<std::vector<std::string>> cases = {
        {"--bogus"}, {"--log-level", "loud"}, {"--check"}, {"--user", "no-such-user-here"},
        {"assign", "02:00:00:00:00:01"}, {"assign", "--from", "plan.csv", "02:00:00:00:00:01"}, {"unassign"}};
    for (const auto& arguments : cases)
    {
        std::string error;
        EXPECT_EQ(DaemonProcess::Run(arguments, &error), 64) << arguments.front();
        EXPECT_EQ(error.rfind("vantrel-netd: ", 0), 0U) << error;
        ExpectOneLine(error);
    }
}

TEST_F(DaemonProcessTest, CheckPrintsWhatWouldRunWithWarningsAndExits0)
{
    const fs::path config = Config(TftpConfig("boot") + "[bootp]\nboot_file = \"pxelinux.0\"\n"
                                   "[[bootp.hosts]]\nmac = \"01:02:00:00:00:00\"\nip = \"10.77.0.2\"\n"
                                   "[[bootp.hosts]]\nmac = \"02-01-00-00-00-00\"\nip = \"10.77.0.3\"\n");
    std::string error;
    std::string output;
    EXPECT_EQ(DaemonProcess::Run({"--config", config.string(), "--check"}, &error, &output), 0) << error;
    EXPECT_NE(output.find("tftp: on"), std::string::npos) << output;
    EXPECT_NE(output.find("home / -> " + (root / "boot").string()), std::string::npos) << output;
    EXPECT_NE(output.find("host 02:01:00:00:00:00 -> 10.77.0.3"), std::string::npos) << output;
    // The table's ordering deliberately loses the second of these two entries.
    EXPECT_NE(output.find("warning: " + config.string() + ":11:7: bootp.hosts[1].mac: 02:01:00:00:00:00 cannot be "
                          "found"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("config OK"), std::string::npos);

    const fs::path example = fs::path(VANTREL_SOURCE_DIRECTORY) / "examples" / "vantrel-netd.toml";
    EXPECT_EQ(DaemonProcess::Run({"--config", example.string(), "--check"}, &error, &output), 0) << error;
}

TEST_F(DaemonProcessTest, APortInUseExits69BeforeAnyServerStarts)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const int holder = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(69);
    ASSERT_EQ(::bind(holder, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);

    std::string error;
    EXPECT_EQ(DaemonProcess::Run({"--config", Config(TftpConfig("boot")).string()}, &error), 69);
    EXPECT_NE(error.find("vantrel-netd: TFTP cannot bind UDP 0.0.0.0:69: the port is in use"), std::string::npos)
        << error;
    ExpectOneLine(error);
    ::close(holder);
}

TEST_F(DaemonProcessTest, APrivilegedPortWithoutTheCapabilityExits77)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    std::string error;
    EXPECT_EQ(DaemonProcess::Run({"--config", Config(TftpConfig("boot")).string()}, &error, nullptr,
                                 {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"}),
              77)
        << error;
    EXPECT_NE(error.find("vantrel-netd: TFTP cannot bind UDP 0.0.0.0:69: permission denied"), std::string::npos)
        << error;
    ExpectOneLine(error);
}

TEST_F(DaemonProcessTest, DropsToTheGivenUserOnceBoundAndCanStillReload)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path config = Config(TftpConfig("boot"));
    auto daemon = StartDaemon({"--config", config.string(), "--user", "65534"}, "Running as user");
    const std::string status = Read("/proc/" + std::to_string(daemon->GetPid()) + "/status");
    EXPECT_NE(status.find("\nUid:\t65534\t65534\t65534\t65534\n"), std::string::npos) << status;
    EXPECT_NE(status.find("\nGid:\t65534\t65534\t65534\t65534\n"), std::string::npos) << status;

    // The reload binds port 69 again as the unprivileged user.
    daemon->Signal(SIGHUP);
    ASSERT_TRUE(daemon->WaitForError("Reload done")) << daemon->StandardError();
    Tftp("get image.bin");
    EXPECT_EQ(Read(root / "client" / "image.bin"), content);

    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0) << daemon->StandardError();
}

TEST_F(DaemonProcessTest, ABootpClientAcrossAVethPairGetsItsAddress)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const std::string peer = "vnetd-" + std::to_string(::getpid());
    ASSERT_EQ(VantrelTest::Shell("ip netns add " + peer), 0);
    const int linked = VantrelTest::Shell(
        "ip link add vnetd0 type veth peer name vnetd1 netns " + peer +
        " && ip addr add 10.77.41.1/24 dev vnetd0 && ip link set vnetd0 up"
        " && ip route add 255.255.255.255/32 dev vnetd0"
        " && ip -n " + peer + " link set lo up && ip -n " + peer + " link set vnetd1 address 02:77:41:00:00:32"
        " && ip -n " + peer + " link set vnetd1 up && ip -n " + peer + " route add 255.255.255.255/32 dev vnetd1");
    if (linked == 0)
    {
        const fs::path config = Config(ControlConfig() +
                                       "[bootp]\nboot_server = \"10.77.41.1\"\nboot_file = \"pxelinux.0\"\n"
                                       "[[bootp.hosts]]\nmac = \"02-77-41-00-00-32\"\nip = \"10.77.41.50\"\n");
        auto daemon = StartDaemon({"--config", config.string()}, "BOOTP server on 0.0.0.0:67");
        const std::string reply = VantrelTest::ShellOutput("ip netns exec " + peer +
                                                           " timeout 30 bootpc --dev vnetd1 --returniffail --timeoutwait 10 2>&1");
        EXPECT_NE(reply.find("IPADDR='10.77.41.50'"), std::string::npos) << reply << daemon->StandardError();
        EXPECT_NE(reply.find("pxelinux.0"), std::string::npos) << reply;
        EXPECT_TRUE(daemon->WaitForError("bootp: new device 02:77:41:00:00:32 (in the table)"))
            << daemon->StandardError();
        EXPECT_TRUE(daemon->WaitForError("bootp: assigned 10.77.41.50 to 02:77:41:00:00:32 (request 1 from it)"))
            << daemon->StandardError();
        std::string text;
        std::string json;
        std::string error;
        EXPECT_EQ(Status({}, text, error), 0) << error;
        EXPECT_NE(text.find("02:77:41:00:00:32  seen 1 time(s)"), std::string::npos) << text;
        EXPECT_NE(text.find("assigned 10.77.41.50"), std::string::npos) << text;
        ASSERT_EQ(Status({"--json"}, json, error), 0) << error;
        const auto devices = nlohmann::json::parse(json).at("devices");
        ASSERT_EQ(devices.size(), 1U) << json;
        EXPECT_EQ(devices[0].at("hardware"), "02:77:41:00:00:32");
        EXPECT_EQ(devices[0].at("assigned"), "10.77.41.50");
        daemon->Signal(SIGTERM);
        EXPECT_EQ(daemon->WaitForExit(), 0);
    }
    VantrelTest::Shell("ip netns del " + peer);
    ASSERT_EQ(linked, 0) << "could not set up the veth pair";
}

TEST_F(DaemonProcessTest, SighupDuringADownloadRestartsOnlyTheServersThatChanged)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    struct Case
    {
        bool uploads;
        std::string bootFile;
        int hosts;
        std::string change;
    };
    const Case cases[] = {
        {true, "b.0", 2, "Reload: bootp: 1 host added, boot file changed; tftp unchanged"},
        {false, "a.0", 1, "Reload: bootp unchanged; tftp: write changed"},
    };
    const std::string image = VantrelTest::PatternBytes(1 << 20);
    Write(root / "boot" / "big.bin", image);
    for (const Case& item : cases)
    {
        fs::remove(root / "client" / "big.bin");
        // Uploads on at the start: a confined daemon can turn them off at a reload, not on.
        const fs::path config = Config(ControlConfig() + TftpConfig("boot", true) + BootpConfig("a.0", 1));
        auto daemon = StartDaemon({"--config", config.string()}, "BOOTP server on");
        std::thread download([this] { Tftp("get big.bin"); });
        EXPECT_TRUE(WaitForRunning("big.bin")) << daemon->StandardError();
        Config(TftpConfig("boot", item.uploads) + BootpConfig(item.bootFile, item.hosts));
        daemon->Signal(SIGHUP);
        EXPECT_TRUE(daemon->WaitForError("Reload done", std::chrono::seconds(20))) << daemon->StandardError();
        download.join();
        // The journal writes its line off the server threads, a moment after the client is done.
        const std::string complete =
            "`big.bin` (" + (root / "boot" / "big.bin").string() + ") octet: complete, 1048576 bytes in ";
        EXPECT_TRUE(daemon->WaitForError(complete)) << daemon->StandardError();

        const std::string log = daemon->StandardError();
        EXPECT_NE(log.find(item.change), std::string::npos) << log;
        // The download ran across the reload and arrived whole; none was cut.
        const std::size_t summary = log.find(complete);
        EXPECT_NE(summary, std::string::npos) << log;
        EXPECT_LT(log.find("SIGHUP: reloading"), summary) << log;
        EXPECT_TRUE(Read(root / "client" / "big.bin") == image) << log;
        EXPECT_EQ(log.find(" cut by "), std::string::npos) << log;
        // The restarted TFTP server runs with the new settings.
        Write(root / "client" / "up.txt", "after the reload\n");
        EXPECT_EQ(Tftp("put up.txt up.txt") == 0 && fs::exists(root / "boot" / "up.txt"), item.uploads) << log;
        fs::remove(root / "boot" / "up.txt");
        daemon->Signal(SIGTERM);
        EXPECT_EQ(daemon->WaitForExit(), 0);
    }
}

TEST_F(DaemonProcessTest, ATransferThatOutlastsTheRestartWaitIsLoggedAsCut)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // A client that never acknowledges holds its transfer open: with retries above what it was sent,
    // the library keeps the session.
    const std::string stalled = "[tftp]\ntimeout = 1\nretries = 5\n[[tftp.home]]\npath = \"boot\"\n";
    // A signal that comes during the wait: none, a second SIGHUP (one more reload after this one), a stop.
    for (const int during : {0, SIGHUP, SIGTERM})
    {
        auto daemon = StartDaemon({"--config", Config(stalled).string()});
        VantrelTest::UdpClient client;
        client.Send(VantrelTest::Request(1, "image.bin"));
        ASSERT_TRUE(client.Receive().has_value());
        Config("[tftp]\ntimeout = 2\nretries = 5\n[[tftp.home]]\npath = \"boot\"\n");
        daemon->Signal(SIGHUP);
        ASSERT_TRUE(daemon->WaitForError("tftp: waiting up to 2 s for 1 transfer(s)")) << daemon->StandardError();
        if (during != 0)
        {
            daemon->Signal(during);
        }
        const std::string cause = during == SIGTERM ? "the stop" : "the reload";
        EXPECT_TRUE(daemon->WaitForError("tftp: download " + client.Name() + " `image.bin` (" +
                                         (root / "boot" / "image.bin").string() + ") octet: cut by " + cause))
            << daemon->StandardError();
        if (during != SIGTERM)
        {
            EXPECT_TRUE(daemon->WaitForError("Reload done")) << daemon->StandardError();
        }
        if (during == SIGHUP)
        {
            const std::size_t first = daemon->StandardError().find("Reload done");
            EXPECT_TRUE(daemon->WaitForError("Reload: bootp unchanged; tftp unchanged", std::chrono::seconds(5), first))
                << daemon->StandardError();
        }
        daemon->Signal(SIGTERM);
        EXPECT_EQ(daemon->WaitForExit(std::chrono::seconds(2)), 0) << daemon->StandardError();
    }
}

TEST_F(DaemonProcessTest, ADownloadOfAFileTooLargeForTftpIsReportedOnce)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // One block past what the 16-bit block number reaches; sparse, so it costs no disk.
    Write(root / "boot" / "huge.bin", "");
    fs::resize_file(root / "boot" / "huge.bin", 65536 * 512);
    auto daemon = StartDaemon({"--config", Config(TftpConfig("boot")).string()});
    Tftp("get image.bin");
    VantrelTest::Shell("cd '" + (root / "client").string() + "' && timeout 1 tftp -m binary 127.0.0.1 -c get huge.bin");
    const std::string line = "requested `huge.bin` (" + (root / "boot" / "huge.bin").string() + ", 33554432 bytes)";
    EXPECT_TRUE(daemon->WaitForError(line)) << daemon->StandardError();
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
    const std::string log = daemon->StandardError();
    EXPECT_EQ(log.find(line), log.rfind(line)) << log;
    EXPECT_EQ(log.find("requested `image.bin`"), std::string::npos) << log;
}

TEST_F(DaemonProcessTest, SighupAfterALogrotateRenameWritesOnIntoANewFile)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path logFile = root / "netd.log";
    auto daemon = std::make_unique<DaemonProcess>(
        std::vector<std::string>{"--config", Config(TftpConfig("boot")).string(), "--log-file", logFile.string()});
    const auto waitInLog = [&](const fs::path& file, const std::string& text) {
        for (int attempt = 0; attempt < 250 && Read(file).find(text) == std::string::npos; ++attempt)
        {
            usleep(20000);
        }
        return Read(file).find(text) != std::string::npos;
    };
    ASSERT_TRUE(waitInLog(logFile, "TFTP server on"));
    fs::rename(logFile, root / "netd.log.1");
    daemon->Signal(SIGHUP);
    EXPECT_TRUE(waitInLog(logFile, "Reload done")) << daemon->StandardError();
    EXPECT_EQ(Read(root / "netd.log.1").find("SIGHUP"), std::string::npos);
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
    EXPECT_NE(Read(logFile).find("SIGTERM: stopping"), std::string::npos);
}

TEST_F(DaemonProcessTest, CheckOpensTheLogFileAsAStartWould)
{
    struct Case
    {
        std::vector<std::string> arguments;
        std::string config;
        std::vector<std::string> prefix;
        int status;
        std::string text;
    };
    const std::string given = (root / "given.log").string();
    const std::string missing = (root / "absent" / "netd.log").string();
    // Root's file, which another user may not append to.
    Write(root / "root.log", "");
    const std::vector<std::string> nobody{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    const Case cases[] = {
        {{"--log-file", given}, "", {}, 0, "log file: " + given + " (from --log-file, opened for appending)"},
        {{}, "[logging]\nfile = \"given.log\"\n", {}, 0, "log file: " + given + " (from the config"},
        {{"--log-file", missing}, "", {}, 73, "vantrel-netd: cannot open log file " + missing + ": No such file"},
        {{}, "[logging]\nfile = \"root.log\"\n", nobody, 73,
         "vantrel-netd: cannot open log file " + (root / "root.log").string() + ": Permission denied"},
    };
    for (const Case& item : cases)
    {
        std::vector<std::string> arguments{"--config", Config(item.config + TftpConfig("boot")).string(), "--check"};
        arguments.insert(arguments.end(), item.arguments.begin(), item.arguments.end());
        std::string error;
        std::string output;
        EXPECT_EQ(DaemonProcess::Run(arguments, &error, &output, item.prefix), item.status) << error;
        EXPECT_NE((item.status == 0 ? output : error).find(item.text), std::string::npos) << output << error;
        if (item.status != 0)
        {
            ExpectOneLine(error);
        }
    }
    EXPECT_TRUE(fs::exists(given));
}

// What happens to the read end of the daemon's standard error once it has started.
enum class LogReader
{
    StopsReading,
    Exits,
};

class DaemonLogReaderTest : public DaemonProcessTest, public testing::WithParamInterface<LogReader>
{
};

TEST_P(DaemonLogReaderTest, NeitherStopsADownloadNorTheDaemon)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // Some 600 blocks at trace level: well over the 64 KiB a pipe holds.
    std::string large;
    while (large.size() < 300 * 1024)
    {
        large += content;
    }
    Write(root / "boot" / "large.bin", large);
    const fs::path config = Config("[logging]\nlevel = \"trace\"\n" + TftpConfig("boot"));
    int log[2];
    ASSERT_EQ(::pipe2(log, O_CLOEXEC), 0);
    DaemonProcess daemon({"--config", config.string()}, {}, log[1]);
    ::close(log[1]);
    std::string seen;
    char buffer[4096];
    for (int reads = 0; reads < 1000 && seen.find("TFTP server on UDP port 69") == std::string::npos; ++reads)
    {
        pollfd readable{log[0], POLLIN, 0};
        ASSERT_EQ(::poll(&readable, 1, 10000), 1) << seen;
        const ssize_t count = ::read(log[0], buffer, sizeof(buffer));
        ASSERT_GT(count, 0) << seen;
        seen.append(buffer, static_cast<std::size_t>(count));
    }
    if (GetParam() == LogReader::Exits)
    {
        ::close(log[0]);
    }

    Tftp("get large.bin");
    EXPECT_TRUE(Read(root / "client" / "large.bin") == large) << "the download did not arrive whole";
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(std::chrono::seconds(20)), 0);
    if (GetParam() == LogReader::StopsReading)
    {
        ::close(log[0]);
    }
}

INSTANTIATE_TEST_SUITE_P(Readers, DaemonLogReaderTest, testing::Values(LogReader::StopsReading, LogReader::Exits),
                         [](const testing::TestParamInfo<LogReader>& reader) {
                             return std::string(reader.param == LogReader::Exits ? "Exits" : "StopsReading");
                         });

TEST_F(DaemonProcessTest, StatusAnswersOnlyItsOwnerAndSaysWhenNoDaemonRuns)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const std::vector<std::string> nobody{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
    std::string output;
    std::string error;
    EXPECT_EQ(Status({}, output, error), 69);
    EXPECT_NE(error.find("no vantrel-netd is running: nothing listens on " + (root / "netd.sock").string()),
              std::string::npos)
        << error;
    ExpectOneLine(error);

    auto daemon = StartDaemon({"--config", Config(ControlConfig() + TftpConfig("boot")).string()});
    EXPECT_EQ(fs::status(root / "netd.sock").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(Status({}, output, error, nobody), 77);
    EXPECT_NE(error.find("no permission to use the control socket"), std::string::npos) << error;
    ExpectOneLine(error);
    EXPECT_EQ(Status({}, output, error), 0) << error;
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
    EXPECT_FALSE(fs::exists(root / "netd.sock"));
}

TEST_F(DaemonProcessTest, RealClientsRequestsEachGetTheirOneSummaryLine)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    auto daemon = StartDaemon({"--config", Config(TftpConfig("boot", true)).string()});
    Write(root / "client" / "new.txt", "new\n");
    const std::string boot = (root / "boot").string();
    struct Case
    {
        std::string command;
        std::string line;
    };
    const Case cases[] = {
        {"-m netascii 127.0.0.1 -c get image.bin",
         "`image.bin` (" + boot + "/image.bin) netascii: complete, netascii requested and served unconverted, " +
             std::to_string(content.size()) + " bytes in "},
        {"-m binary 127.0.0.1 -c get absent.bin", "`absent.bin` (" + boot + "/absent.bin) octet: refused: not found"},
        {"-m binary 127.0.0.1 -c put new.txt image.bin",
         "`image.bin` (" + boot + "/image.bin) octet: refused: the file exists and overwriting is off"},
    };
    for (const Case& item : cases)
    {
        const std::size_t from = daemon->StandardError().size();
        VantrelTest::Shell("cd '" + (root / "client").string() + "' && timeout 5 tftp " + item.command +
                           " >/dev/null 2>&1");
        EXPECT_TRUE(daemon->WaitForError(item.line, std::chrono::seconds(5), from)) << daemon->StandardError();
        const std::string after = daemon->StandardError().substr(from);
        EXPECT_EQ(after.find("tftp: "), after.rfind("tftp: ")) << after;
    }
    daemon->Signal(SIGTERM);
    EXPECT_EQ(daemon->WaitForExit(), 0);
}
