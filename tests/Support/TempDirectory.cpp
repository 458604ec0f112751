#include "TempDirectory.hpp"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace VantrelTest
{

TempDirectory::TempDirectory()
{
    char pattern[] = "/tmp/vantrel-test-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
    {
        throw std::runtime_error("mkdtemp failed");
    }
    path = pattern;
}

TempDirectory::~TempDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

} // namespace VantrelTest
