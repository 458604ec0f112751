// A second network namespace joined to the test's own by a veth pair, for traffic between the two.
#pragma once

#include <string>

namespace VantrelTest
{

/// Creates a named network namespace ("vantrel-<tag>-<pid>") and a veth pair: `localDevice` with
/// `localCidr` in the calling process's namespace, `peerDevice` with `peerCidr` (and `peerMac` when
/// not empty) in the new one; both ends and the peer's loopback up. Removes the namespace when
/// destroyed, which also removes the pair. Needs root inside a private network namespace.
class PeerNamespace
{
public:
    PeerNamespace(const std::string& tag, const std::string& localDevice, const std::string& localCidr,
                  const std::string& peerDevice, const std::string& peerCidr, const std::string& peerMac = "");
    ~PeerNamespace();
    PeerNamespace(const PeerNamespace&) = delete;
    PeerNamespace& operator=(const PeerNamespace&) = delete;

    /// Empty when everything was set up; otherwise the command that failed.
    const std::string& Error() const { return error; }
    const std::string& Name() const { return name; }

    /// Runs a shell command line inside the peer namespace; its exit status.
    int Run(const std::string& commandLine) const;
    /// Runs a shell command line inside the peer namespace; its standard output and standard error.
    std::string Output(const std::string& commandLine) const;

    /// Calls `body` on a thread that has entered the peer namespace (sockets it creates stay there);
    /// false when the namespace could not be entered.
    template <typename Body>
    bool Within(Body&& body) const;

private:
    bool Enter() const;
    void Step(const std::string& commandLine);

    std::string name;
    std::string error;
    bool created = false;
};

} // namespace VantrelTest

#include <thread>

template <typename Body>
bool VantrelTest::PeerNamespace::Within(Body&& body) const
{
    bool entered = false;
    std::thread worker([&] {
        entered = Enter();
        if (entered)
        {
            body();
        }
    });
    worker.join();
    return entered;
}
