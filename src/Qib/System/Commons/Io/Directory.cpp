// Directory operations. Every directory call of the platform layer is in this file.
#include "Qib/System/Commons/Io/Directory.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Io/Path.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace Qib::System::Commons::Io
{

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
    if (createParents)
    {
        // Only a missing parent is created; a parent that is a file makes mkdir below report the
        // requested path with "Not a directory".
        const String parent = Path::GetDirectoryName(path);
        struct stat parentStatus
        {
        };
        if (!parent.IsEmpty() && parent != path && ::stat(parent.CStr(), &parentStatus) != 0 && errno == ENOENT)
        {
            Create(parent, true);
        }
    }
    if (::mkdir(path.CStr(), 0777) != 0 && !(errno == EEXIST && Exists(path)))
    {
        throw Qib::Exception("Cannot create directory '{0}': {1}", path, std::strerror(errno));
    }
}

} // namespace Qib::System::Commons::Io
