// Folders the daemon keeps open so that it still reaches its config and log files once confined.
#include "KeptFolders.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

namespace VantrelNetd
{

namespace
{

namespace fs = std::filesystem;

// Folder path -> descriptor; held until the process ends.
std::map<std::string, int>& Kept()
{
    static std::map<std::string, int> kept;
    return kept;
}

std::string Normal(const std::string& path)
{
    std::string normal = fs::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/')
    {
        normal.pop_back();
    }
    return normal;
}

} // namespace

void KeptFolders::Keep(const std::string& folder)
{
    const std::string name = Normal(folder);
    if (Kept().count(name) != 0)
    {
        return;
    }
    const int descriptor = ::open(name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        Kept().emplace(name, descriptor);
    }
}

bool KeptFolders::IsFolder(const std::string& folder)
{
    struct stat status{};
    return Kept().count(Normal(folder)) != 0 || (::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode));
}

int KeptFolders::Open(const std::string& file, int flags, mode_t mode)
{
    const fs::path path(Normal(file));
    const auto kept = Kept().find(path.parent_path().string());
    if (kept == Kept().end() || !path.has_filename())
    {
        return ::open(path.c_str(), flags | O_CLOEXEC, mode);
    }
    return ::openat(kept->second, path.filename().c_str(), flags | O_CLOEXEC, mode);
}

} // namespace VantrelNetd
