// Reads a TOML config file into the daemon's configuration and validates every value in it.
#include "ConfigLoader.hpp"

#include "Confinement.hpp"
#include "ExitStatus.hpp"
#include "KeptFolders.hpp"
#include "MacAddressText.hpp"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <map>
#include <system_error>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Net::IpAddress;
namespace fs = std::filesystem;

// More retries only keep stalled sessions longer; the server never ends one that stalls early.
constexpr std::int64_t MostRetries = 10;

const char* TypeName(toml::node_type type)
{
    switch (type)
    {
    case toml::node_type::table:
        return "a table";
    case toml::node_type::array:
        return "an array";
    case toml::node_type::string:
        return "a string";
    case toml::node_type::integer:
        return "an integer";
    case toml::node_type::floating_point:
        return "a floating-point number";
    case toml::node_type::boolean:
        return "a boolean";
    case toml::node_type::date:
        return "a date";
    case toml::node_type::time:
        return "a time";
    case toml::node_type::date_time:
        return "a date-time";
    default:
        return "nothing";
    }
}

// Host-order value of an address, for the order people read addresses in.
std::uint32_t ReadingOrder(const IpAddress& address)
{
    return ntohl(address.GetValue());
}

// Walks one parsed document; every check names the key path and where it stood.
class Reader
{
public:
    Reader(std::string sourceName, fs::path baseDirectory)
        : sourceName(std::move(sourceName)), baseDirectory(std::move(baseDirectory))
    {
    }

    Config Read(const toml::table& root)
    {
        Config config;
        config.SourceFile = sourceName;
        RequireKnownKeys(root, "", {"daemon", "tftp", "bootp", "logging", "control", "web"});
        if (const toml::node* node = root.get("daemon"))
        {
            const toml::table& daemon = Table(*node, "daemon");
            RequireKnownKeys(daemon, "daemon", {"confine"});
            Boolean(daemon, "daemon", "confine", config.Confine);
        }
        if (const toml::node* node = root.get("logging"))
        {
            ReadLogging(Table(*node, "logging"), config.Logging);
        }
        if (const toml::node* node = root.get("control"))
        {
            ReadControl(Table(*node, "control"), config.Control);
        }
        if (const toml::node* node = root.get("web"))
        {
            ReadWeb(Table(*node, "web"), config.Web);
        }
        if (const toml::node* node = root.get("tftp"))
        {
            ReadTftp(Table(*node, "tftp"), config.Tftp);
        }
        if (const toml::node* node = root.get("bootp"))
        {
            ReadBootp(Table(*node, "bootp"), config.Bootp);
        }
        if (config.Tftp.Enabled && config.Bootp.Enabled && config.Bootp.Bind && config.Bootp.Port == 69)
        {
            Fail(root.get("bootp")->as_table()->get("port")->source(), "bootp.port",
                 "port 69 is the TFTP server's port; BOOTP cannot share it");
        }
        if (!config.Tftp.Enabled && !config.Bootp.Enabled)
        {
            throw ConfigError(fmt::format("{}: nothing to run: the config enables neither [tftp] nor [bootp]",
                                          sourceName));
        }
        config.Warnings = std::move(warnings);
        return config;
    }

private:
    [[noreturn]] void Fail(const toml::source_region& where, const std::string& key, const std::string& text) const
    {
        throw ConfigError(fmt::format("{}:{}:{}: {}: {}", sourceName, where.begin.line, where.begin.column, key, text));
    }

    void Warn(const toml::source_region& where, const std::string& key, const std::string& text)
    {
        warnings.push_back(
            fmt::format("{}:{}:{}: {}: {}", sourceName, where.begin.line, where.begin.column, key, text));
    }

    SourcePosition Position(const toml::node& node) const
    {
        return SourcePosition{sourceName, static_cast<long>(node.source().begin.line),
                              static_cast<long>(node.source().begin.column)};
    }

    static std::string Join(const std::string& parent, const std::string& key)
    {
        return parent.empty() ? key : parent + "." + key;
    }

