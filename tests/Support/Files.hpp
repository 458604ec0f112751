// Test file contents: written, read back and generated.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace VantrelTest
{

/// `size` bytes of a pattern that differs per seed and has no period of 512.
std::string PatternBytes(std::size_t size, unsigned seed = 1);
void WriteFile(const std::string& path, const std::string& contents);
/// The file's contents, or nothing when it cannot be read.
std::optional<std::string> ReadFile(const std::string& path);
bool Exists(const std::string& path);

} // namespace VantrelTest
