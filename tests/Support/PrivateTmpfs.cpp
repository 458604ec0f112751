#include "PrivateTmpfs.hpp"

#include "ProcessStatus.hpp"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

namespace VantrelTest
{

std::string MountPrivateTmpfs(const std::string& path, const std::function<void()>& fillThenMakeReadOnly)
{
    if (CountThreads() != 1)
    {
        return "threads started before the mount would not see it";
    }
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    {
        return std::string("private mount namespace: ") + std::strerror(errno);
    }
    if (::mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k") != 0)
    {
        return std::string("mount tmpfs: ") + std::strerror(errno);
    }
    if (fillThenMakeReadOnly)
    {
        fillThenMakeReadOnly();
        if (::mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        {
            return std::string("remount read-only: ") + std::strerror(errno);
        }
    }
    return std::string();
}

} // namespace VantrelTest