    void RequireKnownKeys(const toml::table& table, const std::string& path, std::initializer_list<const char*> known)
    {
        for (const auto& [key, node] : table)
        {
            bool found = false;
            for (const char* name : known)
            {
                found = found || key.str() == name;
            }
            if (!found)
            {
                std::string list;
                for (const char* name : known)
                {
                    list += list.empty() ? name : std::string(", ") + name;
                }
                Fail(key.source(), Join(path, std::string(key.str())),
                     fmt::format("unknown key (known here: {})", list));
            }
        }
    }

    void WrongType(const toml::node& node, const std::string& key, const char* expected) const
    {
        Fail(node.source(), key, fmt::format("expected {}, found {}", expected, TypeName(node.type())));
    }

    const toml::table& Table(const toml::node& node, const std::string& key) const
    {
        if (!node.is_table())
        {
            WrongType(node, key, "a table");
        }
        return *node.as_table();
    }

    const toml::array& Array(const toml::node& node, const std::string& key) const
    {
        if (!node.is_array())
        {
            WrongType(node, key, "an array");
        }
        return *node.as_array();
    }

    void Boolean(const toml::table& table, const std::string& path, const char* key, bool& value) const
    {
        if (const toml::node* node = table.get(key))
        {
            if (!node->is_boolean())
            {
                WrongType(*node, Join(path, key), "a boolean (true or false)");
            }
            value = node->as_boolean()->get();
        }
    }

    template <typename Number>
    void Integer(const toml::table& table, const std::string& path, const char* key, std::int64_t low,
                 std::int64_t high, Number& value) const
    {
        if (const toml::node* node = table.get(key))
        {
            if (!node->is_integer())
            {
                WrongType(*node, Join(path, key), "an integer");
            }
            const std::int64_t number = node->as_integer()->get();
            if (number < low || number > high)
            {
                Fail(node->source(), Join(path, key),
                     fmt::format("{} is out of range: give an integer from {} to {}", number, low, high));
            }
            value = static_cast<Number>(number);
        }
    }

    const std::string* String(const toml::node& node, const std::string& key) const
    {
        if (!node.is_string())
        {
            WrongType(node, key, "a string");
        }
        return &node.as_string()->get();
    }

    IpAddress Address(const toml::node& node, const std::string& key) const
    {
        const std::string& text = *String(node, key);
        IpAddress address;
        if (!IpAddress::TryParse(Qib::String(text), address))
        {
            Fail(node.source(), key,
                 fmt::format("\"{}\" is not an IPv4 address (give four numbers 0-255 such as 10.77.0.1)", text));
        }
        return address;
    }

    fs::path Resolve(const std::string& text) const
    {
        fs::path path(text);
        if (path.is_relative())
        {
            path = baseDirectory / path;
        }
        std::string normal = path.lexically_normal().string();
        while (normal.size() > 1 && normal.back() == '/')
        {
            normal.pop_back();
        }
        return normal;
    }

    std::string Directory(const toml::node& node, const std::string& key) const
    {
        const std::string& text = *String(node, key);
        if (text.empty())
        {
            Fail(node.source(), key, "the directory is empty text");
        }
        const fs::path path = Resolve(text);
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (!fs::exists(status) && Confinement::IsActive())
        {
            Fail(node.source(), key,
                 fmt::format("directory \"{}\" is not one of the home folders the confined daemon was started "
                             "with: restart vantrel-netd to serve it",
                             path.string()));
        }
        if (!fs::exists(status))
        {
            Fail(node.source(), key, fmt::format("directory \"{}\" does not exist", path.string()));
        }
        if (!fs::is_directory(status))
        {
            Fail(node.source(), key, fmt::format("\"{}\" is not a directory", path.string()));
        }
        return path.string();
    }

    void ReadLogging(const toml::table& table, LoggingSection& logging)
    {
        RequireKnownKeys(table, "logging", {"level", "target", "file", "events"});
        if (const toml::node* node = table.get("level"))
        {
            const std::string& name = *String(*node, "logging.level");
            logging.Level = LogLevelFromName(name);
            if (logging.Level < 0)
            {
                Fail(node->source(), "logging.level",
                     fmt::format("unknown level \"{}\" (give off, error, warning, info, debug or trace)", name));
            }
        }
        if (const toml::node* node = table.get("file"))
        {
            logging.File = FilePath(*node, "logging.file");
            logging.Target = LogTarget::File;
        }
        if (const toml::node* node = table.get("target"))
        {
            ReadLogTarget(*node, logging);
        }
        if (const toml::node* node = table.get("events"))
        {
            logging.Events = FilePath(*node, "logging.events");
        }
    }

