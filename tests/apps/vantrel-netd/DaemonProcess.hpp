// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#pragma once

#include "Support/Concurrency.hpp"
#include "Support/CountOf.hpp"
#include "Support/Files.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace VantrelTest
{

/// setpriv's words that run a command as nobody without supplementary groups.
inline const std::vector<std::string> AsNobody{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};

/// How a run of the binary to its end went.
struct RunResult
{
    int Status;
    std::string Error;
    std::string Output;
};

/// One run of the daemon binary, its standard output and error captured in files.
class DaemonProcess
{
public:
    /// Starts the binary with `arguments`; `prefix` (e.g. a setpriv command) runs before it. With
    /// `standardError` (a descriptor) the process writes its log there instead of to a file.
    explicit DaemonProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix = {},
                           int standardError = -1);
    /// Kills the process when it still runs.
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t GetPid() const { return pid; }
    std::string StandardError() const;
    /// Waits until standard error holds `text` (from `from` on); false after `timeout` or when the process ended.
    bool WaitForError(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(10),
                      std::size_t from = 0) const;
    void Signal(int signal) const { ::kill(pid, signal); }
    /// Waits for the exit: the exit status, or -1 after `timeout` (the process is then killed) or on a signal.
    int WaitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));
    /// Sends `signal` and waits for the exit status.
    int Stop(int signal = SIGTERM);

    /// Runs the binary to its end (bounded in time).
    static RunResult Run(const std::vector<std::string>& arguments, const std::vector<std::string>& prefix = {});

private:
    bool HasEnded() const;

    TempDirectory directory;
    pid_t pid = -1;
    bool ended = false;
    int status = -1;
};

/// A world-readable scratch folder with a "boot" home holding one file of several blocks, and the
/// steps the daemon's end-to-end tests share.
class DaemonTest : public testing::Test
{
protected:
    DaemonTest();

    static void Write(const std::filesystem::path& path, const std::string& text) { WriteFile(path, text); }
    static std::string Read(const std::filesystem::path& path) { return ReadFile(path).value_or(""); }
    /// The file holds `text` (from `from` on) within `timeout`.
    static bool WaitForFileText(const std::filesystem::path& path, const std::string& text, std::size_t from = 0);

    /// Writes config text into the scratch folder; its path.
    std::string Config(const std::string& text)
    {
        Write(root / "netd.toml", text);
        return root / "netd.toml";
    }
    /// A [tftp] section serving `home` (relative to the config), uploads on or off.
    static std::string TftpConfig(const std::string& home, bool write = false)
    {
        return "[tftp]\nwrite = " + std::string(write ? "true" : "false") + "\n[[tftp.home]]\npath = \"" + home +
               "\"\n";
    }
    /// A [control] section with the socket netd.sock beside the config.
    static std::string ControlConfig() { return "[control]\nsocket = \"netd.sock\"\n"; }
    /// `vantrel-netd status` with `options` against ControlConfig()'s socket.
    RunResult Status(const std::vector<std::string>& options, const std::vector<std::string>& prefix = {});
    /// Runs the tftp-hpa client with `arguments` in the client folder, bounded in time. Its exit status
    /// says nothing (it is 0 after an error too): tests look at the files.
    void Tftp(const std::string& arguments, const std::string& mode = "binary");
    /// Starts the daemon and waits until standard error shows `ready`.
    static std::unique_ptr<DaemonProcess> StartDaemon(const std::vector<std::string>& arguments,
                                                      const std::string& ready = "TFTP server on UDP port 69");
    /// One line, no stack trace.
    static void ExpectOneLine(const std::string& text);

    TempDirectory scratch;
    std::filesystem::path root;
    /// The content of boot/image.bin.
    std::string content;
};

} // namespace VantrelTest
