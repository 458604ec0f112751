// The daemon's configuration: what to run and how, as read from a config file or built in.
#include "Config.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>

namespace VantrelNetd
{

namespace
{

const std::array<std::pair<const char*, int>, 6> levelNames{{
    {"off", 0},
    {"error", 3},
    {"warning", 5},
    {"info", 6},
    {"debug", 7},
    {"trace", 8},
}};

const char* OnOff(bool value)
{
    return value ? "yes" : "no";
}

} // namespace

std::string SourcePosition::ToString() const
{
    if (Line <= 0)
    {
        return File;
    }
    return fmt::format("{}:{}:{}", File, Line, Column);
}

int LogLevelFromName(const std::string& name)
{
    for (const auto& [text, level] : levelNames)
    {
        if (name == text)
        {
            return level;
        }
    }
    return -1;
}

std::string LogLevelName(int level)
{
    for (const auto& [text, number] : levelNames)
    {
        if (level == number)
        {
            return text;
        }
    }
    return std::to_string(level);
}

std::string Config::Describe() const
{
    std::string text;
    text += fmt::format("config: {}\n", SourceFile.empty() ? "(built-in default)" : SourceFile);
    const char* const targets[] = {"standard error", "the journal (standard error with priorities)", ""};
    text += fmt::format("logging: level {}, to {}\n", LogLevelName(Logging.Level),
                        Logging.Target == LogTarget::File ? Logging.File : targets[static_cast<int>(Logging.Target)]);
    text += fmt::format("daemon: confine {}\n", OnOff(Confine));
    if (!Logging.Events.empty())
    {
        text += fmt::format("journal events: JSON lines to {}\n", Logging.Events);
    }
    if (Tftp.Enabled)
    {
        text += fmt::format("tftp: on, UDP port 69, read {}, write {}, overwrite {}, timeout {} s, retries {}, "
                            "threads {}, verbose {}\n",
                            OnOff(Tftp.Read), OnOff(Tftp.Write), OnOff(Tftp.Overwrite), Tftp.Timeout, Tftp.Retries,
                            Tftp.Threads, OnOff(Tftp.Verbose));
        for (const HomePathEntry& home : Tftp.HomePaths)
        {
            text += fmt::format("  home {} -> {}\n", home.Alias, home.Path);
        }
        if (Tftp.AllowedClients.empty())
        {
            text += "  clients: all\n";
        }
        for (const ClientRange& range : Tftp.AllowedClients)
        {
            if (range.First == range.Last)
            {
                text += fmt::format("  client {}\n", range.First.ToString().GetStdString());
            }
            else
            {
                text += fmt::format("  clients {} .. {}\n", range.First.ToString().GetStdString(),
                                    range.Last.ToString().GetStdString());
            }
        }
    }
    else
    {
        text += "tftp: off\n";
    }
    if (Bootp.Enabled)
    {
        text += fmt::format("bootp: on, {}:{}{}, timeout {} ms, broadcast {}, boot server {}, boot file \"{}\"\n",
                            Bootp.Address.ToString().GetStdString(), Bootp.Port, Bootp.Bind ? "" : " (unbound)",
                            Bootp.Timeout, OnOff(Bootp.Broadcast), Bootp.BootServer.ToString().GetStdString(),
                            Bootp.BootFile);
        if (Bootp.Hosts.empty())
        {
            text += "  hosts: none (the kernel ARP table is asked)\n";
        }
        for (const BootpHost& host : Bootp.Hosts)
        {
            text += fmt::format("  host {} -> {}\n", host.MacAddress, host.Address.ToString().GetStdString());
        }
    }
    else
    {
        text += "bootp: off\n";
    }
    return text;
}

} // namespace VantrelNetd
