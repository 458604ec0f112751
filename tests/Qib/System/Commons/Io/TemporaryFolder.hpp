// A private folder under /tmp for file tests, removed with its contents at the end.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace VantrelTest
{

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qib-io-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            ADD_FAILURE() << "cannot create a temporary folder";
        }
        path = pattern;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return path + "/" + name; }
    const std::string& Path() const { return path; }

    static void Write(const std::string& file, const std::string& content)
    {
        std::ofstream(file, std::ios::binary) << content;
    }
    static std::string Read(const std::string& file)
    {
        std::string content;
        if (FILE* stream = std::fopen(file.c_str(), "rb"))
        {
            char buffer[256];
            std::size_t count = 0;
            while ((count = std::fread(buffer, 1, sizeof(buffer), stream)) > 0)
            {
                content.append(buffer, count);
            }
            std::fclose(stream);
        }
        return content;
    }

private:
    std::string path;
};

} // namespace VantrelTest
