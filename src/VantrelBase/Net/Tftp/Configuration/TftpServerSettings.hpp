// The settings record of the TFTP server, copied by the server's constructor.
#pragma once

#include "VantrelBase/Net/Tftp/Configuration/HomePathSetting.hpp"

#include <cstdint>
#include <utility>
#include <vector>

namespace VantrelBase::Net::Tftp::Configuration
{

/// Settings of a TftpServer. The port (69) and the block size (512) are fixed.
struct TftpServerSettings
{
    /// An inclusive range of client addresses: (first, last), each the 32-bit value an IpAddress
    /// holds (network byte order), compared as plain unsigned numbers.
    using AddressRange = std::pair<std::uint32_t, std::uint32_t>;

    /// Clients allowed to talk to the server; empty allows every client.
    std::vector<AddressRange> AllowedClients;
    /// The default home ("/") and the aliases, searched in order.
    std::vector<HomePathSetting> HomePaths;
    /// Downloads allowed; otherwise every read request gets error 2.
    bool ReadEnabled = true;
    /// Uploads allowed; otherwise every write request gets error 2.
    bool WriteEnabled = false;
    /// An upload may replace an existing file; otherwise error 6.
    bool OverwriteEnabled = false;
    /// Copied by the server, not used.
    std::uint8_t ReservedFlags = 0;
    /// Copied by the server, not used.
    std::uint32_t ReservedValue = 0;
    /// Seconds of silence before a session is examined: 0 means 10, above 255 means 255.
    std::uint16_t Timeout = 0;
    /// The send count up to which an expired session is kept.
    std::uint16_t MaxRetries = 5;
    /// Write the per-packet messages at info instead of trace.
    bool Verbose = false;
    /// Threads of the server's pool; 0 for one per processor.
    std::uint64_t ThreadCount = 0;
};

} // namespace VantrelBase::Net::Tftp::Configuration
