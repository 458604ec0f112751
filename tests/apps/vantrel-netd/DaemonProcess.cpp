// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#include "DaemonProcess.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/NetworkNamespace.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace VantrelTest
{

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

} // namespace

std::string DaemonProcess::Binary()
{
    return VANTREL_NETD_BINARY;
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix,
                             int standardError)
{
    static std::atomic<int> counter{0};
    directory = (std::filesystem::temp_directory_path() /
                 ("vantrel-netd-run-" + std::to_string(::getpid()) + "-" + std::to_string(counter++)))
                    .string();
    std::filesystem::create_directories(directory);

    std::vector<std::string> words = prefix;
    words.push_back(Binary());
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
    {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, (directory + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (standardError >= 0)
    {
        posix_spawn_file_actions_adddup2(&actions, standardError, 2);
    }
    else
    {
        posix_spawn_file_actions_addopen(&actions, 2, (directory + "/stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
    {
        throw std::runtime_error("cannot start " + words.front());
    }
}

DaemonProcess::~DaemonProcess()
{
    if (!ended)
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string DaemonProcess::StandardError() const
{
    return ReadFile(directory + "/stderr");
}

std::string DaemonProcess::StandardOutput() const
{
    return ReadFile(directory + "/stdout");
}

bool DaemonProcess::WaitForError(const std::string& text, std::chrono::milliseconds timeout, std::size_t from) const
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;)
    {
        if (StandardError().find(text, from) != std::string::npos)
        {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline || HasEnded())
        {
            return StandardError().find(text, from) != std::string::npos;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

bool DaemonProcess::HasEnded() const
{
    if (ended)
    {
        return true;
    }
    // Looks without reaping, so that WaitForExit still gets the status.
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

void DaemonProcess::Signal(int signal) const
{
    ::kill(pid, signal);
}

int DaemonProcess::WaitForExit(std::chrono::milliseconds timeout)
{
    if (ended)
    {
        return status;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int raw = 0;
    while (::waitpid(pid, &raw, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &raw, 0);
            ended = true;
            return status = -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ended = true;
    return status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

int DaemonProcess::Run(const std::vector<std::string>& arguments, std::string* standardError,
                       std::string* standardOutput, const std::vector<std::string>& prefix)
{
    DaemonProcess process(arguments, prefix);
    const int result = process.WaitForExit(std::chrono::seconds(20));
    if (standardError != nullptr)
    {
        *standardError = process.StandardError();
    }
    if (standardOutput != nullptr)
    {
        *standardOutput = process.StandardOutput();
    }
    return result;
}

namespace fs = std::filesystem;

void DaemonTest::SetUp()
{
    // Parameterised tests have a "/" in their names; the folder stays one level deep.
    std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '-');
    root = fs::temp_directory_path() / ("vantrel-netd-e2e-" + std::to_string(::getpid()) + "-" + name);
    fs::remove_all(root);
    fs::create_directories(root / "boot");
    fs::create_directories(root / "client");
    fs::permissions(root, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                              fs::perms::others_read | fs::perms::others_exec);
    // Spans several 512-byte blocks and ends in a partial one.
    content.clear();
    for (int line = 0; line < 300; ++line)
    {
        content += "line " + std::to_string(line) + " of the boot image\n";
    }
    Write(root / "boot" / "image.bin", content);
}

void DaemonTest::TearDown()
{
    fs::remove_all(root);
}

void DaemonTest::Write(const fs::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string DaemonTest::Read(const fs::path& path)
{
    return ReadFile(path.string());
}

bool DaemonTest::WaitForFileText(const fs::path& path, const std::string& text, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (Read(path).find(text) == std::string::npos)
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

fs::path DaemonTest::Config(const std::string& text, const std::string& name)
{
    Write(root / name, text);
    return root / name;
}

std::string DaemonTest::TftpConfig(const std::string& home, bool write)
{
    return "[tftp]\nwrite = " + std::string(write ? "true" : "false") + "\n[[tftp.home]]\npath = \"" + home + "\"\n";
}

std::string DaemonTest::BootpConfig(const std::string& bootFile, int hosts)
{
    std::string text = "[bootp]\nboot_file = \"" + bootFile + "\"\n";
    for (int host = 1; host <= hosts; ++host)
    {
        text += "[[bootp.hosts]]\nmac = \"02:00:00:00:00:0" + std::to_string(host) + "\"\nip = \"10.77.0." +
                std::to_string(host + 1) + "\"\n";
    }
    return text;
}

int DaemonTest::Tftp(const std::string& command, const std::string& server)
{
    return Shell("cd '" + (root / "client").string() + "' && timeout 20 tftp -m binary " + server + " -c " + command +
                 " >/dev/null 2>&1");
}

std::unique_ptr<DaemonProcess> DaemonTest::StartDaemon(const std::vector<std::string>& arguments,
                                                       const std::string& ready)
{
    auto daemon = std::make_unique<DaemonProcess>(arguments);
    EXPECT_TRUE(daemon->WaitForError(ready)) << daemon->StandardError();
    return daemon;
}

void DaemonTest::ExpectOneLine(const std::string& text)
{
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(text.find("terminate called"), std::string::npos) << text;
}

} // namespace VantrelTest
