// Walks the files below some folders in bounded steps, without recursion and without following links.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// A walk over the regular files below a set of folders. Symbolic links are never followed; folders
/// wait in a list instead of on the call stack, so any depth is walked with bounded stack. Main
/// thread only.
class FolderWalk
{
public:
    /// One regular file: its path, the descriptor of its folder (for *at calls) and its status.
    struct File
    {
        const std::string& Path;
        int Folder;
        const char* Name;
        const struct stat& Status;
    };

    explicit FolderWalk(std::vector<std::string> folders);
    ~FolderWalk();
    FolderWalk(const FolderWalk&) = delete;
    FolderWalk& operator=(const FolderWalk&) = delete;

    /// Looks at up to `limit` folder entries and calls `visit` for each regular file among them.
    /// False once the walk has seen everything.
    bool Step(std::size_t limit, const std::function<void(const File&)>& visit);

private:
    struct OpenFolder;

    std::vector<std::string> pending;
    std::unique_ptr<OpenFolder> current;
};

} // namespace VantrelNetd
