// Confines the daemon's view of the file system to its home folders before any thread starts.
#include "Confinement.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>

namespace VantrelNetd
{

namespace
{

namespace fs = std::filesystem;

// Where the new root is mounted while it is built: inside the private namespace only, and every
// source is opened before it is hidden.
constexpr const char* BuildPoint = "/tmp";

std::optional<Confinement::Plan> active;

// Closes a descriptor at the end of a scope.
class Descriptor
{
public:
    explicit Descriptor(int value) : value(value) {}
    ~Descriptor()
    {
        if (value >= 0)
        {
            ::close(value);
        }
    }
    Descriptor(Descriptor&& other) noexcept : value(other.value) { other.value = -1; }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(value, other.value);
        return *this;
    }
    int Get() const { return value; }
    std::string MagicPath() const { return "/proc/self/fd/" + std::to_string(value); }

private:
    int value;
};

[[noreturn]] void Fail(const std::string& what, int error)
{
    throw DaemonExit(RuntimeFailure, fmt::format("cannot confine the file system view: {}: {} (daemon.confine = "
                                                 "false runs without)",
                                                 what, std::strerror(error)));
}

std::size_t CountThreads()
{
    std::size_t count = 0;
    if (DIR* tasks = ::opendir("/proc/self/task"))
    {
        while (const dirent* entry = ::readdir(tasks))
        {
            count += entry->d_name[0] != '.' ? 1 : 0;
        }
        ::closedir(tasks);
    }
    return count;
}

#if defined(__has_feature)
#define VANTREL_NETD_HAS_FEATURE(feature) __has_feature(feature)
#else
#define VANTREL_NETD_HAS_FEATURE(feature) 0
#endif

// The thread sanitizer's runtime may keep a thread of its own; it never touches files.
#if defined(__SANITIZE_THREAD__) || VANTREL_NETD_HAS_FEATURE(thread_sanitizer)
constexpr std::size_t RuntimeThreads = 1;
#else
constexpr std::size_t RuntimeThreads = 0;
#endif

// The leak checker of the address sanitizer lists the process's threads in /proc at exit.
#if defined(__SANITIZE_ADDRESS__) || VANTREL_NETD_HAS_FEATURE(address_sanitizer)
constexpr bool RuntimeListsThreads = true;
#else
constexpr bool RuntimeListsThreads = false;
#endif

void RequireOneThread()
{
    const std::size_t threads = CountThreads();
    if (threads > 1 + RuntimeThreads)
    {
        throw DaemonExit(RuntimeFailure,
                         fmt::format("cannot confine the file system view: the process has {} threads; it must be "
                                     "built while the main thread is the only one",
                                     threads));
    }
}

// Creates `path` (absolute) below the folder `root`, folder by folder; the last one as a folder or,
// for a kept file, as an empty file. Returns the last one, opened.
Descriptor MakePath(int root, const std::string& path, bool folder)
{
    Descriptor current(::dup(root));
    const fs::path relative = fs::path(path).relative_path();
    for (auto part = relative.begin(); part != relative.end(); ++part)
    {
        const bool last = std::next(part) == relative.end();
        const char* name = part->c_str();
        if (!last || folder)
        {
            if (::mkdirat(current.Get(), name, 0755) != 0 && errno != EEXIST)
            {
                Fail(fmt::format("mkdir {}", path), errno);
            }
        }
        else
        {
            const int created = ::openat(current.Get(), name, O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            if (created < 0)
            {
                Fail(fmt::format("create {}", path), errno);
            }
            ::close(created);
        }
        Descriptor next(::openat(current.Get(), name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (next.Get() < 0)
        {
            Fail(fmt::format("open {}", path), errno);
        }
        current = std::move(next);
    }
    return current;
}

void Mount(const char* source, const std::string& target, const char* type, unsigned long flags, const char* data,
           const std::string& what)
{
    if (::mount(source, target.c_str(), type, flags, data) != 0)
    {
        Fail(what, errno);
    }
}

// Mounts `source` (opened) at its own path inside the root being built.
void BindAtOwnPath(int root, const std::string& path, const Descriptor& source, bool folder, bool writable)
{
    const Descriptor target = MakePath(root, path, folder);
    Mount(source.MagicPath().c_str(), target.MagicPath(), nullptr, MS_BIND | MS_REC, nullptr, "bind " + path);
    // The remount acts on the mount now at the target's path, reached through the new root.
    const std::string mounted = std::string(BuildPoint) + path;
    Mount(nullptr, mounted, nullptr, MS_REMOUNT | MS_BIND | MS_NOSUID | MS_NODEV | (writable ? 0 : MS_RDONLY), nullptr,
          "remount " + path);
}

std::vector<std::string> SortedUnique(std::vector<std::string> folders)
{
    std::sort(folders.begin(), folders.end());
    folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
    return folders;
}

} // namespace

Confinement::Plan Confinement::For(const Config& config, const std::vector<std::string>& keptPaths)
{
    Plan plan;
    if (config.Tftp.Enabled)
    {
        for (const HomePathEntry& home : config.Tftp.HomePaths)
        {
            plan.Folders.push_back(home.Path);
        }
        plan.Writable = config.Tftp.Write;
    }
    plan.Folders = SortedUnique(plan.Folders);
    plan.KeptPaths = keptPaths;
    return plan;
}

std::vector<std::string> Confinement::DefaultKeptPaths()
{
    std::vector<std::string> paths{"/run/systemd/journal/socket", "/proc/net/arp"};
    // An abstract socket ("@...") lives in the network namespace, not in the file system.
    const char* notify = std::getenv("NOTIFY_SOCKET");
    if (notify != nullptr && notify[0] == '/')
    {
        paths.emplace_back(notify);
    }
    if (RuntimeListsThreads)
    {
        paths.push_back("/proc/" + std::to_string(::getpid()) + "/task");
    }
    return paths;
}

std::string Confinement::Enter(const Plan& plan)
{
    RequireOneThread();
    if (::unshare(CLONE_NEWNS) != 0)
    {
        return errno == EPERM ? "no privilege to create a mount namespace (needs root or CAP_SYS_ADMIN)"
                              : fmt::format("no mount namespace: {}", std::strerror(errno));
    }
    Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr, "make the mounts private");

    // Every source is opened before the new root hides anything.
    std::vector<Descriptor> folders;
    for (const std::string& folder : plan.Folders)
    {
        folders.emplace_back(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (folders.back().Get() < 0)
        {
            Fail("open " + folder, errno);
        }
    }
    std::vector<std::pair<std::string, Descriptor>> kept;
    for (const std::string& path : plan.KeptPaths)
    {
        Descriptor source(::open(path.c_str(), O_PATH | O_CLOEXEC));
        if (source.Get() >= 0)
        {
            kept.emplace_back(path, std::move(source));
        }
    }

    Mount("vantrel-netd", BuildPoint, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755,size=1m",
          "mount the new root");
    const Descriptor root(::open(BuildPoint, O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (std::size_t index = 0; index < folders.size(); ++index)
    {
        BindAtOwnPath(root.Get(), plan.Folders[index], folders[index], true, plan.Writable);
    }
    for (const auto& [path, source] : kept)
    {
        struct stat status{};
        const bool folder = ::fstat(source.Get(), &status) == 0 && S_ISDIR(status.st_mode);
        BindAtOwnPath(root.Get(), path, source, folder, false);
    }

    if (::fchdir(root.Get()) != 0)
    {
        Fail("enter the new root", errno);
    }
    // The old root lands on top of the new one and is detached from there.
    if (::syscall(SYS_pivot_root, ".", ".") != 0)
    {
        Fail("pivot_root", errno);
    }
    if (::umount2(".", MNT_DETACH) != 0)
    {
        Fail("detach the old root", errno);
    }
    if (::chdir("/") != 0)
    {
        Fail("chdir /", errno);
    }
    Mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr,
          "make the root read-only");
    active = plan;
    return {};
}

bool Confinement::IsActive()
{
    return active.has_value();
}

std::string Confinement::RefuseChange(const Plan& next)
{
    if (!active)
    {
        return {};
    }
    if (next.Folders != active->Folders)
    {
        std::vector<std::string> added;
        std::vector<std::string> removed;
        std::set_difference(next.Folders.begin(), next.Folders.end(), active->Folders.begin(), active->Folders.end(),
                            std::back_inserter(added));
        std::set_difference(active->Folders.begin(), active->Folders.end(), next.Folders.begin(), next.Folders.end(),
                            std::back_inserter(removed));
        return fmt::format("the home folders changed (added: {}; removed: {}) and the confined view holds those of "
                           "the start: restart vantrel-netd to serve the new ones",
                           added.empty() ? "none" : fmt::format("{}", fmt::join(added, ", ")),
                           removed.empty() ? "none" : fmt::format("{}", fmt::join(removed, ", ")));
    }
    if (next.Writable && !active->Writable)
    {
        return "tftp.write was turned on, and the confined view holds the home folders read-only: restart "
               "vantrel-netd to accept uploads";
    }
    return {};
}

} // namespace VantrelNetd
