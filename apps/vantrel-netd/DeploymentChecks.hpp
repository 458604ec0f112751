// Warnings about what the library will quietly get wrong with a config on this host.
#pragma once

#include "Config.hpp"
#include "PrivilegeDrop.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// Looks at the host the way the servers will meet it: files too large to transfer intact, no
/// route for BOOTP's broadcast replies, home folders the running user cannot write while uploads
/// are on. Run at start-up and at every reload.
class DeploymentChecks
{
public:
    /// The largest file a download serves intact: 65,535 blocks of 512 bytes, the last one short (a
    /// file of whole blocks ends with an empty one). A longer one wraps the 16-bit block counter and
    /// starts again from its beginning, for ever.
    static constexpr std::uint64_t LargestFile = 65535ULL * 512ULL - 1;
    /// Files looked at per start-up or reload, so that a huge tree cannot hold the daemon.
    static constexpr std::size_t FilesChecked = 100000;

    /// Every warning for `config`; `runAs` is the account the servers will run as (none: the
    /// current one).
    static std::vector<std::string> Run(const Config& config, const std::optional<PrivilegeDrop::Account>& runAs);

    static std::vector<std::string> LargeFiles(const TftpSection& tftp);
    /// Empty when the kernel has a route for 255.255.255.255.
    static std::string BroadcastRoute(const BootpSection& bootp);
    static std::vector<std::string> UnwritableHomes(const TftpSection& tftp,
                                                    const std::optional<PrivilegeDrop::Account>& runAs);
};

} // namespace VantrelNetd
