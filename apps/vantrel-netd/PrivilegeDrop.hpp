// Switches the daemon to an unprivileged user before its servers start.
#pragma once

#include <sys/types.h>

#include <string>

namespace VantrelNetd
{

/// The user the daemon runs as after start-up.
class PrivilegeDrop
{
public:
    struct Account
    {
        std::string Name;
        uid_t Uid = 0;
        gid_t Gid = 0;
    };

    /// Looks a user up by name or number. Throws DaemonExit (64) when there is no such user.
    static Account Lookup(const std::string& user);

    /// Switches the whole process to the account (groups, group, user) and keeps only the
    /// capability to bind ports below 1024, so that a reload can bind the servers' ports again.
    /// Throws DaemonExit (77) when the process may not switch. Call from the main thread; server
    /// threads started afterwards inherit the remaining capability.
    static void To(const Account& account);
};

} // namespace VantrelNetd
