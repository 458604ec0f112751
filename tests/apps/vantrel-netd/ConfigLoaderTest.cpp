// Tests of reading and validating the daemon's TOML config.
#include "ConfigLoader.hpp"

#include "ExitStatus.hpp"

#include "Support/Files.hpp"
#include "Support/ProcessStatus.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>

using VantrelNetd::Config;
using VantrelNetd::ConfigError;
using VantrelNetd::ConfigLoader;
namespace fs = std::filesystem;

namespace
{

// A private folder with a "boot" and a "logs" subfolder.
class ConfigLoaderTest : public testing::Test
{
protected:
    ConfigLoaderTest()
    {
        fs::create_directories(root / "boot");
        fs::create_directories(root / "logs");
    }

    Config Load(const std::string& text) { return ConfigLoader::LoadText(text, "site.toml", root.string()); }

    // The message of the ConfigError that loading `text` throws, or a note that none was thrown.
    std::string ErrorOf(const std::string& text)
    {
        try
        {
            Load(text);
        }
        catch (const ConfigError& error)
        {
            EXPECT_EQ(error.GetStatus(), VantrelNetd::BadConfig);
            return error.what();
        }
        return "(accepted)";
    }

    static std::string WarningsOf(const Config& config)
    {
        std::string all;
        for (const std::string& warning : config.Warnings)
        {
            all += warning + "\n";
        }
        return all;
    }

    VantrelTest::TempDirectory scratch;
    fs::path root{scratch.Path()};
};

const std::string homeTable = "[[tftp.home]]\npath = \"boot\"\n";
const std::string minimalTftp = "[tftp]\n" + homeTable;

// A [tftp] section with `keys` before its home table.
std::string TftpWith(const std::string& keys)
{
    return "[tftp]\n" + keys + homeTable;
}

} // namespace

TEST_F(ConfigLoaderTest, EveryKeyIsReadIntoTheRecords)
{
    const Config config = Load(R"([logging]
level = "debug"
target = "file"
file = "logs/netd.log"

[tftp]
read = false
write = true
overwrite = true
timeout = 30
retries = 7
verbose = true
threads = 3
allowed_clients = ["127.0.0.1", { first = "10.77.0.9", last = "10.77.0.9" }]

[[tftp.home]]
path = "boot"
[[tftp.home]]
alias = "/logs"
path = "logs"

[bootp]
address = "10.77.0.1"
port = 1067
timeout = 200
bind = true
broadcast = true
boot_server = "10.77.0.1"
boot_file = "pxelinux.0"

[[bootp.hosts]]
mac = "00-1a-2b-3c-4d-5e"
ip = "10.77.0.10"

[daemon]
confine = false
)");
    const auto text = [](const Qib::System::Commons::Net::IpAddress& address) {
        return address.ToString().GetStdString();
    };
    const auto& tftp = config.Tftp;
    const auto& bootp = config.Bootp;
    EXPECT_EQ(std::make_tuple(config.SourceFile, config.Confine, config.Logging.Level, config.Logging.Target,
                              config.Logging.File),
              std::make_tuple("site.toml", false, 7, VantrelNetd::LogTarget::File, (root / "logs/netd.log").string()));
    EXPECT_EQ(std::make_tuple(tftp.Enabled, tftp.Read, tftp.Write, tftp.Overwrite, tftp.Timeout, tftp.Retries,
                              tftp.Verbose, tftp.Threads),
              std::make_tuple(true, false, true, true, 30, 7, true, 3U));
    ASSERT_EQ(tftp.AllowedClients.size(), 2U);
    EXPECT_EQ(std::make_tuple(text(tftp.AllowedClients[0].First), text(tftp.AllowedClients[0].Last),
                              text(tftp.AllowedClients[1].Last)),
              std::make_tuple("127.0.0.1", "127.0.0.1", "10.77.0.9"));
    ASSERT_EQ(tftp.HomePaths.size(), 2U);
    EXPECT_EQ(std::make_tuple(tftp.HomePaths[0].Alias, tftp.HomePaths[0].Path, tftp.HomePaths[1].Alias,
                              tftp.HomePaths[1].Path),
              std::make_tuple("/", (root / "boot").string(), "/logs", (root / "logs").string()));
    ASSERT_EQ(bootp.Hosts.size(), 1U);
    // The library is handed the colon form of the hardware address whatever form the config used.
    EXPECT_EQ(std::make_tuple(bootp.Enabled, text(bootp.Address), bootp.Port, bootp.Timeout, text(bootp.BootServer),
                              bootp.BootFile, bootp.Hosts[0].MacAddress, text(bootp.Hosts[0].Address)),
              std::make_tuple(true, "10.77.0.1", 1067, 200, "10.77.0.1", "pxelinux.0", "00:1A:2B:3C:4D:5E",
                              "10.77.0.10"));
}

