// File operations. Every file-system call of the platform layer's file type is in this file.
#include "Qib/System/Commons/Io/File.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Io/Directory.hpp"
#include "Qib/System/Commons/Io/Path.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Qib::System::Commons::Io
{

namespace
{

// Any entry but a directory: what a move without overwrite must not replace.
bool IsNonDirectory(const String& path)
{
    struct stat status
    {
    };
    return ::stat(path.CStr(), &status) == 0 && !S_ISDIR(status.st_mode);
}

} // namespace

bool File::Exists(const String& path)
{
    struct stat status
    {
    };
    return ::stat(path.CStr(), &status) == 0 && S_ISREG(status.st_mode);
}

void File::Delete(const String& path)
{
    if (::unlink(path.CStr()) != 0)
    {
        throw Qib::Exception("Cannot delete file '{0}': {1}", path, std::strerror(errno));
    }
}

void File::Move(const String& source, const String& destination, bool overwrite, bool createDirectory)
{
    if (!overwrite && IsNonDirectory(destination))
    {
        throw Qib::Exception("Cannot move file '{0}' to '{1}': {2}", source, destination, std::strerror(EEXIST));
    }
    const String folder = Path::GetDirectoryName(destination);
    if (createDirectory && !folder.IsEmpty() && !Directory::Exists(folder))
    {
        Directory::Create(folder, true);
    }
    if (std::rename(source.CStr(), destination.CStr()) != 0)
    {
        throw Qib::Exception("Cannot move file '{0}' to '{1}': {2}", source, destination, std::strerror(errno));
    }
}

} // namespace Qib::System::Commons::Io
