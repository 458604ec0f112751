// Puts a test process into a private network namespace with loopback up, and lets tests skip when
// that is not possible.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace VantrelTest
{

/// Unshares the network namespace and brings loopback up. Call once, before any thread starts.
void EnterPrivateNetworkNamespace();

/// Empty when the process runs in its own network namespace; otherwise why it does not.
const std::string& NetworkNamespaceUnavailableReason();

/// Runs a shell command line; its exit status.
int Shell(const std::string& commandLine);

/// Runs a shell command line; its standard output.
std::string ShellOutput(const std::string& commandLine);

} // namespace VantrelTest

/// Skips the current test, with the reason, unless it runs in a private network namespace.
#define VANTREL_REQUIRE_NETWORK_NAMESPACE()                                                                 \
    do                                                                                                      \
    {                                                                                                       \
        if (!::VantrelTest::NetworkNamespaceUnavailableReason().empty())                                    \
        {                                                                                                   \
            GTEST_SKIP() << "needs a private network namespace: "                                           \
                         << ::VantrelTest::NetworkNamespaceUnavailableReason();                             \
        }                                                                                                   \
    } while (false)
