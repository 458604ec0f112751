// The file that keeps the runtime assignments (bootp.hosts_file) across reloads and restarts.
#pragma once

#include "Config.hpp"

#include <string>
#include <vector>

namespace VantrelNetd
{

/// Reads and writes the hosts file. Stateless.
class HostsFile
{
public:
    /// The file's entries, checked against the config's own table `fixed`; none when the file does not
    /// exist yet. Throws ConfigError (78) with the file and line of an entry that cannot be used.
    static std::vector<BootpHost> Load(const std::string& path, const std::vector<BootpHost>& fixed);

    /// Replaces the file with `kept` atomically. Throws DaemonExit (73) with the reason when it cannot.
    static void Save(const std::string& path, const std::vector<BootpHost>& kept);

    /// `config` with the hosts file's entries added to its BOOTP table (nothing to add without a hosts file).
    static void Merge(Config& config);
};

} // namespace VantrelNetd