    // "file" is implied by a file name; the other targets take none.
    void ReadLogTarget(const toml::node& node, LoggingSection& logging) const
    {
        const std::string& name = *String(node, "logging.target");
        const bool hasFile = !logging.File.empty();
        if (name == "file" && !hasFile)
        {
            Fail(node.source(), "logging.target", "\"file\" needs logging.file, the file to append to");
        }
        if ((name == "stderr" || name == "journal") && hasFile)
        {
            Fail(node.source(), "logging.target",
                 fmt::format("\"{}\" writes no file: leave logging.file out, or give target = \"file\"", name));
        }
        if (name != "file" && name != "stderr" && name != "journal")
        {
            Fail(node.source(), "logging.target",
                 fmt::format("unknown target \"{}\" (give stderr, journal or file)", name));
        }
        logging.Target = name == "journal" ? LogTarget::Journal : name == "file" ? LogTarget::File
                                                                                 : LogTarget::StandardError;
    }

    void ReadControl(const toml::table& table, ControlSection& control)
    {
        RequireKnownKeys(table, "control", {"socket"});
        if (const toml::node* node = table.get("socket"))
        {
            control.Socket = FilePath(*node, "control.socket");
        }
    }

    void ReadWeb(const toml::table& table, WebSection& web)
    {
        RequireKnownKeys(table, "web", {"listen", "allow_changes", "token_file"});
        if (const toml::node* node = table.get("listen"))
        {
            ReadListen(*node, web);
        }
        Boolean(table, "web", "allow_changes", web.AllowChanges);
        if (const toml::node* node = table.get("token_file"))
        {
            web.TokenFile = Resolve(*String(*node, "web.token_file")).string();
        }
        if (web.Enabled && web.Host != "127.0.0.1")
        {
            Warn(table.get("listen")->source(), "web.listen",
                 fmt::format("the page is reachable from other hosts on {}: anyone who reaches it sees the devices{}",
                             web.Host, web.AllowChanges ? ", and whoever has the token changes assignments" : ""));
        }
    }

    // "HOST:PORT" or "PORT"; the host defaults to 127.0.0.1.
    void ReadListen(const toml::node& node, WebSection& web)
    {
        const std::string& text = *String(node, "web.listen");
        const std::size_t colon = text.rfind(':');
        const std::string host = colon == std::string::npos ? "127.0.0.1" : text.substr(0, colon);
        const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
        IpAddress address;
        int number = 0;
        const bool digits = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
        if (digits)
        {
            number = std::stoi(port);
        }
        if (!IpAddress::TryParse(Qib::String(host), address) || !digits || number < 1 || number > 65535)
        {
            Fail(node.source(), "web.listen",
                 fmt::format("\"{}\" is not an address and port (give 127.0.0.1:8069, or a port alone)", text));
        }
        web.Enabled = true;
        web.Host = host;
        web.Port = static_cast<std::uint16_t>(number);
    }

    // A file the daemon creates: relative to the config's folder, in a folder that exists (once the
    // daemon is confined: one it kept at the start).
    std::string FilePath(const toml::node& node, const std::string& key)
    {
        const std::string& text = *String(node, key);
        if (text.empty())
        {
            Fail(node.source(), key, "the file name is empty text");
        }
        const fs::path path = Resolve(text);
        std::error_code error;
        if (!KeptFolders::IsFolder(path.parent_path().string()))
        {
            Fail(node.source(), key,
                 Confinement::IsActive()
                     ? fmt::format("directory \"{}\" is not a folder the confined daemon was started with: "
                                   "restart vantrel-netd to use it",
                                   path.parent_path().string())
                     : fmt::format("directory \"{}\" does not exist", path.parent_path().string()));
        }
        if (fs::is_directory(path, error))
        {
            Fail(node.source(), key, fmt::format("\"{}\" is a directory", path.string()));
        }
        return path.string();
    }

