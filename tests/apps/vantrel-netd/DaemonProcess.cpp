// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#include "DaemonProcess.hpp"

#include "Support/Files.hpp"
#include "Support/NetworkNamespace.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <stdexcept>

extern char** environ;

namespace VantrelTest
{

namespace fs = std::filesystem;

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix,
                             int standardError)
{
    std::vector<std::string> words = prefix;
    words.push_back(VANTREL_NETD_BINARY);
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
    posix_spawn_file_actions_addopen(&actions, 1, (directory / "stdout").c_str(), O_WRONLY | O_CREAT, 0644);
    if (standardError >= 0)
    {
        posix_spawn_file_actions_adddup2(&actions, standardError, 2);
    }
    else
    {
        posix_spawn_file_actions_addopen(&actions, 2, (directory / "stderr").c_str(), O_WRONLY | O_CREAT, 0644);
    }
    // The test process blocks signals on some threads; the daemon starts with none blocked.
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
}

std::string DaemonProcess::StandardError() const
{
    return ReadFile(directory / "stderr").value_or("");
}

bool DaemonProcess::WaitForError(const std::string& text, std::chrono::milliseconds timeout, std::size_t from) const
{
    const auto shown = [&] { return StandardError().find(text, from) != std::string::npos; };
    Eventually([&] { return shown() || HasEnded(); }, timeout);
    return shown();
}

bool DaemonProcess::HasEnded() const
{
    // Looks without reaping, so that WaitForExit still gets the status.
    siginfo_t info{};
    return ended || ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

int DaemonProcess::WaitForExit(std::chrono::milliseconds timeout)
{
    int raw = 0;
    if (!ended && !Eventually([&] { return ::waitpid(pid, &raw, WNOHANG) != 0; }, timeout))
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        raw = -1;
    }
    if (!ended)
    {
        ended = true;
        status = raw != -1 && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }
    return status;
}

int DaemonProcess::Stop(int signal)
{
    ::kill(pid, signal);
    return WaitForExit();
}

RunResult DaemonProcess::Run(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix)
{
    DaemonProcess process(arguments, prefix);
    const int status = process.WaitForExit(std::chrono::seconds(20));
    return {status, process.StandardError(), ReadFile(process.directory / "stdout").value_or("")};
}

DaemonTest::DaemonTest() : root(scratch.Path())
{
    fs::create_directories(root / "boot");
    fs::create_directories(root / "client");
    // Readable by nobody, for the tests that run the daemon or a client as that user.
    fs::permissions(root, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                              fs::perms::others_read | fs::perms::others_exec);
    // Text (for the netascii download) spanning several 512-byte blocks and ending in a partial one.
    for (int line = 0; line < 300; ++line)
    {
        content += "line " + std::to_string(line) + " of the boot image\n";
    }
    Write(root / "boot" / "image.bin", content);
}

bool DaemonTest::WaitForFileText(const fs::path& path, const std::string& text, std::size_t from)
{
    return Eventually([&] { return Read(path).find(text, from) != std::string::npos; });
}

RunResult DaemonTest::Status(const std::vector<std::string>& options, const std::vector<std::string>& prefix)
{
    std::vector<std::string> arguments{"status", "--socket", (root / "netd.sock").string()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return DaemonProcess::Run(arguments, prefix);
}

void DaemonTest::Tftp(const std::string& arguments, const std::string& mode)
{
    Shell("cd '" + (root / "client").string() + "' && timeout 20 tftp -m " + mode + " 127.0.0.1 -c " +
                 arguments + " >/dev/null 2>&1");
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
    EXPECT_EQ(CountOf(text, "\n"), 1U) << text;
    EXPECT_EQ(text.find("terminate called"), std::string::npos) << text;
}

} // namespace VantrelTest
