// The buffer of one TFTP datagram and the protocol's vocabulary tables.
#include "VantrelBase/Net/Tftp/Packet.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <cstring>
#include <limits>
#include <utility>

namespace VantrelBase::Net::Tftp
{

const std::map<ErrorCode, std::string> Packet::errorMessages = {
    {ErrorCode::NotDefined, "Not defined, see error message (if any)."},
    {ErrorCode::FileNotFound, "File not found."},
    {ErrorCode::AccessViolation, "Access violation."},
    {ErrorCode::DiskFull, "Disk full or allocation exceeded."},
    {ErrorCode::IllegalOperation, "Illegal operation."},
    {ErrorCode::UnknownTransferId, "Unknown transfer ID."},
    {ErrorCode::FileAlreadyExists, "File already exists."},
    {ErrorCode::NoSuchUser, "No such user."},
};

const std::map<TransferMode, std::string> Packet::transferModes = {
    {TransferMode::Undefined, "undefined"},
    {TransferMode::Octet, "octet"},
    {TransferMode::NetAscii, "ascii"},
    {TransferMode::Mail, "mail"},
};

namespace
{

// Mode words accepted in a request besides the default; every other word means octet.
const std::pair<const char*, TransferMode> acceptedModeWords[] = {
    {"ascii", TransferMode::NetAscii},
    {"netascii", TransferMode::NetAscii},
    {"mail", TransferMode::Mail},
};

// Offset of the first string of a request: behind the opcode.
constexpr std::size_t RequestStringOffset = 2;
// Offset of the block number of DATA, ACK and OACK and of the code of ERROR.
constexpr std::size_t SecondFieldOffset = 2;
// Opcode and block number in front of a DATA payload.
constexpr std::size_t DataHeaderLength = 4;

std::shared_ptr<Packet> CreateRequest(OpCode opCode, const std::string& path, TransferMode mode)
{
    const std::string word = Packet::GetTransferMode(mode);
    auto packet = std::make_shared<Packet>(path.size() + word.size() + 4);
    packet->Write(opCode);
    packet->Write(path);
    packet->Write(word);
    return packet;
}

} // namespace

Packet::Packet(std::size_t capacity) : data(new unsigned char[capacity + 1]), capacity(capacity), length(0)
{
    Clear();
}

Packet::Packet(const Packet& other)
    : data(new unsigned char[other.capacity + 1]()), capacity(other.capacity), length(other.length)
{
    // Deliberately shallow: only the first byte of the contents is taken over.
    data[0] = other.data[0];
}

Packet::~Packet()
{
    delete[] data;
}

void Packet::Clear()
{
    std::memset(data, 0, capacity + 1);
    length = 0;
}

unsigned char* Packet::GetData() const
{
    if (GetOpCode() == OpCode::Data)
    {
        return length >= DataHeaderLength ? data + DataHeaderLength : data;
    }
    return data + RequestStringOffset;
}

std::shared_ptr<Packet> Packet::Create(std::size_t capacity)
{
    return std::make_shared<Packet>(capacity);
}

std::shared_ptr<Packet> Packet::Create(const unsigned char* raw, std::size_t len)
{
    auto packet = std::make_shared<Packet>(len);
    if (len != 0)
    {
        std::memcpy(packet->data, raw, len);
    }
    packet->length = len;
    return packet;
}

std::shared_ptr<Packet> Packet::CreateAcknowledge(unsigned short block)
{
    auto packet = std::make_shared<Packet>(4);
    packet->Write(OpCode::Acknowledge);
    packet->Write(block);
    return packet;
}

std::shared_ptr<Packet> Packet::CreateData(unsigned short block, const char* bytes, std::size_t count)
{
    auto packet = std::make_shared<Packet>(count + DataHeaderLength);
    packet->Write(OpCode::Data);
    packet->Write(block);
    packet->Write(bytes, count);
    return packet;
}

std::shared_ptr<Packet> Packet::CreateError(unsigned short code, const std::string& message)
{
    auto packet = std::make_shared<Packet>(message.size() + 5);
    packet->Write(OpCode::Error);
    packet->Write(code);
    packet->Write(message);
    return packet;
}

std::shared_ptr<Packet> Packet::CreateError(ErrorCode code, const std::string& message)
{
    return CreateError(static_cast<unsigned short>(code), message);
}

std::shared_ptr<Packet> Packet::CreateError(ErrorCode code)
{
    const auto found = errorMessages.find(code);
    const std::string& message =
        found != errorMessages.end() ? found->second : errorMessages.at(ErrorCode::NotDefined);
    return CreateError(code, message);
}

std::shared_ptr<Packet> Packet::CreateReadRequest(const std::string& path, TransferMode mode)
{
    return CreateRequest(OpCode::ReadRequest, path, mode);
}

std::shared_ptr<Packet> Packet::CreateWriteRequest(const std::string& path, TransferMode mode)
{
    return CreateRequest(OpCode::WriteRequest, path, mode);
}

std::string Packet::GetTransferMode(TransferMode mode)
{
    const auto found = transferModes.find(mode);
    return found != transferModes.end() ? found->second : transferModes.at(TransferMode::Octet);
}

bool Packet::Write(const char* bytes, std::size_t count)
{
    // The fit test is bounded to what a signed 32-bit sum can express, so no sum can wrap.
    const std::uint64_t end = length + count;
    if (end < length || end > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()) ||
        end > capacity)
    {
        return false;
    }
    if (count != 0)
    {
        std::memcpy(data + length, bytes, count);
    }
    length = end;
    return true;
}

