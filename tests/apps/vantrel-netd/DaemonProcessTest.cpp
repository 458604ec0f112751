// End-to-end tests of the vantrel-netd binary: real clients, reloads, signals, exit statuses.
#include "DaemonProcess.hpp"

#include "Support/Files.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <tuple>

using VantrelTest::CountOf;
using VantrelTest::DaemonProcess;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

using DaemonProcessTest = VantrelTest::DaemonTest;

TEST_F(DaemonProcessTest, ServesRealClientsWithOneSummaryLineEachAndStopsWithSigtermWithinASecond)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // The ".part" files of failed uploads go at the start once stale, nested ones too; fresh ones and other files stay.
    const fs::path boot = root / "boot";
    fs::create_directories(boot / "a" / "b");
    const std::pair<fs::path, bool> parts[] = {
        {boot / "stale.bin.part", true}, {boot / "a" / "b" / "deep.bin.part", true},
        {boot / "fresh.bin.part", false}, {boot / "old.txt", false}};
    for (const auto& [path, stale] : parts)
    {
        Write(path, "x");
        const auto age = path.filename() == "fresh.bin.part" ? 0h : 1h;
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }
    auto daemon = StartDaemon({"--config", Config(ControlConfig() + TftpConfig("boot", true))});
    for (const auto& [path, stale] : parts)
    {
        EXPECT_NE(fs::exists(path), stale) << path;
        EXPECT_EQ(CountOf(daemon->StandardError(), "Removed " + path.string() + ": no upload has written it for"),
                  stale ? 1U : 0U);
    }

    Write(root / "client" / "upload.txt", "uploaded by the test\n");
    const std::string image = "`image.bin` (" + (boot / "image.bin").string() + ") ";
    // Mode, client command, the journal's line.
    const std::tuple<std::string, std::string, std::string> requests[] = {
        {"netascii", "get image.bin",
         image + "netascii: complete, netascii requested and served unconverted, " + std::to_string(content.size())},
        {"binary", "get image.bin", image + "octet: complete, " + std::to_string(content.size()) + " bytes in "},
        {"binary", "put upload.txt stored.txt",
         "`stored.txt` (" + (boot / "stored.txt").string() + ") octet: complete, 21 bytes in "},
        {"binary", "get absent.bin", "`absent.bin` (" + (boot / "absent.bin").string() + ") octet: refused: not found"},
        {"binary", "put upload.txt image.bin", image + "octet: refused: the file exists and overwriting is off"},
    };
    for (const auto& [mode, command, line] : requests)
    {
        const std::size_t from = daemon->StandardError().size();
        Tftp(command, mode);
        EXPECT_TRUE(daemon->WaitForError(line, 5s, from)) << daemon->StandardError();
        const std::string after = daemon->StandardError().substr(from);
        EXPECT_EQ(CountOf(after, "tftp: "), 1U) << after;
    }
    EXPECT_EQ(Read(root / "client" / "image.bin"), content);
    EXPECT_EQ(Read(boot / "stored.txt"), "uploaded by the test\n");

    EXPECT_EQ(fs::status(root / "netd.sock").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const auto refused = Status({}, VantrelTest::AsNobody);
    EXPECT_EQ(refused.Status, 77);
    EXPECT_NE(refused.Error.find("no permission to use the control socket"), std::string::npos) << refused.Error;
    ExpectOneLine(refused.Error);
    EXPECT_EQ(Status({}).Status, 0);

    // The TFTP loop never ends by itself: the stop is bounded by the join limit the daemon sets.
    const auto signalled = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon->Stop(), 0) << daemon->StandardError();
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, 900ms);
    const std::string log = daemon->StandardError();
    EXPECT_NE(log.find("SIGTERM: stopping"), std::string::npos) << log;
    // The library's own line for the refused overwrite is the one error.
    EXPECT_EQ(CountOf(log, "ERROR "), 1U) << log;
    // The download's final acknowledgement opens no second session; the engine's own lines stay at debug level.
    EXPECT_EQ(log.find("Create session"), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(root / "netd.sock"));
}

