// Directory operations. Every directory call of the platform layer is in this file.
#include "Qib/System/Commons/Io/Directory.hpp"

#include "Qib/Exception.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace Qib::System::Commons::Io
{

namespace
{

bool IsMissing(const char* path)
{
    struct stat status
    {
    };
    return ::stat(path, &status) != 0 && errno == ENOENT;
}

void MakeDirectory(const char* path)
{
    if (::mkdir(path, 0777) != 0 && !(errno == EEXIST && Directory::Exists(path)))
    {
        throw Qib::Exception("Cannot create directory '{0}': {1}", String(path), std::strerror(errno));
    }
}

// Creates the missing ancestors of `text`, outermost first, without recursion: a client may ask for
// a path of some two thousand levels. The ancestors are prefixes of `text`, cut in place.
void CreateMissingParents(std::string& text)
{
    std::vector<std::size_t> missing;
    for (std::size_t end = text.size(); end > 1;)
    {
        const std::size_t separator = text.rfind('/', end - 1);
        if (separator == std::string::npos || separator == 0)
        {
            break;
        }
        end = separator;
        text[end] = '\0';
        const bool absent = IsMissing(text.c_str());
        text[end] = '/';
        if (!absent)
        {
            // An existing parent, or one that is a file: then mkdir reports the requested path.
            break;
        }
        missing.push_back(end);
    }
    for (auto length = missing.rbegin(); length != missing.rend(); ++length)
    {
        text[*length] = '\0';
        MakeDirectory(text.c_str());
        text[*length] = '/';
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
    std::string text = path.GetStdString();
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
