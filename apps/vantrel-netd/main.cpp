// vantrel-netd: hosts libVantrelBase.Net.so and runs its TFTP and BOOTP servers from a config file.
#include "AssignCommand.hpp"
#include "CommandLine.hpp"
#include "Daemon.hpp"
#include "ExitStatus.hpp"
#include "StatusCommand.hpp"

#include <csignal>
#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    using namespace VantrelNetd;
    // A log reader that goes away (`vantrel-netd 2>&1 | head`) is an error of that write, never the
    // end of the servers.
    std::signal(SIGPIPE, SIG_IGN);
    const CommandLine::Result command = CommandLine::Parse(argc, argv);
    if (!command.Run)
    {
        if (command.ExitStatus == 0)
        {
            std::fputs(command.Text.c_str(), stdout);
        }
        else
        {
            std::fprintf(stderr, "vantrel-netd: %s\n", command.Text.c_str());
        }
        return command.ExitStatus;
    }
    try
    {
        if (command.Values.Status)
        {
            return StatusCommand::Run(command.Values);
        }
        if (command.Values.Assign || command.Values.Unassign)
        {
            return AssignCommand::Run(command.Values);
        }
        Daemon daemon(command.Values);
        return command.Values.Check ? daemon.Check() : daemon.Run();
    }
    catch (const DaemonExit& exit)
    {
        std::fprintf(stderr, "vantrel-netd: %s\n", exit.what());
        return exit.GetStatus();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "vantrel-netd: %s\n", error.what());
        return RuntimeFailure;
    }
}