TEST_F(DaemonProcessTest, WithoutAConfigServesTheTftpRootReadOnlyAndWritesOnIntoARotatedLog)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path folder = root / "fresh";
    const fs::path log = root / "netd.log";
    DaemonProcess daemon({"--tftp-root", folder.string(), "--log-file", log.string()});
    ASSERT_TRUE(WaitForFileText(log, "TFTP server on"));
    // The folder is made with a sample file and served read-only, without BOOTP.
    EXPECT_EQ(Read(log).find("BOOTP server"), std::string::npos) << Read(log);
    Tftp("get hello.txt");
    EXPECT_NE(Read(folder / "hello.txt"), "");
    EXPECT_EQ(Read(root / "client" / "hello.txt"), Read(folder / "hello.txt"));
    Write(root / "client" / "x.txt", "x");
    Tftp("put x.txt x.txt");
    EXPECT_FALSE(fs::exists(folder / "x.txt"));

    // One block past what the 16-bit block number reaches (sparse): reported once, when it is requested.
    Write(folder / "huge.bin", "");
    fs::resize_file(folder / "huge.bin", 65536 * 512);
    VantrelTest::UdpClient client;
    client.Send(VantrelTest::Request(1, "huge.bin"));
    const std::string huge = "requested `huge.bin` (" + (folder / "huge.bin").string() + ", 33554432 bytes)";
    EXPECT_TRUE(WaitForFileText(log, huge));

    // As logrotate does it: rename, then SIGHUP.
    fs::rename(log, root / "netd.log.1");
    daemon.Signal(SIGHUP);
    EXPECT_TRUE(WaitForFileText(log, "Reload done"));
    EXPECT_EQ(daemon.Stop(SIGINT), 0);
    EXPECT_NE(Read(log).find("SIGINT: stopping"), std::string::npos) << Read(log);
    const std::string rotated = Read(root / "netd.log.1");
    EXPECT_EQ(rotated.find("SIGHUP"), std::string::npos) << rotated;
    EXPECT_EQ(CountOf(rotated + Read(log), huge), 1U) << rotated;
    EXPECT_EQ(rotated.find("requested `hello.txt`"), std::string::npos) << rotated;
    EXPECT_EQ(daemon.StandardError(), "");
}