bool Packet::Write(const std::string& text)
{
    return Write(text.c_str(), text.size() + 1);
}

bool Packet::Write(unsigned char value)
{
    if (length >= capacity)
    {
        return false;
    }
    data[length++] = value;
    return true;
}

bool Packet::Write(unsigned short value)
{
    const char bytes[2] = {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
    return Write(bytes, sizeof(bytes));
}

bool Packet::Write(OpCode opCode)
{
    if (capacity < 2)
    {
        return false;
    }
    const auto value = static_cast<std::uint16_t>(opCode);
    data[0] = static_cast<unsigned char>(value >> 8);
    data[1] = static_cast<unsigned char>(value & 0xFF);
    if (length < 2)
    {
        length = 2;
    }
    return true;
}

bool Packet::SetOpCode(OpCode opCode)
{
    return Write(opCode);
}

std::size_t Packet::Read(std::size_t offset, std::string& out) const
{
    if (offset >= length)
    {
        return 0;
    }
    // The byte behind the capacity is always zero, so the string ends inside the buffer.
    const auto* start = reinterpret_cast<const char*>(data + offset);
    out.assign(start, ::strnlen(start, capacity + 1 - offset));
    return offset + out.size() + 1;
}

std::size_t Packet::Read(std::size_t offset, unsigned char& out) const
{
    if (offset >= length)
    {
        return 0;
    }
    out = data[offset];
    return offset + 1;
}

std::size_t Packet::Read(std::size_t offset, unsigned short& out) const
{
    if (length < 2 || offset > length - 2)
    {
        return 0;
    }
    out = static_cast<unsigned short>((data[offset] << 8) | data[offset + 1]);
    return offset + 2;
}

std::size_t Packet::Read(OpCode& out) const
{
    unsigned short value = 0;
    if (Read(0, value) != 0)
    {
        out = static_cast<OpCode>(value);
    }
    return 2;
}

OpCode Packet::GetOpCode() const
{
    OpCode opCode = static_cast<OpCode>(0);
    Read(opCode);
    return opCode;
}

std::string Packet::GetFilepath() const
{
    const OpCode opCode = GetOpCode();
    std::string path;
    if (opCode == OpCode::ReadRequest || opCode == OpCode::WriteRequest)
    {
        Read(RequestStringOffset, path);
    }
    return path;
}

TransferMode Packet::GetMode() const
{
    const OpCode opCode = GetOpCode();
    if (opCode != OpCode::ReadRequest && opCode != OpCode::WriteRequest)
    {
        return TransferMode::Undefined;
    }
    std::string path;
    std::string word;
    const std::size_t modeOffset = Read(RequestStringOffset, path);
    if (modeOffset != 0)
    {
        Read(modeOffset, word);
    }
    for (const auto& [accepted, mode] : acceptedModeWords)
    {
        if (boost::algorithm::iequals(word, accepted))
        {
            return mode;
        }
    }
    return TransferMode::Octet;
}

std::int64_t Packet::GetBlockNumber() const
{
    const OpCode opCode = GetOpCode();
    if (opCode != OpCode::Data && opCode != OpCode::Acknowledge && opCode != OpCode::OptionAcknowledge)
    {
        return -1;
    }
    unsigned short block = 0;
    if (Read(SecondFieldOffset, block) == 0)
    {
        return -1;
    }
    return block;
}

} // namespace VantrelBase::Net::Tftp
