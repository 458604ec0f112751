// Walks the files below some folders in bounded steps, without recursion and without following links.
#include "FolderWalk.hpp"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>

namespace VantrelNetd
{

struct FolderWalk::OpenFolder
{
    std::string Path;
    DIR* Stream = nullptr;

    ~OpenFolder()
    {
        if (Stream != nullptr)
        {
            ::closedir(Stream);
        }
    }
};

FolderWalk::FolderWalk(std::vector<std::string> folders) : pending(std::move(folders))
{
    std::reverse(pending.begin(), pending.end());
}

FolderWalk::~FolderWalk() = default;

bool FolderWalk::Step(std::size_t limit, const std::function<void(const File&)>& visit)
{
    for (std::size_t seen = 0; seen < limit;)
    {
        if (!current)
        {
            if (pending.empty())
            {
                return false;
            }
            current = std::make_unique<OpenFolder>();
            current->Path = std::move(pending.back());
            pending.pop_back();
            const int descriptor = ::open(current->Path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            current->Stream = descriptor >= 0 ? ::fdopendir(descriptor) : nullptr;
            if (current->Stream == nullptr)
            {
                current.reset();
                continue; // gone or unreadable: nothing to do there
            }
        }
        const dirent* entry = ::readdir(current->Stream);
        if (entry == nullptr)
        {
            current.reset();
            continue;
        }
        ++seen;
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
        {
            continue;
        }
        struct stat status{};
        const int folder = ::dirfd(current->Stream);
        if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        {
            continue;
        }
        const std::string path = current->Path + (current->Path == "/" ? "" : "/") + name;
        if (S_ISDIR(status.st_mode))
        {
            pending.push_back(path);
        }
        else if (S_ISREG(status.st_mode))
        {
            visit(File{path, folder, name.c_str(), status});
        }
    }
    return current || !pending.empty();
}

} // namespace VantrelNetd