TEST_F(DaemonProcessTest, SighupWithAChangedConfigRestartsTheServersWithIt)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    fs::create_directories(root / "other");
    Write(root / "other" / "second.txt", "from the second home\n");
    // A confined daemon refuses new homes (DaemonSafetyTest); without confinement they are taken.
    const std::string unconfined = "[daemon]\nconfine = false\n";
    auto daemon = StartDaemon({"--config", Config(unconfined + TftpConfig("boot"))});
    EXPECT_TRUE(daemon->WaitForError("WARN  VantrelNetd.Daemon: daemon.confine is false")) << daemon->StandardError();

    Config(unconfined + TftpConfig("other"));
    daemon->Signal(SIGHUP);
    ASSERT_TRUE(daemon->WaitForError("Reload done")) << daemon->StandardError();
    Tftp("get second.txt");
    EXPECT_EQ(Read(root / "client" / "second.txt"), "from the second home\n");
    Tftp("get image.bin");
    EXPECT_NE(Read(root / "client" / "image.bin"), content);
    EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(DaemonProcessTest, SighupDuringADownloadRestartsOnlyTheServersThatChanged)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const std::string image = VantrelTest::PatternBytes(1 << 20);
    Write(root / "boot" / "big.bin", image);
    // Uploads on at the start: a confined daemon can turn them off at a reload, not on.
    const std::string host = "[[bootp.hosts]]\nmac = \"02:00:00:00:00:01\"\nip = \"10.77.0.2\"\n";
    const std::string bootp = "[bootp]\nboot_file = \"b.0\"\n" + host +
                              "[[bootp.hosts]]\nmac = \"02:00:00:00:00:02\"\nip = \"10.77.0.3\"\n";
    auto daemon = StartDaemon(
        {"--config", Config(ControlConfig() + TftpConfig("boot", true) + "[bootp]\nboot_file = \"a.0\"\n" + host)},
        "BOOTP server on");
    // The new config, the line naming the change, whether uploads are on then.
    const std::tuple<std::string, std::string, bool> reloads[] = {
        {TftpConfig("boot", true) + bootp, "Reload: bootp: 1 host added, boot file changed; tftp unchanged", true},
        {TftpConfig("boot", false) + bootp, "Reload: bootp unchanged; tftp: write changed", false},
    };
    const std::string complete =
        "`big.bin` (" + (root / "boot" / "big.bin").string() + ") octet: complete, 1048576 bytes in ";
    // `status --json` shows the download in progress; the text form then too.
    const auto running = [this] {
        const auto status = Status({"--json"});
        if (status.Status != 0)
        {
            return false;
        }
        const auto transfers = nlohmann::json::parse(status.Output).at("running");
        return transfers.size() == 1 && transfers[0].at("name") == "big.bin" &&
               transfers[0].at("direction") == "download";
    };
    for (const auto& [config, change, uploads] : reloads)
    {
        const std::size_t from = daemon->StandardError().size();
        fs::remove(root / "client" / "big.bin");
        std::thread download([this] { Tftp("get big.bin"); });
        EXPECT_TRUE(VantrelTest::Eventually(running)) << daemon->StandardError();
        EXPECT_NE(Status({}).Output.find("Transfers in progress: 1\n  download 127.0.0.1:"), std::string::npos);
        Config(ControlConfig() + config);
        daemon->Signal(SIGHUP);
        EXPECT_TRUE(daemon->WaitForError("Reload done", 20s, from)) << daemon->StandardError();
        download.join();
        // The journal writes its line off the server threads, a moment after the client is done.
        EXPECT_TRUE(daemon->WaitForError(complete, 10s, from)) << daemon->StandardError();
        const std::string log = daemon->StandardError().substr(from);
        EXPECT_NE(log.find(change), std::string::npos) << log;
        // The download ran across the reload and arrived whole; none was cut.
        EXPECT_LT(log.find("SIGHUP: reloading"), log.find(complete)) << log;
        EXPECT_TRUE(Read(root / "client" / "big.bin") == image) << log;
        EXPECT_EQ(log.find(" cut by "), std::string::npos) << log;
        // The TFTP server runs with the new settings.
        Write(root / "client" / "up.txt", "after the reload\n");
        Tftp("put up.txt up.txt");
        EXPECT_EQ(fs::exists(root / "boot" / "up.txt"), uploads) << log;
        fs::remove(root / "boot" / "up.txt");
    }
    EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(DaemonProcessTest, ATransferThatOutlastsTheRestartWaitIsLoggedAsCut)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // A client that never acknowledges holds its transfer open: with retries above what it was sent,
    // the library keeps the session.
    const auto stalled = [](int timeout) {
        return "[tftp]\ntimeout = " + std::to_string(timeout) + "\nretries = 5\n[[tftp.home]]\npath = \"boot\"\n";
    };
    int timeout = 1;
    auto daemon = StartDaemon({"--config", Config(stalled(timeout))});
    // A signal that comes during the wait: none, a second SIGHUP (one more reload after this one), a stop.
    // Each reload changes the time-out, so that the server restarts; the wait is the old time-out and one second.
    for (const int during : {0, SIGHUP, SIGTERM})
    {
        const std::size_t from = daemon->StandardError().size();
        VantrelTest::UdpClient client;
        client.Send(VantrelTest::Request(1, "image.bin"));
        ASSERT_TRUE(client.Receive().has_value());
        Config(stalled(3 - timeout));
        daemon->Signal(SIGHUP);
        ASSERT_TRUE(daemon->WaitForError("tftp: waiting up to " + std::to_string(timeout + 1) + " s for 1 transfer(s)",
                                         10s, from))
            << daemon->StandardError();
        timeout = 3 - timeout;
        if (during != 0)
        {
            daemon->Signal(during);
        }
        const std::string cause = during == SIGTERM ? "the stop" : "the reload";
        EXPECT_TRUE(daemon->WaitForError("tftp: download " + client.Name() + " `image.bin` (" +
                                             (root / "boot" / "image.bin").string() + ") octet: cut by " + cause,
                                         10s, from))
            << daemon->StandardError();
        const std::string next = during == 0 ? "Reload done" : "Reload: bootp unchanged; tftp unchanged";
        EXPECT_TRUE(during == SIGTERM || daemon->WaitForError(next, 10s, from)) << daemon->StandardError();
    }
    EXPECT_EQ(daemon->WaitForExit(), 0) << daemon->StandardError();
}

