// Removes the ".part" files of uploads that failed or were abandoned.
#include "PartFileSweeper.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace VantrelNetd
{

namespace
{

constexpr const char* PartSuffix = ".part";

bool IsPartFile(const std::string& name)
{
    const std::size_t length = std::strlen(PartSuffix);
    return name.size() > length && name.compare(name.size() - length, length, PartSuffix) == 0;
}

} // namespace

PartFileSweeper::PartFileSweeper(const TftpSection& tftp) : nextWalk(std::chrono::steady_clock::now())
{
    if (!tftp.Enabled || !tftp.Write)
    {
        return;
    }
    for (const HomePathEntry& home : tftp.HomePaths)
    {
        homes.push_back(home.Path);
    }
    // The server reads a time-out of 0 as 10 seconds.
    const long timeout = tftp.Timeout == 0 ? 10 : tftp.Timeout;
    age = std::chrono::seconds(timeout * (tftp.Retries + 1L)) + Margin;
}

PartFileSweeper::~PartFileSweeper() = default;

void PartFileSweeper::SweepAll()
{
    walk = std::make_unique<FolderWalk>(homes);
    while (walk->Step(EntriesPerPass, [this](const FolderWalk::File& file) { Visit(file); }))
    {
    }
    walk.reset();
    nextWalk = std::chrono::steady_clock::now() + WalkInterval;
}

void PartFileSweeper::Pass()
{
    if (homes.empty())
    {
        return;
    }
    if (!walk)
    {
        if (std::chrono::steady_clock::now() < nextWalk)
        {
            return;
        }
        walk = std::make_unique<FolderWalk>(homes);
    }
    if (!walk->Step(EntriesPerPass, [this](const FolderWalk::File& file) { Visit(file); }))
    {
        walk.reset();
        nextWalk = std::chrono::steady_clock::now() + WalkInterval;
    }
}

void PartFileSweeper::Visit(const FolderWalk::File& file)
{
    if (!IsPartFile(file.Name))
    {
        return;
    }
    const long idle = static_cast<long>(std::time(nullptr) - file.Status.st_mtime);
    if (idle <= age.count())
    {
        return;
    }
    if (::unlinkat(file.Folder, file.Name, 0) == 0)
    {
        log.Info("Removed {0}: no upload has written it for {1} s (the limit is {2} s)", file.Path, idle, age.count());
    }
    else if (errno != ENOENT && unremovable.insert(file.Path).second)
    {
        log.Warning("Cannot remove the stale {0}: {1}", file.Path, std::strerror(errno));
    }
}

} // namespace VantrelNetd
