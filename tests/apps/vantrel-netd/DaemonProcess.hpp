// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace VantrelTest
{

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
    std::string StandardOutput() const;

    /// Waits until standard error holds `text` (from `from` on); false after `timeout` or when the process ended.
    bool WaitForError(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(10),
                      std::size_t from = 0) const;
    void Signal(int signal) const;
    /// Waits for the exit: the exit status, or -1 after `timeout` (the process is then killed) or on a signal.
    int WaitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /// Runs the binary to its end and returns its exit status.
    static int Run(const std::vector<std::string>& arguments, std::string* standardError = nullptr,
                   std::string* standardOutput = nullptr, const std::vector<std::string>& prefix = {});

    /// The path of the built binary.
    static std::string Binary();

private:
    bool HasEnded() const;

    std::string directory;
    pid_t pid = -1;
    bool ended = false;
    int status = -1;
};

} // namespace VantrelTest
