// Raw TFTP datagrams built by hand, independent of the codec under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace VantrelTest
{

std::string Request(std::uint16_t opCode, const std::string& name, const std::string& mode = "octet");
std::string Ack(std::uint16_t block);
std::string Data(std::uint16_t block, const std::string& payload);
std::string Error(std::uint16_t code, const std::string& message);
/// The big-endian 16-bit word at `offset`.
std::uint16_t WordAt(const std::string& bytes, std::size_t offset);

} // namespace VantrelTest
