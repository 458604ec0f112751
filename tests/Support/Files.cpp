#include "Files.hpp"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace VantrelTest
{

std::string PatternBytes(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    std::uint32_t state = 2463534242U ^ (seed * 2654435761U);
    for (char& byte : bytes)
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state & 0xFF);
    }
    return bytes;
}

void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out)
    {
        throw std::runtime_error("cannot write " + path);
    }
}

std::optional<std::string> ReadFile(const std::string& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
    {
        return std::nullopt;
    }
    std::string contents;
    char buffer[4096];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
    {
        contents.append(buffer, count);
    }
    std::fclose(file);
    return contents;
}

bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

} // namespace VantrelTest
