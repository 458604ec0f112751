// Folders the daemon keeps open so that it still reaches its config and log files once confined.
#include "KeptFolders.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
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

std::string KeptFolders::Replace(const std::string& file, const std::string& text)
{
    const fs::path path(Normal(file));
    const auto kept = Kept().find(path.parent_path().string());
    const int folder = kept == Kept().end() ? AT_FDCWD : kept->second;
    const std::string name = kept == Kept().end() ? path.string() : path.filename().string();
    const std::string temporary = kept == Kept().end() ? (path.parent_path() / ("." + path.filename().string() + ".new")).string()
                                                       : "." + name + ".new";
    const int descriptor = ::openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0)
    {
        return std::strerror(errno);
    }
    std::size_t written = 0;
    ssize_t count = 0;
    while (written < text.size() && (count = ::write(descriptor, text.data() + written, text.size() - written)) > 0)
    {
        written += static_cast<std::size_t>(count);
    }
    const int error = written < text.size() ? errno : ::fsync(descriptor) != 0 ? errno : 0;
    ::close(descriptor);
    if (error != 0 || ::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0)
    {
        const std::string reason = std::strerror(error != 0 ? error : errno);
        ::unlinkat(folder, temporary.c_str(), 0);
        return reason;
    }
    return "";
}

} // namespace VantrelNetd
