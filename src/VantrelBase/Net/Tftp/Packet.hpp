// The buffer of one TFTP datagram: factories for the packets the server builds, appending writes,
// bounded reads and the protocol's vocabulary tables.
#pragma once

#include "VantrelBase/Net/NetExport.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace VantrelBase::Net::Tftp
{

/// TFTP opcodes (16-bit on the wire).
enum class OpCode : std::uint16_t
{
    ReadRequest = 1,
    WriteRequest = 2,
    Data = 3,
    Acknowledge = 4,
    Error = 5,
    /// Only recognised when reading a block number; never built.
    OptionAcknowledge = 6,
};

/// TFTP error codes (16-bit on the wire); the texts are in Packet::errorMessages.
enum class ErrorCode : std::uint16_t
{
    NotDefined = 0,
    FileNotFound = 1,
    AccessViolation = 2,
    DiskFull = 3,
    IllegalOperation = 4,
    UnknownTransferId = 5,
    FileAlreadyExists = 6,
    NoSuchUser = 7,
};

/// Transfer modes; the words are in Packet::transferModes.
enum class TransferMode : std::uint8_t
{
    Undefined = 0,
    Octet = 1,
    NetAscii = 2,
    Mail = 3,
};

/// One TFTP datagram. All 16-bit fields are big-endian; strings end with a zero byte.
///
///     RRQ/WRQ  | 00 01/02 | file name | 00 | mode word | 00 |      name + word + 4 bytes
///     DATA     | 00 03    | block     | payload (0..512 bytes) |   payload + 4 bytes
///     ACK      | 00 04    | block     |                            4 bytes
///     ERROR    | 00 05    | code      | message | 00 |             message + 5 bytes
///
/// `length` is both the write cursor and the bound of every read. The buffer holds one byte more
/// than its capacity, always zero, so a string read at the end of the buffer is terminated.
/// Built packets are exactly full (length == capacity). Nothing here throws on malformed input
/// or logs. Distinct objects: safe. Shared objects: unsafe. The static tables are read-only.
class VANTRELBASE_NET_EXPORT Packet
{
public:
    /// The text of each error code, built at load.
    static const std::map<ErrorCode, std::string> errorMessages;
    /// The mode word of each transfer mode, built at load. NetAscii is deliberately "ascii".
    static const std::map<TransferMode, std::string> transferModes;

    /// An empty packet of `capacity` usable bytes.
    explicit Packet(std::size_t capacity);
    /// Deliberately shallow: copies capacity and length but only the first byte of the contents.
    Packet(const Packet& other);
    Packet& operator=(const Packet&) = delete;
    ~Packet();

    /// Zeroes the whole buffer and empties the packet.
    void Clear();
    std::uint64_t GetLength() const { return length; }
    /// The start of the datagram, opcode included.
    unsigned char* GetRawData() const { return data; }
    /// The payload: behind the block number for a DATA packet that holds one, the start of the
    /// buffer for a shorter DATA packet, and behind the opcode for every other packet.
    unsigned char* GetData() const;

    static std::shared_ptr<Packet> Create(std::size_t capacity);
    /// A full packet holding a copy of `len` received bytes.
    static std::shared_ptr<Packet> Create(const unsigned char* raw, std::size_t len);
    static std::shared_ptr<Packet> CreateAcknowledge(unsigned short block);
    static std::shared_ptr<Packet> CreateData(unsigned short block, const char* bytes, std::size_t count);
    static std::shared_ptr<Packet> CreateError(unsigned short code, const std::string& message);
    static std::shared_ptr<Packet> CreateError(ErrorCode code, const std::string& message);
    /// The message comes from errorMessages; an unknown code keeps its number with the text of code 0.
    static std::shared_ptr<Packet> CreateError(ErrorCode code);
    static std::shared_ptr<Packet> CreateReadRequest(const std::string& path, TransferMode mode);
    static std::shared_ptr<Packet> CreateWriteRequest(const std::string& path, TransferMode mode);
    /// The mode word; a mode not in the table gives "octet".
    static std::string GetTransferMode(TransferMode mode);

    /// Appends `count` bytes; false (and nothing written) when they do not fit.
    bool Write(const char* bytes, std::size_t count);
    /// Appends the string with its terminating zero.
    bool Write(const std::string& text);
    bool Write(unsigned char value);
    /// Appends two bytes, most significant first.
    bool Write(unsigned short value);
    /// Stores the opcode at offset 0; raises length to 2 when shorter, keeps a larger length.
    /// Fails only when the capacity is below 2.
    bool Write(OpCode opCode);
    /// The same as Write(OpCode).
    bool SetOpCode(OpCode opCode);

    /// Positional reads: each returns the offset behind what was read, or 0 when it does not fit
    /// within length. A string ends at its zero byte, which may lie past length.
    std::size_t Read(std::size_t offset, std::string& out) const;
    std::size_t Read(std::size_t offset, unsigned char& out) const;
    std::size_t Read(std::size_t offset, unsigned short& out) const;
    /// Reads the opcode at offset 0 and always returns 2; `out` is left unchanged when the packet
    /// is shorter than 2 bytes.
    std::size_t Read(OpCode& out) const;

    /// The opcode; 0 for a packet shorter than 2 bytes.
    OpCode GetOpCode() const;
    /// The file name of a RRQ or WRQ; empty for any other packet.
    std::string GetFilepath() const;
    /// The mode of a RRQ or WRQ ("ascii"/"netascii", "mail", anything else Octet, case-insensitive);
    /// Undefined for any other packet.
    TransferMode GetMode() const;
    /// The block number of DATA, ACK and OACK packets; -1 for other packets and for packets too
    /// short to hold one.
    std::int64_t GetBlockNumber() const;

private:
    unsigned char* data;
    std::uint64_t capacity;
    std::uint64_t length;
};

} // namespace VantrelBase::Net::Tftp