TEST_F(ConfigLoaderTest, OmittedKeysKeepTheServersReadOnlyConfinedAndEndingStalledSessions)
{
    const Config config = Load(minimalTftp + "[bootp]\nenabled = false\n");
    EXPECT_EQ(std::make_tuple(config.Tftp.Read, config.Tftp.Write, config.Tftp.Overwrite, config.Tftp.Timeout,
                              config.Tftp.Retries, config.Confine, config.Logging.Level, config.Logging.Target,
                              config.Bootp.Enabled),
              std::make_tuple(true, false, false, 10, 0, true, 6, VantrelNetd::LogTarget::StandardError, false));
    EXPECT_EQ(WarningsOf(config), "") << "a disabled server is not warned about";
}

TEST_F(ConfigLoaderTest, ErrorsNameFileLineColumnAndKey)
{
    // Config text, what the error says.
    const std::pair<std::string, std::string> cases[] = {
        {minimalTftp + "[tftp.extra]\n", "site.toml:4:7: tftp.extra: unknown key"},
        {"[tftp]\nread = \"yes\"\n", "site.toml:2:8: tftp.read: expected a boolean (true or false), found a string"},
        {"[tftp]\nretries = 11\n", "site.toml:2:11: tftp.retries: 11 is out of range: give an integer from 0 to 10"},
        {minimalTftp + "[daemon]\nchroot = true\n", "daemon.chroot: unknown key (known here: confine)"},
        {"tftp = 3\n", "site.toml:1:8: tftp: expected a table, found an integer"},
        {TftpWith("allowed_clients = [\"10.77.0.300\"]\n"),
         "site.toml:2:20: tftp.allowed_clients[0]: \"10.77.0.300\" is not an IPv4 address"},
        {TftpWith("allowed_clients = [{ first = \"10.77.0.1\" }]\n"),
         "site.toml:2:20: tftp.allowed_clients[0]: a range needs both first and last"},
        {TftpWith("allowed_clients = [{ first = \"10.77.0.9\", last = \"10.77.0.1\" }]\n"),
         "tftp.allowed_clients[0]: first 10.77.0.9 is above last 10.77.0.1"},
        {"[tftp]\n[[tftp.home]]\npath = \"missing\"\n",
         "site.toml:3:8: tftp.home[0].path: directory \"" + (root / "missing").string() + "\" does not exist"},
        {"[tftp]\n[[tftp.home]]\nalias = \"/x\"\n",
         "site.toml:2:1: tftp.home[0].path: missing: give the local directory of this home"},
        {"[tftp]\n[[tftp.home]]\nalias = \"logs\"\npath = \"logs\"\n",
         "site.toml:3:9: tftp.home[0].alias: \"logs\" must begin with \"/\""},
        {"[tftp]\n[[tftp.home]]\nalias = \"/logs\"\npath = \"logs\"\n", "tftp.home: no home with alias \"/\""},
        {"[tftp]\nread = true\n", "site.toml:1:1: tftp.home: no home directory"},
        {"[bootp]\nboot_file = \"" + std::string(128, 'f') + "\"\n",
         "bootp.boot_file: 128 bytes long; the reply's file field holds at most 127"},
        {"[bootp]\n[[bootp.hosts]]\nmac = \"00:11:22:33:44\"\nip = \"10.77.0.10\"\n",
         "site.toml:3:7: bootp.hosts[0].mac: \"00:11:22:33:44\" is not a hardware address"},
        {"[bootp]\n[[bootp.hosts]]\nmac = \"001122334455\"\n", "site.toml:2:1: bootp.hosts[0].ip: missing"},
        {"[bootp]\n[[bootp.hosts]]\nmac = \"00:11:22:33:44:55\"\nip = \"10.77.0.10\"\n"
         "[[bootp.hosts]]\nmac = \"00-11-22-33-44-55\"\nip = \"10.77.0.11\"\n",
         "site.toml:6:7: bootp.hosts[1].mac: 00:11:22:33:44:55 is listed already on line 3"},
        {minimalTftp + "[bootp]\nport = 69\n", "site.toml:5:8: bootp.port: port 69 is the TFTP server's port"},
        {"[logging]\nlevel = \"loud\"\n", "site.toml:2:9: logging.level: unknown level \"loud\""},
        {minimalTftp + "[logging]\nfile = \"nowhere/x.log\"\n", "logging.file: directory \""},
        {minimalTftp + "[logging]\ntarget = \"syslog\"\n", "site.toml:5:10: logging.target: unknown target \"syslog\""},
        {minimalTftp + "[logging]\ntarget = \"file\"\n", "logging.target: \"file\" needs logging.file"},
        {minimalTftp + "[logging]\ntarget = \"journal\"\nfile = \"logs/d.log\"\n",
         "logging.target: \"journal\" writes no file"},
        {"[tftp]\nenabled = false\n", "site.toml: nothing to run"},
        {"[web]\nlisten = \"localhost:8069\"\n", "site.toml:2:10: web.listen: \"localhost:8069\" is not an address"},
        {"[web]\nlisten = \"127.0.0.1:0\"\n", "site.toml:2:10: web.listen: \"127.0.0.1:0\" is not"},
        {"[web]\nlisten = \"127.0.0.1:http\"\n", "site.toml:2:10: web.listen: \"127.0.0.1:http\" is not"},
        {"a = 1\na = 2\n", "site.toml:2:"},
    };
    for (const auto& [text, expected] : cases)
    {
        const std::string message = ErrorOf(text);
        EXPECT_NE(message.find(expected), std::string::npos) << "config:\n" << text << "\nmessage: " << message;
        EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    }
}