TEST_F(DaemonProcessTest, RunsThatEndAtOnceExitWithTheirStatusAndOneLine)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    struct Run
    {
        std::string config; // written and given with --config when not empty
        std::vector<std::string> arguments;
        int status;
        std::string shown; // on standard output for status 0, else on standard error
        std::vector<std::string> prefix = {};
    };
    const std::string config = (root / "netd.toml").string();
    const std::string boot = TftpConfig("boot");
    const std::string given = (root / "given.log").string();
    const std::string missing = (root / "absent" / "netd.log").string();
    // Root's file, which another user may not append to.
    Write(root / "root.log", "");
    // One byte past what 65,535 blocks hold, and the largest file that still transfers intact.
    fs::create_directories(root / "large");
    Write(root / "large" / "big.img", "");
    fs::resize_file(root / "large" / "big.img", 65535ULL * 512ULL);
    Write(root / "large" / "edge.img", "");
    fs::resize_file(root / "large" / "edge.img", 65535ULL * 512ULL - 1);
    // The table's ordering deliberately loses the second of these two entries.
    const std::string unreachable = boot + "[bootp]\nboot_file = \"pxelinux.0\"\n[[bootp.hosts]]\n"
                                           "mac = \"01:02:00:00:00:00\"\nip = \"10.77.0.2\"\n[[bootp.hosts]]\n"
                                           "mac = \"02-01-00-00-00-00\"\nip = \"10.77.0.3\"\n";
    const Run runs[] = {
        {"", {"--help"}, 0, "Examples:"},
        {"", {"--version"}, 0, "vantrel-netd "},
        {"", {"--bogus"}, 64, "--bogus"},
        {"", {"stray"}, 64, "stray"},
        {"", {"--config"}, 64, "config"},
        {"", {"--config", "a.toml", "--tftp-root", "/srv"}, 64, "tftp-root"},
        {"", {"--log-level", "loud"}, 64, "loud"},
        {"", {"--check"}, 64, "--check"},
        {"", {"--user", "no-such-user-here"}, 64, "no-such-user-here"},
        {"", {"assign", "02:00:00:00:00:01"}, 64, ""},
        {"", {"assign", "--from", "plan.csv", "02:00:00:00:00:01"}, 64, ""},
        {"", {"unassign"}, 64, ""},
        {"", {"status", "--socket", (root / "netd.sock").string()}, 69,
         "no vantrel-netd is running: nothing listens on " + (root / "netd.sock").string()},
        {"", {"--config", (root / "absent.toml").string()}, 78, "absent.toml: cannot read the config file"},
        {"[tftp\n", {}, 78, config + ":1:6: "},
        {boot, {}, 69, "TFTP cannot bind UDP 0.0.0.0:69: the port is in use"},
        {boot, {}, 77, "TFTP cannot bind UDP 0.0.0.0:69: permission denied", VantrelTest::AsNobody},
        {unreachable, {"--check"}, 0, "home / -> " + (root / "boot").string()},
        {unreachable, {"--check"}, 0, "host 02:01:00:00:00:00 -> 10.77.0.3"},
        {unreachable, {"--check"}, 0,
         "warning: " + config + ":11:7: bootp.hosts[1].mac: 02:01:00:00:00:00 cannot be found"},
        {"", {"--config", VANTREL_SOURCE_DIRECTORY "/examples/vantrel-netd.toml", "--check"}, 0, "config OK"},
        {boot, {"--check", "--log-file", given}, 0, "log file: " + given + " (from --log-file, opened for appending)"},
        {"[logging]\nfile = \"given.log\"\n" + boot, {"--check"}, 0, "log file: " + given + " (from the config"},
        {boot, {"--check", "--log-file", missing}, 73, "cannot open log file " + missing + ": No such file"},
        {"[logging]\nfile = \"root.log\"\n" + boot, {"--check"}, 73,
         "cannot open log file " + (root / "root.log").string() + ": Permission denied", VantrelTest::AsNobody},
        // Deployments the library would quietly fail in.
        {TftpConfig("large"), {"--check"}, 0,
         "warning: tftp: " + (root / "large" / "big.img").string() + " has 33553920 bytes"},
        {"[bootp]\n", {"--check"}, 0,
         "warning: bootp: no route for 255.255.255.255: every reply will fail (Network is unreachable) while the log "
         "says the address was assigned; add one towards the devices with: ip route add 255.255.255.255/32 dev "
         "IFACE\n"},
        {TftpConfig("boot", true), {"--check", "--user", "nobody"}, 0,
         "user nobody cannot write the home folder " + (root / "boot").string()},
        {"[tftp]\nretries = 3\n[[tftp.home]]\npath = \"boot\"\n", {"--check"}, 0,
         "tftp.retries: 3: a transfer that stalls"},
    };
    for (const Run& run : runs)
    {
        std::vector<std::string> arguments = run.arguments;
        if (!run.config.empty())
        {
            arguments.insert(arguments.begin(), {"--config", Config(run.config)});
        }
        // Port 69 held by another program of this namespace.
        const int holder = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(run.status == 69 ? 69 : 0);
        ASSERT_EQ(::bind(holder, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);
        const auto result = DaemonProcess::Run(arguments, run.prefix);
        ::close(holder);
        EXPECT_EQ(result.Status, run.status) << arguments[0] << result.Error;
        EXPECT_NE((run.status == 0 ? result.Output : result.Error).find(run.shown), std::string::npos)
            << result.Output << result.Error;
        EXPECT_EQ(result.Output.find("edge.img"), std::string::npos) << result.Output;
        if (run.status != 0)
        {
            EXPECT_EQ(result.Error.rfind("vantrel-netd: ", 0), 0U) << result.Error;
            ExpectOneLine(result.Error);
        }
    }
    EXPECT_TRUE(fs::exists(given));
}

