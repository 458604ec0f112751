// The daemon's configuration: what to run and how, as read from a config file or built in.
#pragma once

#include "Qib/System/Commons/Net/IpAddress.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// Where a value stood in its config file, for warnings that point at it.
struct SourcePosition
{
    std::string File;
    long Line = 0;
    long Column = 0;

    /// "file:line:column", or the file alone when no line is known.
    std::string ToString() const;
};

/// One TFTP home directory and the request prefix that leads to it ("/" marks the default home).
struct HomePathEntry
{
    std::string Alias;
    std::string Path;
};

/// An allowed TFTP client: one address (First == Last) or a range, both bounds included.
struct ClientRange
{
    Qib::System::Commons::Net::IpAddress First;
    Qib::System::Commons::Net::IpAddress Last;
    std::string Key;
    SourcePosition Where;
};

struct TftpSection
{
    bool Enabled = false;
    std::vector<HomePathEntry> HomePaths;
    std::vector<ClientRange> AllowedClients;
    bool Read = true;
    bool Write = false;
    bool Overwrite = false;
    std::uint16_t Timeout = 10;
    /// 0: a silent session ends after the time-out. Above 0, a session that stalls before it has
    /// sent more packets than this is kept for ever (the server's rule), hence the warning.
    std::uint16_t Retries = 0;
    bool Verbose = false;
    std::uint64_t Threads = 4;
};

/// One entry of the BOOTP table; the hardware address is in upper-case colon form.
struct BootpHost
{
    std::string MacAddress;
    Qib::System::Commons::Net::IpAddress Address;
    std::string Key;
    SourcePosition Where;
    /// The device's name, given with a runtime assignment; empty for the config's own entries.
    std::string Name;
};

struct BootpSection
{
    bool Enabled = false;
    Qib::System::Commons::Net::IpAddress Address;
    std::uint16_t Port = 67;
    /// Milliseconds per wait for a request: each wait is a wake-up, and a stop waits out one at most.
    /// 250 ms (four wake-ups a second, like the TFTP server's idle receive) still stops within a
    /// quarter of a second; the library's own default of 16 ms wakes sixty times a second.
    std::uint8_t Timeout = 250;
    bool Bind = true;
    bool Broadcast = true;
    Qib::System::Commons::Net::IpAddress BootServer;
    std::string BootFile;
    std::vector<BootpHost> Hosts;
    /// The file runtime assignments are kept in (bootp.hosts_file); empty: none can be made.
    std::string HostsFile;
};

/// Where log lines go: standard error as plain lines, standard error with the journal's priority
/// prefixes (under systemd), or an appended file.
enum class LogTarget
{
    StandardError,
    Journal,
    File,
};

struct LoggingSection
{
    /// Host log level number: 0 off, 3 error, 5 warning, 6 info, 7 debug, 8 trace.
    int Level = 6;
    LogTarget Target = LogTarget::StandardError;
    /// Log file to append to, with LogTarget::File.
    std::string File;
    /// File to append the journal to as JSON lines; empty writes none.
    std::string Events;
};

struct ControlSection
{
    /// The control socket's path; empty means the default (see ControlServer::DefaultPath).
    std::string Socket;
};

/// The commissioning page ([web]); off unless the section gives `listen`.
struct WebSection
{
    bool Enabled = false;
    std::string Host = "127.0.0.1";
    std::uint16_t Port = 8069;
    /// Changes from the page need this and the token.
    bool AllowChanges = false;
    /// A file holding the token; empty: the daemon makes one and logs it at start.
    std::string TokenFile;
};

/// A complete, validated configuration.
struct Config
{
    /// The file it was read from; empty for the built-in default.
    std::string SourceFile;
    TftpSection Tftp;
    BootpSection Bootp;
    LoggingSection Logging;
    /// Confine the file system view to the home folders when the process may (daemon.confine).
    bool Confine = true;
    ControlSection Control;
    WebSection Web;
    /// Things the config allows but that will likely not do what its author means.
    std::vector<std::string> Warnings;

    /// A human-readable account of what would run, one item per line.
    std::string Describe() const;
};

/// The host log level number for a level name (off, error, warning, info, debug, trace); -1 if none.
int LogLevelFromName(const std::string& name);
/// The level name for a host log level number.
std::string LogLevelName(int level);

} // namespace VantrelNetd
