// The daemon's command line: options, help text with examples, and the outcome of parsing them.
#include "CommandLine.hpp"

#include "Config.hpp"
#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <sstream>

#ifndef VANTREL_NETD_VERSION
#define VANTREL_NETD_VERSION "unknown"
#endif

namespace VantrelNetd
{

namespace
{

const char* const footer = R"(Examples:
  vantrel-netd                                  serve ./tftpboot read-only over TFTP
  vantrel-netd --tftp-root /srv/tftp            serve another folder
  vantrel-netd --config /etc/vantrel-netd.toml  run the servers a config file describes
  vantrel-netd --config site.toml --check       validate a config and show what would run
  vantrel-netd --config site.toml --user tftp   run the servers as user tftp
  vantrel-netd status --config site.toml        show transfers and devices of the running daemon
  vantrel-netd assign 00:1A:2B:3C:4D:99 10.77.0.40 --name press-3
                                                give a device its address while the daemon runs
  vantrel-netd assign --from plan.csv           assign a list (hardware address, IP address, name)
  vantrel-netd unassign 00:1A:2B:3C:4D:99       remove a device's runtime assignment

Signals: SIGINT and SIGTERM stop the servers and exit 0; SIGHUP reopens the log file and
re-reads the config, restarting only the servers whose settings changed.
Exit statuses: 0 clean stop, 1 runtime failure, 64 bad command line, 69 port in use,
65 assignment refused, 66 list file unreadable, 73 log or hosts file cannot be written, 76 unreadable answer on the control socket, 77 no privilege,
78 bad config.)";

} // namespace

CommandLine::Result CommandLine::Parse(const std::vector<std::string>& arguments)
{
    Result result;
    Options& options = result.Values;
    std::string level;

    CLI::App app("vantrel-netd: runs the TFTP and BOOTP servers of libVantrelBase.Net from a config file.",
                 "vantrel-netd");
    app.footer(footer);
    app.set_version_flag("--version", std::string("vantrel-netd ") + VANTREL_NETD_VERSION);
    CLI::Option* config = app.add_option("-c,--config", options.ConfigFile, "TOML config file to run")
                              ->type_name("FILE");
    app.add_flag("--check", options.Check, "validate the config, print what would run, and exit");
    app.add_option("--log-level", level, "off, error, warning, info, debug or trace (overrides the config)")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"off", "error", "warning", "info", "debug", "trace"}));
    app.add_option("--log-file", options.LogFile, "append log lines to FILE instead of standard error")
        ->type_name("FILE");
    app.add_option("--tftp-root", options.TftpRoot,
                   "folder served without a config file (created with a sample file when missing)")
        ->type_name("DIR")
        ->excludes(config)
        ->capture_default_str();
    app.add_option("--user", options.User, "user to run the servers as (keeps only the right "
                                           "to bind ports below 1024)")
        ->type_name("NAME");

    CLI::App* status = app.add_subcommand("status", "show the running daemon's servers, transfers and devices");
    status->add_flag("--json", options.Json, "print the status as one JSON object");
    status->add_option("--socket", options.SocketPath, "the daemon's control socket (default: the config's)")
        ->type_name("PATH");
    status->add_option("-c,--config", options.ConfigFile, "the config the daemon runs, to find its socket")
        ->type_name("FILE");

    CLI::App* assign = app.add_subcommand("assign", "give devices their addresses in the running daemon's BOOTP "
                                                    "table (kept in bootp.hosts_file)");
    assign->add_option("values", options.Values, "HARDWARE IP: the device's hardware address and its address")
        ->expected(0, 2);
    assign->add_option("--name", options.Name, "the device's name")->type_name("NAME");
    assign->add_option("--from", options.From, "a list: hardware address, IP address, name per line")
        ->type_name("FILE");
    assign->add_flag("--force", options.Force, "make the change even if it hides another entry");
    CLI::App* unassign = app.add_subcommand("unassign", "remove a device's runtime assignment");
    unassign->add_option("values", options.Values, "HARDWARE: the device's hardware address")
        ->expected(1)
        ->required();
    for (CLI::App* command : {assign, unassign})
    {
        command->add_option("--socket", options.SocketPath, "the daemon's control socket (default: the config's)")
            ->type_name("PATH");
        command->add_option("-c,--config", options.ConfigFile, "the config the daemon runs, to find its socket")
            ->type_name("FILE");
    }

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try
    {
        app.parse(reversed);
    }
    catch (const CLI::Success& success)
    {
        std::ostringstream out;
        std::ostringstream error;
        result.ExitStatus = app.exit(success, out, error);
        result.Text = out.str();
        return result;
    }
    catch (const CLI::ParseError& error)
    {
        result.ExitStatus = BadCommandLine;
        result.Text = fmt::format("{} (see --help)", error.what());
        return result;
    }
    if (!level.empty())
    {
        options.LogLevel = LogLevelFromName(level);
    }
    options.Status = status->parsed();
    options.Assign = assign->parsed();
    options.Unassign = unassign->parsed();
    if (options.Assign && (options.From.empty() ? options.Values.size() != 2 : !options.Values.empty()))
    {
        result.ExitStatus = BadCommandLine;
        result.Text = "assign needs HARDWARE IP, or --from FILE alone (see --help)";
        return result;
    }
    if (options.Check && options.ConfigFile.empty())
    {
        result.ExitStatus = BadCommandLine;
        result.Text = "--check needs --config FILE (see --help)";
        return result;
    }
    result.Run = true;
    return result;
}

CommandLine::Result CommandLine::Parse(int argc, const char* const* argv)
{
    std::vector<std::string> arguments;
    for (int index = 1; index < argc; ++index)
    {
        arguments.emplace_back(argv[index]);
    }
    return Parse(arguments);
}

} // namespace VantrelNetd
