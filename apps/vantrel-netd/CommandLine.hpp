// The daemon's command line: options, help text with examples, and the outcome of parsing them.
#pragma once

#include <string>
#include <vector>

namespace VantrelNetd
{

/// What the command line asks for.
struct Options
{
    std::string ConfigFile;
    bool Check = false;
    /// Host log level number, or -1 when the config (or its default) decides.
    int LogLevel = -1;
    std::string LogFile;
    std::string TftpRoot = "./tftpboot";
    /// User to run the servers as; empty keeps the current user.
    std::string User;
    /// `status`: ask the running daemon instead of running one.
    bool Status = false;
    bool Json = false;
    /// The control socket to ask; empty: the config's, or the default.
    std::string SocketPath;
    /// `assign HARDWARE IP [--name NAME]` or `assign --from FILE`, and `unassign HARDWARE`.
    bool Assign = false;
    bool Unassign = false;
    std::vector<std::string> Values;
    std::string Name;
    std::string From;
    bool Force = false;
};

/// Parses the command line. Distinct objects: safe.
class CommandLine
{
public:
    /// The result of parsing: either options to run with, or text to print and a status to exit with.
    struct Result
    {
        bool Run = false;
        Options Values;
        int ExitStatus = 0;
        /// Text for standard output (help, version) or, with a non-zero status, one line for standard error.
        std::string Text;
    };

    static Result Parse(const std::vector<std::string>& arguments);
    static Result Parse(int argc, const char* const* argv);
};

} // namespace VantrelNetd