TEST_F(ConfigLoaderTest, AcceptedButLikelyUnmeantSettingsAreWarnedAbout)
{
    // Config text, the number of warnings, and what they say.
    const std::tuple<std::string, std::size_t, std::vector<std::string>> cases[] = {
        // The server compares the address value as held in network byte order: deliberate, kept as is.
        // 10.0.1.1 is held as a value between those of 10.0.0.1 and 10.0.0.20.
        {TftpWith("allowed_clients = [\n  \"10.77.0.5\",\n  { first = \"10.0.0.1\", last = \"10.0.0.20\" },\n"
                  "  { first = \"10.0.0.200\", last = \"10.0.1.1\" },\n"
                  "  { first = \"0.0.0.0\", last = \"255.255.255.255\" },\n]\n"),
         2,
         {"site.toml:4:3: tftp.allowed_clients[1]: the range 10.0.0.1 .. 10.0.0.20 does not hold what it seems",
          "admits 10.0.1.1", "tftp.allowed_clients[2]: the range 10.0.0.200 .. 10.0.1.1 admits no client"}},
        {"[tftp]\noverwrite = true\n[[tftp.home]]\npath = \"boot\"\n[[tftp.home]]\nalias = \"/log\"\npath = \"logs\"\n"
         "[[tftp.home]]\nalias = \"/logs\"\npath = \"logs\"\n\n[bootp]\nbind = false\nbroadcast = false\n"
         "address = \"10.77.0.1\"\n",
         6,
         {"site.toml:2:13: tftp.overwrite: has no effect while write is off",
          "site.toml:9:9: tftp.home[2].alias: \"/logs\" is never reached: the earlier alias \"/log\"",
          "bootp.hosts: the table is empty", "site.toml:13:8: bootp.bind: false leaves the socket unbound",
          "bootp.broadcast: false forbids the broadcast",
          "site.toml:15:11: bootp.address: a socket bound to one address never receives"}},
    };
    for (const auto& [text, count, expected] : cases)
    {
        const Config config = Load(text);
        const std::string warnings = WarningsOf(config);
        EXPECT_EQ(config.Warnings.size(), count) << warnings;
        for (const std::string& warning : expected)
        {
            EXPECT_NE(warnings.find(warning), std::string::npos) << warnings;
        }
    }
}

TEST_F(ConfigLoaderTest, TheLogTargetIsTheJournalOrAFileWhenNamed)
{
    EXPECT_EQ(Load(minimalTftp + "[logging]\ntarget = \"journal\"\n").Logging.Target, VantrelNetd::LogTarget::Journal);
    // A file alone makes the target a file.
    EXPECT_EQ(Load(minimalTftp + "[logging]\nfile = \"logs/d.log\"\n").Logging.Target, VantrelNetd::LogTarget::File);
}

TEST_F(ConfigLoaderTest, FilePathsAreTakenFromTheConfigFilesFolderAndTheFileIsClosed)
{
    const fs::path file = root / "site.toml";
    VantrelTest::WriteFile(file.string(), minimalTftp);
    const std::size_t descriptors = VantrelTest::CountOpenDescriptors();
    const Config config = ConfigLoader::LoadFile(file.string());
    EXPECT_EQ(VantrelTest::CountOpenDescriptors(), descriptors);
    ASSERT_EQ(config.Tftp.HomePaths.size(), 1U);
    EXPECT_EQ(std::make_pair(config.Tftp.HomePaths[0].Path, config.SourceFile),
              std::make_pair((root / "boot").string(), file.string()));
    for (const fs::path& path : {root / "absent.toml", root / "boot"})
    {
        EXPECT_THROW(ConfigLoader::LoadFile(path.string()), ConfigError) << path;
        EXPECT_EQ(VantrelTest::CountOpenDescriptors(), descriptors) << path;
    }
}

// A missing folder made with its sample file and served read-only is shown by the daemon's run without a config.
TEST_F(ConfigLoaderTest, BuiltInDefaultLeavesAnExistingFolderAsItIsAndMakesANewOneTheSudoUsers)
{
    ConfigLoader::BuiltIn((root / "boot").string());
    EXPECT_FALSE(fs::exists(root / "boot" / "hello.txt"));

    // Made by root for a user of sudo, the folder and its sample file are that user's.
    if (::geteuid() == 0)
    {
        ::setenv("SUDO_UID", "65534", 1);
        ::setenv("SUDO_GID", "65533", 1);
        const fs::path forUser = root / "for-user";
        ConfigLoader::BuiltIn(forUser.string());
        ::unsetenv("SUDO_UID");
        ::unsetenv("SUDO_GID");
        for (const fs::path& made : {forUser, forUser / "hello.txt"})
        {
            struct stat status{};
            ASSERT_EQ(::stat(made.c_str(), &status), 0) << made;
            EXPECT_EQ(std::make_pair(status.st_uid, status.st_gid), std::make_pair(65534U, 65533U)) << made;
        }
    }
}
