#include "Files.hpp"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
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
    if (!out.write(contents.data(), static_cast<std::streamsize>(contents.size())))
    {
        throw std::runtime_error("cannot write " + path);
    }
}

std::optional<std::string> ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        return std::nullopt;
    }
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

} // namespace VantrelTest