// What happens to the read end of the daemon's standard error once it has started.
class DaemonLogReaderTest : public VantrelTest::DaemonTest, public testing::WithParamInterface<bool>
{
};

TEST_P(DaemonLogReaderTest, NeitherStopsADownloadNorTheDaemon)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const bool exits = GetParam();
    // Some 600 blocks at trace level: well over the 64 KiB a pipe holds.
    const std::string large = VantrelTest::PatternBytes(300 * 1024);
    Write(root / "boot" / "large.bin", large);
    int log[2];
    ASSERT_EQ(::pipe2(log, O_CLOEXEC), 0);
    DaemonProcess daemon({"--config", Config("[logging]\nlevel = \"trace\"\n" + TftpConfig("boot"))}, {}, log[1]);
    ::close(log[1]);
    // The server is up once a request gets its answer ("File not found").
    ASSERT_TRUE(VantrelTest::Eventually([] {
        VantrelTest::UdpClient probe;
        probe.Send(VantrelTest::Request(1, "absent.bin"));
        return probe.Receive(100ms).has_value();
    }));
    if (exits)
    {
        ::close(log[0]);
    }
    Tftp("get large.bin");
    EXPECT_TRUE(Read(root / "client" / "large.bin") == large) << "the download did not arrive whole";
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.WaitForExit(20s), 0);
    if (!exits)
    {
        ::close(log[0]);
    }
}

INSTANTIATE_TEST_SUITE_P(Readers, DaemonLogReaderTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& exits) {
                             return std::string(exits.param ? "Exits" : "StopsReading");
                         });
