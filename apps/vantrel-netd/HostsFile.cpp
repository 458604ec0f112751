// The file that keeps the runtime assignments (bootp.hosts_file) across reloads and restarts.
#include "HostsFile.hpp"

#include "AssignmentChange.hpp"
#include "AssignmentCsv.hpp"
#include "ExitStatus.hpp"
#include "KeptFolders.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace VantrelNetd
{

std::vector<BootpHost> HostsFile::Load(const std::string& path, const std::vector<BootpHost>& fixed)
{
    const int descriptor = KeptFolders::Open(path, O_RDONLY);
    if (descriptor < 0 && errno == ENOENT)
    {
        return {};
    }
    if (descriptor < 0)
    {
        throw ConfigError(fmt::format("{}: cannot read the hosts file: {}", path, std::strerror(errno)));
    }
    std::string text;
    std::array<char, 65536> buffer{};
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0)
    {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    AssignmentChange change(fixed, {});
    try
    {
        for (const AssignmentCsv::Row& row : AssignmentCsv::Parse(text, path))
        {
            change.Assign(row);
        }
    }
    catch (const DaemonExit& error)
    {
        throw ConfigError(fmt::format("hosts file {}", error.what()));
    }
    std::vector<BootpHost> kept = change.GetKept();
    for (std::size_t index = 0; index < kept.size(); ++index)
    {
        kept[index].Key = fmt::format("hosts file entry {}", index + 1);
        kept[index].Where.File = path;
    }
    return kept;
}

void HostsFile::Save(const std::string& path, const std::vector<BootpHost>& kept)
{
    const std::string reason = KeptFolders::Replace(path, AssignmentCsv::Render(kept));
    if (!reason.empty())
    {
        throw DaemonExit(CannotCreate, fmt::format("cannot write the hosts file {}: {}", path, reason));
    }
}

void HostsFile::Merge(Config& config)
{
    if (config.Bootp.HostsFile.empty())
    {
        return;
    }
    for (BootpHost& host : Load(config.Bootp.HostsFile, config.Bootp.Hosts))
    {
        config.Bootp.Hosts.push_back(std::move(host));
    }
}

} // namespace VantrelNetd
