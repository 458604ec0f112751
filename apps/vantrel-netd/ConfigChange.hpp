// What differs between the running config and a reloaded one, server by server.
#pragma once

#include "Config.hpp"

#include <string>
#include <vector>

namespace VantrelNetd
{

/// The differences between two configs: a server is restarted on reload exactly when its list of
/// differences is not empty. Distinct objects: safe.
class ConfigChange
{
public:
    ConfigChange(const Config& before, const Config& after);

    bool TftpChanged() const { return !tftp.empty(); }
    bool BootpChanged() const { return !bootp.empty(); }
    bool LoggingChanged() const { return !logging.empty(); }

    /// One line for the log, e.g. "bootp: 1 host added, boot file changed; tftp unchanged".
    std::string Describe() const;

private:
    std::vector<std::string> tftp;
    std::vector<std::string> bootp;
    std::vector<std::string> logging;
};

} // namespace VantrelNetd
