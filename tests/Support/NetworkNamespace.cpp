// Puts a test process into a private network namespace with loopback up.
#include "Support/NetworkNamespace.hpp"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
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

bool BringLoopbackUp()
{
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
    {
        return false;
    }
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ::ioctl(descriptor, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = up && ::ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
    ::close(descriptor);
    return up;
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
    if (!BringLoopbackUp())
    {
        Reason() = std::string("cannot bring loopback up: ") + std::strerror(errno);
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
