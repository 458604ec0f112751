#include "TftpDatagrams.hpp"

namespace VantrelTest
{

namespace
{

std::string Word(std::uint16_t value)
{
    return std::string{static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

} // namespace

std::uint16_t WordAt(const std::string& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>((static_cast<unsigned char>(bytes[offset]) << 8) |
                                      static_cast<unsigned char>(bytes[offset + 1]));
}

std::string Request(std::uint16_t opCode, const std::string& name, const std::string& mode)
{
    return Word(opCode) + name + std::string(1, '\0') + mode + std::string(1, '\0');
}

std::string Ack(std::uint16_t block)
{
    return Word(4) + Word(block);
}

std::string Data(std::uint16_t block, const std::string& payload)
{
    return Word(3) + Word(block) + payload;
}

std::string Error(std::uint16_t code, const std::string& message)
{
    return Word(5) + Word(code) + message + std::string(1, '\0');
}

} // namespace VantrelTest