    void ReadTftp(const toml::table& table, TftpSection& tftp)
    {
        RequireKnownKeys(table, "tftp",
                         {"enabled", "home", "allowed_clients", "read", "write", "overwrite", "timeout", "retries",
                          "verbose", "threads"});
        tftp.Enabled = true;
        Boolean(table, "tftp", "enabled", tftp.Enabled);
        Boolean(table, "tftp", "read", tftp.Read);
        Boolean(table, "tftp", "write", tftp.Write);
        Boolean(table, "tftp", "overwrite", tftp.Overwrite);
        Boolean(table, "tftp", "verbose", tftp.Verbose);
        Integer(table, "tftp", "timeout", 0, 255, tftp.Timeout);
        Integer(table, "tftp", "retries", 0, MostRetries, tftp.Retries);
        Integer(table, "tftp", "threads", 0, 1024, tftp.Threads);

        const toml::node* home = table.get("home");
        if (home != nullptr)
        {
            ReadHomePaths(Array(*home, "tftp.home"), tftp.HomePaths);
        }
        if (const toml::node* clients = table.get("allowed_clients"))
        {
            ReadAllowedClients(Array(*clients, "tftp.allowed_clients"), tftp.AllowedClients);
        }
        if (!tftp.Enabled)
        {
            return;
        }
        if (tftp.HomePaths.empty())
        {
            Fail(home != nullptr ? home->source() : table.source(), "tftp.home",
                 "no home directory: add a [[tftp.home]] table with a path");
        }
        bool hasDefaultHome = false;
        for (const HomePathEntry& entry : tftp.HomePaths)
        {
            hasDefaultHome = hasDefaultHome || entry.Alias == "/";
        }
        if (!hasDefaultHome)
        {
            // Without a "/" home the server looks names outside every alias up from the file system root.
            Fail(home->source(), "tftp.home",
                 "no home with alias \"/\": names outside every alias would be served from the file system root");
        }
        if (!tftp.Read && !tftp.Write)
        {
            Warn(table.source(), "tftp", "read and write are both off: every request will be refused");
        }
        if (tftp.Overwrite && !tftp.Write)
        {
            Warn(table.get("overwrite")->source(), "tftp.overwrite", "has no effect while write is off");
        }
        if (tftp.Retries > 0)
        {
            Warn(table.get("retries")->source(), "tftp.retries",
                 fmt::format("{0}: a transfer that stalls before the server has sent more than {0} packets (a read "
                             "request never acknowledged, a small file) is never given up and stays in the server "
                             "for ever; 34,287 such requests once took 39% of a core and made a 1 MiB download "
                             "fail. 0 ends every silent session after the time-out",
                             tftp.Retries));
        }
    }

    void ReadHomePaths(const toml::array& array, std::vector<HomePathEntry>& homePaths)
    {
        std::vector<const toml::node*> aliasNodes;
        for (std::size_t index = 0; index < array.size(); ++index)
        {
            const std::string path = fmt::format("tftp.home[{}]", index);
            const toml::table& entry = Table(array[index], path);
            RequireKnownKeys(entry, path, {"alias", "path"});
            HomePathEntry home{"/", ""};
            const toml::node* alias = entry.get("alias");
            if (alias != nullptr)
            {
                home.Alias = *String(*alias, path + ".alias");
                if (home.Alias.empty() || home.Alias.front() != '/')
                {
                    Fail(alias->source(), path + ".alias",
                         fmt::format("\"{}\" must begin with \"/\": request names are matched from their leading \"/\"",
                                     home.Alias));
                }
            }
            const toml::node* directory = entry.get("path");
            if (directory == nullptr)
            {
                Fail(entry.source(), path + ".path", "missing: give the local directory of this home");
            }
            home.Path = Directory(*directory, path + ".path");
            aliasNodes.push_back(alias != nullptr ? alias : &array[index]);
            homePaths.push_back(home);
        }
        // The first matching alias wins and matching is a plain prefix test.
        for (std::size_t later = 0; later < homePaths.size(); ++later)
        {
            for (std::size_t earlier = 0; earlier < later; ++earlier)
            {
                const std::string& first = homePaths[earlier].Alias;
                const std::string& second = homePaths[later].Alias;
                if (first == "/" && second == "/")
                {
                    Warn(aliasNodes[later]->source(), fmt::format("tftp.home[{}].alias", later),
                         fmt::format("a second \"/\" home (tftp.home[{}] is one too): which of them serves a name "
                                     "depends on the aliases between them",
                                     earlier));
                    break;
                }
                if (first != "/" && second.compare(0, first.size(), first) == 0)
                {
                    Warn(aliasNodes[later]->source(), fmt::format("tftp.home[{}].alias", later),
                         fmt::format("\"{}\" is never reached: the earlier alias \"{}\" (tftp.home[{}]) matches "
                                     "every name it would; list the longer alias first",
                                     second, first, earlier));
                    break;
                }
            }
        }
    }

