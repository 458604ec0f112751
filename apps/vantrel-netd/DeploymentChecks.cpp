// Warnings about what the library will quietly get wrong with a config on this host.
#include "DeploymentChecks.hpp"

#include "FolderWalk.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace VantrelNetd
{

namespace
{

bool CanWriteAsCurrentUser(const std::string& folder)
{
    return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

// Asks a child that has become `account`, so that groups and access lists count as they will.
bool CanWriteAs(const std::string& folder, const PrivilegeDrop::Account& account)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        const gid_t groups[] = {account.Gid};
        const bool switched = ::setgroups(1, groups) == 0 && ::setgid(account.Gid) == 0 && ::setuid(account.Uid) == 0;
        ::_exit(switched && CanWriteAsCurrentUser(folder) ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child)
    {
        return true; // cannot tell: no warning rather than a wrong one
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

std::vector<std::string> DeploymentChecks::Run(const Config& config, const std::optional<PrivilegeDrop::Account>& runAs)
{
    std::vector<std::string> warnings;
    if (config.Tftp.Enabled)
    {
        warnings = LargeFiles(config.Tftp);
        for (std::string& warning : UnwritableHomes(config.Tftp, runAs))
        {
            warnings.push_back(std::move(warning));
        }
    }
    if (config.Bootp.Enabled && !config.Bootp.HostsFile.empty())
    {
        // The file is replaced by a rename, which needs the right to write its folder.
        const std::string folder = std::filesystem::path(config.Bootp.HostsFile).parent_path().string();
        const bool switching = runAs && runAs->Uid != ::geteuid();
        if (!(switching ? CanWriteAs(folder, *runAs) : CanWriteAsCurrentUser(folder)))
        {
            warnings.push_back(fmt::format("bootp: {} cannot write the folder {} of bootp.hosts_file: every assign "
                                           "will be refused (73)",
                                           switching ? "user " + runAs->Name : std::string("the daemon's user"), folder));
        }
    }
    if (config.Bootp.Enabled)
    {
        std::string route = BroadcastRoute(config.Bootp);
        if (!route.empty())
        {
            warnings.push_back(std::move(route));
        }
    }
    return warnings;
}

std::vector<std::string> DeploymentChecks::LargeFiles(const TftpSection& tftp)
{
    std::vector<std::string> warnings;
    if (!tftp.Read)
    {
        return warnings;
    }
    std::vector<std::string> folders;
    for (const HomePathEntry& home : tftp.HomePaths)
    {
        folders.push_back(home.Path);
    }
    // Homes may lie inside one another; each file is named once.
    std::set<std::string> named;
    FolderWalk walk(folders);
    const bool unfinished = walk.Step(FilesChecked, [&](const FolderWalk::File& file) {
        if (named.insert(file.Path).second && static_cast<std::uint64_t>(file.Status.st_size) > LargestFile)
        {
            warnings.push_back(fmt::format("tftp: {} has {} bytes, more than 65,535 blocks of 512 bytes hold ({} at most): "
                                           "a download of it starts again from the beginning and never ends; split it",
                                           file.Path, file.Status.st_size, LargestFile));
        }
    });
    if (unfinished)
    {
        warnings.push_back(fmt::format("tftp: the home folders hold more than {} entries; files too large to "
                                       "transfer were looked for among the first {} only",
                                       FilesChecked, FilesChecked));
    }
    return warnings;
}

std::string DeploymentChecks::BroadcastRoute(const BootpSection& bootp)
{
    if (!bootp.Broadcast)
    {
        return {};
    }
    // Connecting a datagram socket looks the route up, as each reply's send will.
    const int probe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0)
    {
        return {};
    }
    const int on = 1;
    ::setsockopt(probe, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    sockaddr_in everyone{};
    everyone.sin_family = AF_INET;
    everyone.sin_port = htons(68);
    everyone.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    const int error = ::connect(probe, reinterpret_cast<const sockaddr*>(&everyone), sizeof everyone) == 0 ? 0 : errno;
    ::close(probe);
    if (error != ENETUNREACH)
    {
        return {};
    }
    return "bootp: no route for 255.255.255.255: every reply will fail (Network is unreachable) while the log says "
           "the address was assigned; add one towards the devices with: ip route add 255.255.255.255/32 dev IFACE";
}

std::vector<std::string> DeploymentChecks::UnwritableHomes(const TftpSection& tftp,
                                                           const std::optional<PrivilegeDrop::Account>& runAs)
{
    std::vector<std::string> warnings;
    if (!tftp.Write)
    {
        return warnings;
    }
    const bool switching = runAs && runAs->Uid != ::geteuid();
    for (const HomePathEntry& home : tftp.HomePaths)
    {
        const bool writable = switching ? CanWriteAs(home.Path, *runAs) : CanWriteAsCurrentUser(home.Path);
        if (!writable)
        {
            warnings.push_back(fmt::format("tftp: uploads are on, but {} cannot write the home folder {}: every "
                                           "upload there ends with ERROR 2",
                                           switching ? "user " + runAs->Name : std::string("the daemon's user"),
                                           home.Path));
        }
    }
    return warnings;
}

} // namespace VantrelNetd
