// Installs the build into a private prefix, then builds and runs the consumer example and the
// installed daemon from there.
#include "Support/Files.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;
using VantrelTest::Shell;

namespace
{

class InstalledPackageTest : public testing::Test
{
protected:
    InstalledPackageTest()
    {
        fs::create_directories(root / "served");
        fs::create_directories(root / "client");
        VantrelTest::WriteFile(root / "served" / "boot.txt", "served by the installed library\n");
    }

    std::string Read(const fs::path& path) const { return VantrelTest::ReadFile(path.string()).value_or(""); }
    int Run(const std::string& command) { return Shell(command + " >>'" + (root / "commands.log").string() + "' 2>&1"); }
    std::string CommandLog() const { return Read(root / "commands.log"); }
    // Waits (bounded) until the file at `path` holds `text`; its content.
    std::string WaitFor(const fs::path& path, const std::string& text) const
    {
        for (int attempt = 0; attempt < 100 && Read(path).find(text) == std::string::npos; ++attempt)
        {
            usleep(100000);
        }
        return Read(path);
    }

    VantrelTest::TempDirectory scratch;
    fs::path root{scratch.Path()};
};

} // namespace

TEST_F(InstalledPackageTest, TheConsumerExampleBuildsAgainstTheInstalledPackageAndServesAFile)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const fs::path prefix = root / "prefix";
    ASSERT_EQ(Run("cmake --install '" VANTREL_BINARY_DIRECTORY "' --prefix '" + prefix.string() + "'"), 0)
        << CommandLog();
    EXPECT_TRUE(fs::exists(prefix / "lib" / "cmake" / "VantrelBaseNet" / "VantrelBaseNetConfig.cmake"));
    EXPECT_TRUE(fs::exists(prefix / "include" / "VantrelBase" / "Net" / "NetExport.hpp"));
    EXPECT_TRUE(fs::exists(prefix / "include" / "VantrelBase" / "Net" / "Tftp" / "TftpServer.hpp"));

    const fs::path build = root / "consumer-build";
    ASSERT_EQ(Run("cmake -S '" VANTREL_SOURCE_DIRECTORY "/examples/consumer' -B '" + build.string() +
                  "' -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER='" VANTREL_CXX_COMPILER
                  "' -DCMAKE_CXX_FLAGS='" VANTREL_CONSUMER_CXX_FLAGS "' -DCMAKE_PREFIX_PATH='" +
                  prefix.string() + "'"),
              0)
        << CommandLog();
    ASSERT_EQ(Run("cmake --build '" + build.string() + "'"), 0) << CommandLog();

    // The consumer serves for a few seconds; fetch the file meanwhile, with bounded attempts.
    const std::string consumer = (build / "tftp-serve-folder").string() + " '" + (root / "served").string() + "' 4";
    ASSERT_EQ(Shell(consumer + " >'" + (root / "consumer.log").string() + "' 2>&1 &"), 0);
    for (int attempt = 0; attempt < 10 && !fs::exists(root / "client" / "boot.txt"); ++attempt)
    {
        Shell("cd '" + (root / "client").string() + "' && timeout 3 tftp -m binary 127.0.0.1 -c get boot.txt "
              ">/dev/null 2>&1 || rm -f boot.txt");
        if (!fs::exists(root / "client" / "boot.txt"))
        {
            usleep(200000);
        }
    }
    EXPECT_EQ(Read(root / "client" / "boot.txt"), "served by the installed library\n");
    const std::string consumerLog = WaitFor(root / "consumer.log", "stopped");
    EXPECT_NE(consumerLog.find("stopped"), std::string::npos) << consumerLog;

    // The installed daemon loads the library from the install layout beside it.
    const std::string daemon = (prefix / "bin" / "vantrel-netd").string();
    // Built through pkg-config, the consumer finds the libraries of the prefix without LD_LIBRARY_PATH: run
    // without arguments, it gets as far as its usage line (64).
    const std::string viaPkgConfig = (root / "consumer-pkg-config").string();
    ASSERT_EQ(Run("'" VANTREL_CXX_COMPILER "' -std=c++17 " VANTREL_CONSUMER_CXX_FLAGS " -o '" + viaPkgConfig +
                  "' '" VANTREL_SOURCE_DIRECTORY "/examples/consumer/main.cpp' $(PKG_CONFIG_PATH='" +
                  (prefix / "lib" / "pkgconfig").string() + "' pkg-config --cflags --libs VantrelBaseNet)"),
              0)
        << CommandLog();
    EXPECT_EQ(Shell("env -u LD_LIBRARY_PATH '" + viaPkgConfig + "' >/dev/null 2>&1"), 64);
    VantrelTest::WriteFile(root / "netd.toml", "[tftp]\n[[tftp.home]]\npath = \"served\"\n");
    ASSERT_EQ(Shell(daemon + " --config '" + (root / "netd.toml").string() + "' >'" + (root / "daemon.log").string() +
                    "' 2>&1 & echo $! >'" + (root / "daemon.pid").string() + "'"),
              0);
    const std::string started = WaitFor(root / "daemon.log", "TFTP server on");
    EXPECT_NE(started.find("hosting " + (prefix / "bin").string() + "/../lib/libVantrelBase.Net.so"), std::string::npos)
        << started;
    Shell("kill -TERM $(cat '" + (root / "daemon.pid").string() + "')");
    const std::string stopped = WaitFor(root / "daemon.log", "Stopped");
    EXPECT_NE(stopped.find("Stopped"), std::string::npos) << stopped;
}