    void ReadAllowedClients(const toml::array& array, std::vector<ClientRange>& ranges)
    {
        for (std::size_t index = 0; index < array.size(); ++index)
        {
            const std::string key = fmt::format("tftp.allowed_clients[{}]", index);
            const toml::node& element = array[index];
            ClientRange range;
            range.Key = key;
            range.Where = Position(element);
            if (element.is_string())
            {
                range.First = range.Last = Address(element, key);
            }
            else if (element.is_table())
            {
                const toml::table& bounds = *element.as_table();
                RequireKnownKeys(bounds, key, {"first", "last"});
                const toml::node* first = bounds.get("first");
                const toml::node* last = bounds.get("last");
                if (first == nullptr || last == nullptr)
                {
                    Fail(element.source(), key, "a range needs both first and last");
                }
                range.First = Address(*first, key + ".first");
                range.Last = Address(*last, key + ".last");
                if (ReadingOrder(range.First) > ReadingOrder(range.Last))
                {
                    Fail(element.source(), key,
                         fmt::format("first {} is above last {}", range.First.ToString().GetStdString(),
                                     range.Last.ToString().GetStdString()));
                }
                WarnAboutRange(element, range);
            }
            else
            {
                WrongType(element, key, "an address string or a table { first = \"...\", last = \"...\" }");
            }
            ranges.push_back(range);
        }
    }

    // The server compares the address values as held (network byte order read as one number), not
    // in the order people read addresses, so most ranges hold other addresses than they seem to.
    void WarnAboutRange(const toml::node& element, const ClientRange& range)
    {
        if (range.First == range.Last)
        {
            return;
        }
        const std::string shown =
            fmt::format("{} .. {}", range.First.ToString().GetStdString(), range.Last.ToString().GetStdString());
        if (range.First.GetValue() > range.Last.GetValue())
        {
            Warn(element.source(), range.Key,
                 fmt::format("the range {} admits no client at all: the server compares the address values as "
                             "held in network byte order; list single addresses instead",
                             shown));
            return;
        }
        const auto admitted = [&](std::uint32_t readingOrder) {
            const std::uint32_t held = htonl(readingOrder);
            return range.First.GetValue() <= held && held <= range.Last.GetValue();
        };
        const auto meant = [&](std::uint32_t readingOrder) {
            return ReadingOrder(range.First) <= readingOrder && readingOrder <= ReadingOrder(range.Last);
        };
        // Look for an example near the bounds where the two orders disagree.
        for (const IpAddress& bound : {range.First, range.Last})
        {
            for (unsigned shift = 0; shift < 32; shift += 8)
            {
                for (const std::int64_t step : {1, -1})
                {
                    const std::int64_t candidate =
                        static_cast<std::int64_t>(ReadingOrder(bound)) + step * (std::int64_t{1} << shift);
                    if (candidate < 0 || candidate > std::numeric_limits<std::uint32_t>::max())
                    {
                        continue;
                    }
                    const auto value = static_cast<std::uint32_t>(candidate);
                    if (admitted(value) != meant(value))
                    {
                        const std::string example = IpAddress(htonl(value)).ToString().GetStdString();
                        Warn(element.source(), range.Key,
                             fmt::format("the range {} does not hold what it seems: the server compares the address "
                                         "values as held in network byte order, so it {} {}; list single addresses "
                                         "instead",
                                         shown, admitted(value) ? "admits" : "refuses", example));
                        return;
                    }
                }
            }
        }
    }

