// A second network namespace joined to the test's own by a veth pair.
#include "PeerNamespace.hpp"

#include "Support/NetworkNamespace.hpp"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace VantrelTest
{

PeerNamespace::PeerNamespace(const std::string& tag, const std::string& localDevice, const std::string& localCidr,
                             const std::string& peerDevice, const std::string& peerCidr, const std::string& peerMac)
    : name("vantrel-" + tag + "-" + std::to_string(::getpid()))
{
    Step("ip netns add " + name);
    if (!error.empty())
    {
        return;
    }
    created = true;
    Step("ip link add " + localDevice + " type veth peer name " + peerDevice + " netns " + name);
    Step("ip addr add " + localCidr + " dev " + localDevice);
    Step("ip link set " + localDevice + " up");
    if (!peerMac.empty())
    {
        Step("ip -n " + name + " link set " + peerDevice + " address " + peerMac);
    }
    Step("ip -n " + name + " addr add " + peerCidr + " dev " + peerDevice);
    Step("ip -n " + name + " link set " + peerDevice + " up");
    Step("ip -n " + name + " link set lo up");
}

PeerNamespace::~PeerNamespace()
{
    if (created)
    {
        Shell("ip netns del " + name);
    }
}

void PeerNamespace::Step(const std::string& commandLine)
{
    if (error.empty() && Shell(commandLine + " 2>&1") != 0)
    {
        error = commandLine;
    }
}

int PeerNamespace::Run(const std::string& commandLine) const
{
    return Shell("ip netns exec " + name + " sh -c '" + commandLine + "'");
}

std::string PeerNamespace::Output(const std::string& commandLine) const
{
    return ShellOutput("ip netns exec " + name + " sh -c '" + commandLine + "' 2>&1");
}

bool PeerNamespace::Enter() const
{
    const int descriptor = ::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return false;
    }
    const bool entered = ::setns(descriptor, CLONE_NEWNET) == 0;
    ::close(descriptor);
    return entered;
}

} // namespace VantrelTest
