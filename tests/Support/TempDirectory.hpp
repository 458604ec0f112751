// A private folder under /tmp for tests that touch files, removed with its contents at the end.
#pragma once

#include <string>

namespace VantrelTest
{

class TempDirectory
{
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string operator/(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

} // namespace VantrelTest
