// Puts a test process into a private network namespace with loopback up.
#include "Support/NetworkNamespace.hpp"

#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace VantrelTest
{

namespace
{

std::string& Reason()
{
    static std::string reason = "the test main did not try to enter one";
    return reason;
}

} // namespace

void EnterPrivateNetworkNamespace()
{
    if (::geteuid() != 0)
    {
        Reason() = "the process is not root";
        return;
    }
    if (::unshare(CLONE_NEWNET) != 0)
    {
        Reason() = std::string("unshare(CLONE_NEWNET) failed: ") + std::strerror(errno);
        return;
    }
    if (Shell("ip link set lo up") != 0)
    {
        Reason() = "cannot bring loopback up with ip(8)";
        return;
    }
    Reason().clear();
}

const std::string& NetworkNamespaceUnavailableReason()
{
    return Reason();
}

int Shell(const std::string& commandLine)
{
    const int status = std::system(commandLine.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ShellOutput(const std::string& commandLine)
{
    std::string output;
    FILE* pipe = ::popen(commandLine.c_str(), "r");
    if (pipe == nullptr)
    {
        return output;
    }
    std::array<char, 4096> buffer{};
    std::size_t count = 0;
    while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
    {
        output.append(buffer.data(), count);
    }
    ::pclose(pipe);
    return output;
}

} // namespace VantrelTest
