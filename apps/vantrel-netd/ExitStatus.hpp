// The daemon's exit statuses (BSD sysexits) and the exception that carries one to main().
#pragma once

#include <stdexcept>
#include <string>

namespace VantrelNetd
{

/// Exit statuses, after the BSD sysexits convention.
enum ExitStatus : int
{
    CleanStop = 0,
    RuntimeFailure = 1,
    BadCommandLine = 64,   // EX_USAGE
    BadData = 65,          // EX_DATAERR: an assignment or assignment list that cannot be used
    NoInput = 66,          // EX_NOINPUT: a file to read cannot be opened
    PortInUse = 69,        // EX_UNAVAILABLE
    CannotCreate = 73,     // EX_CANTCREAT: the log file cannot be opened
    ProtocolError = 76,    // EX_PROTOCOL: the daemon's control socket answered something unreadable
    NoPrivilege = 77,      // EX_NOPERM
    BadConfig = 78,        // EX_CONFIG
};

/// A failure that ends the daemon: one line of text and the status to exit with.
class DaemonExit : public std::runtime_error
{
public:
    DaemonExit(ExitStatus status, const std::string& message) : std::runtime_error(message), status(status) {}

    ExitStatus GetStatus() const noexcept { return status; }

private:
    ExitStatus status;
};

/// A configuration that cannot be used; the message names the file, line, column and key.
class ConfigError : public DaemonExit
{
public:
    explicit ConfigError(const std::string& message) : DaemonExit(BadConfig, message) {}
};

} // namespace VantrelNetd
