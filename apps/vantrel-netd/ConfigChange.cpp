// What differs between the running config and a reloaded one, server by server.
#include "ConfigChange.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Net::IpAddress;

// Appends "<what> changed" when the two values differ.
template <typename Value>
void Compare(std::vector<std::string>& changes, const char* what, const Value& before, const Value& after)
{
    if (!(before == after))
    {
        changes.push_back(fmt::format("{} changed", what));
    }
}

std::string Count(std::size_t count, const char* what)
{
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

bool SameHomes(const std::vector<HomePathEntry>& before, const std::vector<HomePathEntry>& after)
{
    return before.size() == after.size() &&
           std::equal(before.begin(), before.end(), after.begin(), [](const auto& left, const auto& right) {
               return left.Alias == right.Alias && left.Path == right.Path;
           });
}

bool SameClients(const std::vector<ClientRange>& before, const std::vector<ClientRange>& after)
{
    return before.size() == after.size() &&
           std::equal(before.begin(), before.end(), after.begin(),
                      [](const auto& left, const auto& right) {
                          return left.First == right.First && left.Last == right.Last;
                      });
}

// Every setting of the section is compared: one left out would not restart the server.
std::vector<std::string> CompareTftp(const TftpSection& before, const TftpSection& after)
{
    std::vector<std::string> changes;
    if (!SameHomes(before.HomePaths, after.HomePaths))
    {
        changes.emplace_back("homes changed");
    }
    if (!SameClients(before.AllowedClients, after.AllowedClients))
    {
        changes.emplace_back("allowed clients changed");
    }
    Compare(changes, "read", before.Read, after.Read);
    Compare(changes, "write", before.Write, after.Write);
    Compare(changes, "overwrite", before.Overwrite, after.Overwrite);
    Compare(changes, "timeout", before.Timeout, after.Timeout);
    Compare(changes, "retries", before.Retries, after.Retries);
    Compare(changes, "verbose", before.Verbose, after.Verbose);
    Compare(changes, "threads", before.Threads, after.Threads);
    return changes;
}

void CompareHosts(std::vector<std::string>& changes, const std::vector<BootpHost>& before,
                  const std::vector<BootpHost>& after)
{
    std::map<std::string, IpAddress> old;
    for (const BootpHost& host : before)
    {
        old.emplace(host.MacAddress, host.Address);
    }
    std::size_t added = 0;
    std::size_t changed = 0;
    for (const BootpHost& host : after)
    {
        const auto found = old.find(host.MacAddress);
        if (found == old.end())
        {
            ++added;
            continue;
        }
        changed += found->second == host.Address ? 0 : 1;
        old.erase(found);
    }
    const std::size_t removed = old.size();
    const std::pair<std::size_t, const char*> counts[] = {{added, "added"}, {removed, "removed"}, {changed, "changed"}};
    for (const auto& [count, what] : counts)
    {
        if (count > 0)
        {
            changes.push_back(Count(count, "host") + " " + what);
        }
    }
    // The library's table search depends on the order of its entries.
    const auto sameAddress = [](const BootpHost& left, const BootpHost& right) {
        return left.MacAddress == right.MacAddress;
    };
    const bool sameOrder =
        before.size() == after.size() && std::equal(before.begin(), before.end(), after.begin(), sameAddress);
    if (added == 0 && removed == 0 && !sameOrder)
    {
        changes.emplace_back("hosts reordered");
    }
}

std::vector<std::string> CompareBootp(const BootpSection& before, const BootpSection& after)
{
    std::vector<std::string> changes;
    CompareHosts(changes, before.Hosts, after.Hosts);
    Compare(changes, "address", before.Address, after.Address);
    Compare(changes, "port", before.Port, after.Port);
    Compare(changes, "timeout", before.Timeout, after.Timeout);
    Compare(changes, "bind", before.Bind, after.Bind);
    Compare(changes, "broadcast", before.Broadcast, after.Broadcast);
    Compare(changes, "boot server", before.BootServer, after.BootServer);
    Compare(changes, "boot file", before.BootFile, after.BootFile);
    return changes;
}

// A server turned on or off is that one change; settings only count while it stays on.
template <typename Section, typename Comparison>
std::vector<std::string> CompareServer(const Section& before, const Section& after, Comparison compare)
{
    if (before.Enabled != after.Enabled)
    {
        return {after.Enabled ? "started" : "stopped"};
    }
    return after.Enabled ? compare(before, after) : std::vector<std::string>{};
}

std::string Join(const std::vector<std::string>& parts, const char* separator)
{
    std::string text;
    for (const std::string& part : parts)
    {
        text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

std::string Section(const char* name, const std::vector<std::string>& changes)
{
    return changes.empty() ? fmt::format("{} unchanged", name) : fmt::format("{}: {}", name, Join(changes, ", "));
}

} // namespace

ConfigChange::ConfigChange(const Config& before, const Config& after)
    : tftp(CompareServer(before.Tftp, after.Tftp, CompareTftp)),
      bootp(CompareServer(before.Bootp, after.Bootp, CompareBootp))
{
    Compare(logging, "level", before.Logging.Level, after.Logging.Level);
    Compare(logging, "file", before.Logging.File, after.Logging.File);
    Compare(logging, "events", before.Logging.Events, after.Logging.Events);
}

std::string ConfigChange::Describe() const
{
    std::vector<std::string> sections{Section("bootp", bootp), Section("tftp", tftp)};
    if (LoggingChanged())
    {
        sections.push_back(Section("logging", logging));
    }
    return Join(sections, "; ");
}

} // namespace VantrelNetd
