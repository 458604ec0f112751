// Joining and splitting of file-system paths.
#include "Qib/System/Commons/Io/Path.hpp"

namespace Qib::System::Commons::Io
{

String Path::Combine(const String& left, const String& right)
{
    const std::string& l = left.GetStdString();
    const std::string& r = right.GetStdString();
    if (l.empty())
    {
        return right;
    }
    if (r.empty())
    {
        return left;
    }
    const bool leftEndsWithSeparator = l.back() == '/';
    const bool rightStartsWithSeparator = r.front() == '/';
    if (leftEndsWithSeparator && rightStartsWithSeparator)
    {
        return String(l + r.substr(1));
    }
    if (leftEndsWithSeparator || rightStartsWithSeparator)
    {
        return String(l + r);
    }
    return String(l + "/" + r);
}

String Path::GetDirectoryName(const String& path)
{
    const std::string& p = path.GetStdString();
    const std::size_t lastSeparator = p.rfind('/');
    if (lastSeparator == std::string::npos)
    {
        return String();
    }
    if (lastSeparator == 0)
    {
        return String("/");
    }
    return String(p.substr(0, lastSeparator));
}

} // namespace Qib::System::Commons::Io
