// Directory operations. Every directory call of the platform layer is in this file.
#include "Qib/System/Commons/Io/Directory.hpp"

#include "Qib/Exception.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

namespace Qib::System::Commons::Io
{

namespace
{

void MakeDirectory(const char* path)
{
    if (::mkdir(path, 0777) != 0 && !(errno == EEXIST && Directory::Exists(path)))
    {
        throw Qib::Exception("Cannot create directory '{0}': {1}", String(path), std::strerror(errno));
    }
}

// Opens the folder `name` below `folder`, creating it when it is missing; -1 when it cannot be
// opened for another reason (a file on the way: mkdir of the whole path then names it).
int OpenOrCreate(int folder, const std::string& name, const std::string& prefix)
{
    constexpr int Flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    int opened = ::openat(folder, name.c_str(), Flags);
    if (opened < 0 && errno == ENOENT)
    {
        if (::mkdirat(folder, name.c_str(), 0777) != 0 && errno != EEXIST)
        {
            throw Qib::Exception("Cannot create directory '{0}': {1}", String(prefix), std::strerror(errno));
        }
        opened = ::openat(folder, name.c_str(), Flags);
    }
    return opened;
}

// Walks down `text` from its root, one folder open at a time, and creates what is missing: no
// recursion and no path resolved twice, so a path of two thousand levels costs two thousand steps.
void CreateMissingParents(const std::string& text)
{
    int folder = ::open(text.front() == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    const std::size_t last = text.find_last_not_of('/');
    const std::size_t parentEnd = last == std::string::npos ? 0 : text.rfind('/', last);
    std::size_t start = text.find_first_not_of('/');
    while (folder >= 0 && parentEnd != std::string::npos && start < parentEnd)
    {
        const std::size_t end = std::min(text.find('/', start), parentEnd);
        int next = -1;
        try
        {
            next = OpenOrCreate(folder, text.substr(start, end - start), text.substr(0, end));
        }
        catch (...)
        {
            ::close(folder);
            throw;
        }
        ::close(folder);
        folder = next;
        start = text.find_first_not_of('/', end);
    }
    if (folder >= 0)
    {
        ::close(folder);
    }
}

} // namespace

bool Directory::Exists(const String& path)
{
    struct stat status
    {
    };
    return ::stat(path.CStr(), &status) == 0 && S_ISDIR(status.st_mode);
}

void Directory::Create(const String& path, bool createParents)
{
    if (path.IsEmpty() || Exists(path))
    {
        return;
    }
    const std::string& text = path.GetStdString();
    // The system resolves no longer path; refusing it first bounds the work a request can cause.
    if (text.size() >= PATH_MAX)
    {
        throw Qib::Exception("Cannot create directory '{0}': {1}", path, std::strerror(ENAMETOOLONG));
    }
    if (createParents)
    {
        CreateMissingParents(text);
    }
    MakeDirectory(text.c_str());
}

} // namespace Qib::System::Commons::Io
