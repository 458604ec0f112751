// Runs the built vantrel-netd binary as a child process and watches its output and exit.
#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
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

/// A world-readable scratch folder with a "boot" home holding one file of several blocks, and the
/// steps the daemon's end-to-end tests share.
class DaemonTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    static void Write(const std::filesystem::path& path, const std::string& text);
    static std::string Read(const std::filesystem::path& path);

    /// Waits until the file at `path` holds `text`; false after `timeout`.
    static bool WaitForFileText(const std::filesystem::path& path, const std::string& text,
                                std::chrono::milliseconds timeout = std::chrono::seconds(5));

    /// Writes config text into the scratch folder; its path.
    std::filesystem::path Config(const std::string& text, const std::string& name = "netd.toml");
    /// A [tftp] section serving `home` (relative to the config), uploads on or off.
    static std::string TftpConfig(const std::string& home, bool write = false);
    /// A [bootp] section with `bootFile` and hosts 02:00:00:00:00:01.. at 10.77.0.2...
    static std::string BootpConfig(const std::string& bootFile, int hosts);

    /// Runs the tftp-hpa client in the client folder, bounded in time; its exit status.
    int Tftp(const std::string& command, const std::string& server = "127.0.0.1");

    /// Starts the daemon and waits until standard error shows `ready`.
    std::unique_ptr<DaemonProcess> StartDaemon(const std::vector<std::string>& arguments,
                                               const std::string& ready = "TFTP server on UDP port 69");

    /// One line, no stack trace.
    static void ExpectOneLine(const std::string& text);

    std::filesystem::path root;
    /// The content of boot/image.bin.
    std::string content;
};

} // namespace VantrelTest
