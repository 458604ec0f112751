// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#include "DaemonProcess.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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
    std::ifstream stream(path);
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

} // namespace VantrelTest
