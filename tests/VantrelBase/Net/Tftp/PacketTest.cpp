// Tests of the TFTP packet codec: byte-exact factories, bounded reads and the parsing quirks. The
// server's tests see the common packets byte for byte; these see what the server never builds.
#include "VantrelBase/Net/Tftp/Packet.hpp"

#include <gtest/gtest.h>

#include <string>

namespace
{

using VantrelBase::Net::Tftp::ErrorCode;
using VantrelBase::Net::Tftp::OpCode;
using VantrelBase::Net::Tftp::Packet;
using VantrelBase::Net::Tftp::TransferMode;
using namespace std::string_literals;

std::string Bytes(const Packet& packet)
{
    return std::string(reinterpret_cast<const char*>(packet.GetRawData()), packet.GetLength());
}

std::shared_ptr<Packet> Received(const std::string& bytes)
{
    return Packet::Create(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST(PacketTest, FactoriesBuildExactBytesAndFullPackets)
{
    const std::pair<std::shared_ptr<Packet>, std::string> cases[] = {
        {Packet::CreateAcknowledge(0xABCD), "\0\4\xAB\xCD"s},
        {Packet::CreateData(1, "", 0), "\0\3\0\1"s},
        {Packet::CreateError(static_cast<ErrorCode>(9)), "\0\5\0\x09Not defined, see error message (if any).\0"s},
        {Packet::CreateWriteRequest("dir/f", TransferMode::Octet), "\0\2dir/f\0octet\0"s},
        {Packet::CreateReadRequest("f", TransferMode::Mail), "\0\1f\0mail\0"s},
        // Deliberately "ascii", not "netascii".
        {Packet::CreateReadRequest("a", TransferMode::NetAscii), "\0\1a\0ascii\0"s},
        {Packet::CreateReadRequest("a", static_cast<TransferMode>(9)), "\0\1a\0octet\0"s},
    };
    for (const auto& [packet, bytes] : cases)
    {
        EXPECT_EQ(Bytes(*packet), bytes);
        EXPECT_FALSE(packet->Write(static_cast<unsigned char>(0))) << "a built packet has no room left";
    }
}

TEST(PacketTest, FieldsOfReceivedDatagrams)
{
    struct Case
    {
        std::string datagram;
        std::int64_t block;
        std::size_t payloadOffset;
        std::string path;
        TransferMode mode;
    };
    const Case cases[] = {
        {"\0\4\xFF\xFF"s, 65535, 2, "", TransferMode::Undefined},
        {"\0\6\0\2"s, 2, 2, "", TransferMode::Undefined},
        // Truncated DATA or ACK: no block number, and the payload of DATA starts at the buffer.
        {"\0\3"s, -1, 0, "", TransferMode::Undefined},
        {"\0\4\1"s, -1, 2, "", TransferMode::Undefined},
        {"\0\5\0\2x\0"s, -1, 2, "", TransferMode::Undefined},
        {"\0\3\0\1name\0"s, 1, 4, "", TransferMode::Undefined},
        {"\3"s, -1, 2, "", TransferMode::Undefined},
        {"\0\1a\0NETASCII\0"s, -1, 2, "a", TransferMode::NetAscii},
        {"\0\2a\0Ascii\0"s, -1, 2, "a", TransferMode::NetAscii},
        {"\0\1a\0MAIL\0"s, -1, 2, "a", TransferMode::Mail},
        {"\0\1a\0"s, -1, 2, "a", TransferMode::Octet},
        // The byte behind the datagram is always zero: an unterminated name ends there.
        {"\0\1abc"s, -1, 2, "abc", TransferMode::Octet},
    };
    for (const auto& c : cases)
    {
        const auto packet = Received(c.datagram);
        EXPECT_EQ(packet->GetBlockNumber(), c.block) << testing::PrintToString(c.datagram);
        EXPECT_EQ(packet->GetData(), packet->GetRawData() + c.payloadOffset) << testing::PrintToString(c.datagram);
        EXPECT_EQ(packet->GetFilepath(), c.path) << testing::PrintToString(c.datagram);
        EXPECT_EQ(packet->GetMode(), c.mode) << testing::PrintToString(c.datagram);
    }
}

TEST(PacketTest, ReadsStayWithinLength)
{
    const auto packet = Received("\1\2\3"s);
    unsigned short word = 0;
    unsigned char byte = 0;
    std::string text;
    EXPECT_EQ(packet->Read(1, word), 3U);
    EXPECT_EQ(word, 0x0203);
    EXPECT_EQ(packet->Read(2, word), 0U);
    EXPECT_EQ(packet->Read(2, byte), 3U);
    EXPECT_EQ(packet->Read(3, byte), 0U);
    EXPECT_EQ(packet->Read(2, text), 4U);
    EXPECT_EQ(packet->Read(3, text), 0U);
    OpCode opCode = OpCode::Acknowledge;
    EXPECT_EQ(Received("\3"s)->Read(opCode), 2U) << "the opcode read always reports 2";
    EXPECT_EQ(opCode, OpCode::Acknowledge) << "a failed read leaves the value unchanged";

    Packet built(16);
    ASSERT_TRUE(built.Write(static_cast<unsigned short>(0x0102)));
    EXPECT_EQ(built.Read(2, word), 0U) << "bytes behind the length are not data";
}

TEST(PacketTest, WritesRefuseWhatDoesNotFitAndTheOpCodeGoesFirst)
{
    Packet packet(5);
    EXPECT_TRUE(packet.Write(static_cast<unsigned short>(0xA1B2)));
    EXPECT_FALSE(packet.Write("abcd", 4));
    EXPECT_FALSE(packet.Write(std::string("abc"))) << "the string takes its zero too";
    EXPECT_TRUE(packet.Write(std::string("ab")));
    EXPECT_TRUE(packet.Write(OpCode::Error)) << "the opcode overwrites the first two bytes";
    EXPECT_FALSE(packet.Write(static_cast<unsigned short>(1)));
    EXPECT_EQ(Bytes(packet), "\0\5" "ab\0"s) << "a refused write writes nothing, the opcode keeps the length";
    Packet empty(4);
    EXPECT_TRUE(empty.SetOpCode(OpCode::Acknowledge));
    EXPECT_EQ(Bytes(empty), "\0\4"s);
    EXPECT_FALSE(Packet(1).Write(OpCode::Data));
}

TEST(PacketTest, ReceivedPacketCopiesTheDatagramButACopiedPacketIsDeliberatelyShallow)
{
    std::string datagram("\x7F\3\0\1"s);
    const auto original = Received(datagram);
    datagram[1] = 'z';
    EXPECT_EQ(Bytes(*original), "\x7F\3\0\1"s);
    EXPECT_FALSE(original->Write(static_cast<unsigned char>(0))) << "a received packet has no room left";
    const Packet copy(*original);
    EXPECT_EQ(Bytes(copy), "\x7F\0\0\0"s) << "only the first byte is taken over";
    EXPECT_NE(copy.GetRawData(), original->GetRawData());
}

} // namespace
