// Runs a shell command line and reports its exit status.
#include "VantrelBase/Core/Os/Command.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

extern char** environ;

namespace VantrelBase::Core::Os
{

int Command::Execute(const std::string& commandLine)
{
    const char* shell = "/bin/sh";
    char* const arguments[] = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                               const_cast<char*>(commandLine.c_str()), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, shell, nullptr, nullptr, arguments, environ) != 0)
    {
        return -1;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
    {
        if (errno != EINTR)
        {
            return -1;
        }
    }
    if (WIFEXITED(status))
    {
        return WEXITSTATUS(status);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

} // namespace VantrelBase::Core::Os