    void ReadBootp(const toml::table& table, BootpSection& bootp)
    {
        RequireKnownKeys(table, "bootp",
                         {"enabled", "address", "port", "timeout", "bind", "broadcast", "boot_server", "boot_file",
                          "hosts", "hosts_file"});
        bootp.Enabled = true;
        Boolean(table, "bootp", "enabled", bootp.Enabled);
        if (const toml::node* node = table.get("address"))
        {
            bootp.Address = Address(*node, "bootp.address");
        }
        Integer(table, "bootp", "port", 1, 65535, bootp.Port);
        Integer(table, "bootp", "timeout", 0, 255, bootp.Timeout);
        Boolean(table, "bootp", "bind", bootp.Bind);
        Boolean(table, "bootp", "broadcast", bootp.Broadcast);
        if (const toml::node* node = table.get("boot_server"))
        {
            bootp.BootServer = Address(*node, "bootp.boot_server");
        }
        if (const toml::node* node = table.get("boot_file"))
        {
            bootp.BootFile = *String(*node, "bootp.boot_file");
            // The reply's file field holds 128 bytes with the terminating zero.
            if (bootp.BootFile.size() > 127)
            {
                Fail(node->source(), "bootp.boot_file",
                     fmt::format("{} bytes long; the reply's file field holds at most 127", bootp.BootFile.size()));
            }
        }
        const toml::node* hosts = table.get("hosts");
        if (hosts != nullptr)
        {
            ReadBootpHosts(Array(*hosts, "bootp.hosts"), bootp.Hosts);
        }
        const toml::node* hostsFile = table.get("hosts_file");
        if (hostsFile != nullptr)
        {
            bootp.HostsFile = FilePath(*hostsFile, "bootp.hosts_file");
        }
        if (!bootp.Enabled)
        {
            return;
        }
        if (bootp.Hosts.empty() && hostsFile == nullptr)
        {
            Warn(hosts != nullptr ? hosts->source() : table.source(), "bootp.hosts",
                 "the table is empty: only devices in the kernel ARP table get a reply, and of those only the ones "
                 "whose hardware address has no letter A-F");
        }
        // Booting devices have no address yet and send to 255.255.255.255, which the kernel hands only to
        // sockets bound to every interface.
        if (bootp.Address.GetValue() != 0)
        {
            Warn(table.get("address")->source(), "bootp.address",
                 "a socket bound to one address never receives the broadcast requests of booting devices; give "
                 "0.0.0.0");
        }
        if (!bootp.Bind)
        {
            Warn(table.get("bind")->source(), "bootp.bind", "false leaves the socket unbound: no request will arrive");
        }
        if (!bootp.Broadcast)
        {
            Warn(table.get("broadcast")->source(), "bootp.broadcast",
                 "false forbids the broadcast that every reply is: no device will get an answer");
        }
    }

    void ReadBootpHosts(const toml::array& array, std::vector<BootpHost>& hosts)
    {
        std::map<std::string, long> seenHardware;
        std::map<std::uint32_t, std::string> seenAddresses;
        for (std::size_t index = 0; index < array.size(); ++index)
        {
            const std::string path = fmt::format("bootp.hosts[{}]", index);
            const toml::table& entry = Table(array[index], path);
            RequireKnownKeys(entry, path, {"mac", "ip"});
            const toml::node* mac = entry.get("mac");
            const toml::node* ip = entry.get("ip");
            if (mac == nullptr)
            {
                Fail(entry.source(), path + ".mac", "missing: give the device's hardware address");
            }
            if (ip == nullptr)
            {
                Fail(entry.source(), path + ".ip", "missing: give the IPv4 address for this device");
            }
            BootpHost host;
            host.Key = path;
            host.Where = Position(*mac);
            const std::string& text = *String(*mac, path + ".mac");
            if (!MacAddressText::TryNormalize(text, host.MacAddress))
            {
                Fail(mac->source(), path + ".mac",
                     fmt::format("\"{}\" is not a hardware address (give 00:1A:2B:3C:4D:5E, 00-1A-2B-3C-4D-5E or "
                                 "001A2B3C4D5E)",
                                 text));
            }
            host.Address = Address(*ip, path + ".ip");
            const auto [hardware, firstSeen] = seenHardware.emplace(host.MacAddress, host.Where.Line);
            if (!firstSeen)
            {
                Fail(mac->source(), path + ".mac",
                     fmt::format("{} is listed already on line {}", host.MacAddress, hardware->second));
            }
            const auto [address, addressFirstSeen] = seenAddresses.emplace(host.Address.GetValue(), host.MacAddress);
            if (!addressFirstSeen)
            {
                Warn(ip->source(), path + ".ip",
                     fmt::format("{} is given to {} already", host.Address.ToString().GetStdString(), address->second));
            }
            hosts.push_back(host);
        }
    }

