// Switches the daemon to an unprivileged user before its servers start.
#include "PrivilegeDrop.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace VantrelNetd
{

namespace
{

[[noreturn]] void Refuse(const std::string& what, int error)
{
    throw DaemonExit(NoPrivilege, fmt::format("cannot drop privileges: {}: {}", what, std::strerror(error)));
}

} // namespace

PrivilegeDrop::Account PrivilegeDrop::Lookup(const std::string& user)
{
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    int error = ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (found == nullptr && !user.empty() && user.find_first_not_of("0123456789") == std::string::npos)
    {
        error = ::getpwuid_r(static_cast<uid_t>(std::strtoul(user.c_str(), nullptr, 10)), &entry, buffer.data(),
                             buffer.size(), &found);
    }
    if (found == nullptr)
    {
        throw DaemonExit(BadCommandLine,
                         fmt::format("--user: no such user \"{}\"{}", user,
                                     error != 0 ? fmt::format(" ({})", std::strerror(error)) : std::string()));
    }
    return Account{found->pw_name, found->pw_uid, found->pw_gid};
}

void PrivilegeDrop::To(const Account& account)
{
    if (::geteuid() == account.Uid && ::getegid() == account.Gid)
    {
        return;
    }
    if (::prctl(PR_SET_KEEPCAPS, 1L, 0L, 0L, 0L) != 0)
    {
        Refuse("prctl(PR_SET_KEEPCAPS)", errno);
    }
    // glibc applies the set*id calls to every thread of the process.
    const gid_t groups[] = {account.Gid};
    if (::setgroups(1, groups) != 0)
    {
        Refuse(fmt::format("setgroups({})", account.Gid), errno);
    }
    if (::setgid(account.Gid) != 0)
    {
        Refuse(fmt::format("setgid({})", account.Gid), errno);
    }
    if (::setuid(account.Uid) != 0)
    {
        Refuse(fmt::format("setuid({}) for user {}", account.Uid, account.Name), errno);
    }
    ::prctl(PR_SET_KEEPCAPS, 0L, 0L, 0L, 0L);

    __user_cap_header_struct header{};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    header.pid = 0;
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (account.Uid != 0)
    {
        data[CAP_TO_INDEX(CAP_NET_BIND_SERVICE)].permitted = CAP_TO_MASK(CAP_NET_BIND_SERVICE);
        data[CAP_TO_INDEX(CAP_NET_BIND_SERVICE)].effective = CAP_TO_MASK(CAP_NET_BIND_SERVICE);
    }
    if (::syscall(SYS_capset, &header, data) != 0)
    {
        Refuse("capset", errno);
    }
    // Make sure the way back is closed.
    if (account.Uid != 0 && ::setuid(0) == 0)
    {
        throw DaemonExit(NoPrivilege, "cannot drop privileges: the process could switch back to root");
    }
}

} // namespace VantrelNetd