    std::string sourceName;
    fs::path baseDirectory;
    std::vector<std::string> warnings;
};

// Started as root through sudo (scripts/run does that), a folder made for the caller belongs to the
// user who asked, so that they can put files into it without sudo. A failure leaves it root's.
void HandToSudoUser(const std::vector<fs::path>& made)
{
    const char* user = std::getenv("SUDO_UID");
    const char* group = std::getenv("SUDO_GID");
    if (::geteuid() != 0 || user == nullptr || group == nullptr)
    {
        return;
    }
    char* end = nullptr;
    const unsigned long uid = std::strtoul(user, &end, 10);
    const bool uidRead = end != user && *end == '\0';
    const unsigned long gid = std::strtoul(group, &end, 10);
    if (!uidRead || end == group || *end != '\0' || uid == 0)
    {
        return;
    }
    for (const fs::path& path : made)
    {
        (void)::lchown(path.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid));
    }
}

} // namespace

Config ConfigLoader::LoadFile(const std::string& path)
{
    std::error_code error;
    const fs::path absolute = fs::absolute(fs::path(path), error);
    const int descriptor = KeptFolders::Open(absolute.string(), O_RDONLY);
    if (descriptor < 0)
    {
        throw ConfigError(fmt::format("{}: cannot read the config file: {}", path,
                                      errno == ENOENT ? "no such file" : std::strerror(errno)));
    }
    std::string text;
    struct stat status{};
    const bool isFolder = ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
    std::array<char, 65536> buffer{};
    ssize_t count = 0;
    while (!isFolder && (count = ::read(descriptor, buffer.data(), buffer.size())) > 0)
    {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    const int readError = errno;
    ::close(descriptor);
    if (isFolder)
    {
        throw ConfigError(fmt::format("{}: is a directory, not a config file", path));
    }
    if (count < 0)
    {
        throw ConfigError(fmt::format("{}: cannot read the config file: {}", path, std::strerror(readError)));
    }
    return LoadText(text, path, absolute.parent_path().string());
}

Config ConfigLoader::LoadText(const std::string& text, const std::string& sourceName, const std::string& baseDirectory)
{
    toml::table root;
    try
    {
        root = toml::parse(text, sourceName);
    }
    catch (const toml::parse_error& error)
    {
        throw ConfigError(fmt::format("{}:{}:{}: {}", sourceName, error.source().begin.line,
                                      error.source().begin.column, error.description()));
    }
    Reader reader(sourceName, fs::path(baseDirectory));
    return reader.Read(root);
}

Config ConfigLoader::BuiltIn(const std::string& tftpRoot)
{
    std::error_code error;
    fs::path root = fs::absolute(fs::path(tftpRoot), error).lexically_normal();
    std::string rootText = root.string();
    while (rootText.size() > 1 && rootText.back() == '/')
    {
        rootText.pop_back();
    }
    if (!fs::exists(root, error))
    {
        if (!fs::create_directories(root, error))
        {
            throw DaemonExit(RuntimeFailure,
                             fmt::format("cannot create the TFTP folder {}: {}", rootText, error.message()));
        }
        std::ofstream sample(root / "hello.txt");
        sample << "Hello from vantrel-netd. Fetch me with: tftp -m binary 127.0.0.1 -c get hello.txt\n";
        sample.close();
        if (!sample)
        {
            throw DaemonExit(RuntimeFailure, fmt::format("cannot write the sample file in {}", rootText));
        }
        HandToSudoUser({root, root / "hello.txt"});
    }
    else if (!fs::is_directory(root, error))
    {
        throw DaemonExit(BadCommandLine, fmt::format("--tftp-root: {} is not a directory", rootText));
    }
    Config config;
    config.Tftp.Enabled = true;
    config.Tftp.Read = true;
    config.Tftp.Write = false;
    config.Tftp.HomePaths.push_back(HomePathEntry{"/", rootText});
    return config;
}

} // namespace VantrelNetd
