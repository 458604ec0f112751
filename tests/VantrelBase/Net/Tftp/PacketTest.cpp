// Tests of the TFTP packet codec: byte-exact factories, bounded reads and the parsing quirks.
#include "VantrelBase/Net/Tftp/Packet.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using VantrelBase::Net::Tftp::ErrorCode;
using VantrelBase::Net::Tftp::OpCode;
using VantrelBase::Net::Tftp::Packet;
using VantrelBase::Net::Tftp::TransferMode;

std::vector<unsigned char> Bytes(const Packet& packet)
{
    return std::vector<unsigned char>(packet.GetRawData(), packet.GetRawData() + packet.GetLength());
}

std::vector<unsigned char> Bytes(const std::string& text)
{
    return std::vector<unsigned char>(text.begin(), text.end());
}

std::shared_ptr<Packet> Received(const std::string& bytes)
{
    return Packet::Create(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST(PacketTest, FactoriesBuildExactBytes)
{
    EXPECT_EQ(Bytes(*Packet::CreateAcknowledge(0x1234)), Bytes(std::string("\x00\x04\x12\x34", 4)));
    EXPECT_EQ(Bytes(*Packet::CreateData(0xABCD, "xyz", 3)), Bytes(std::string("\x00\x03\xAB\xCD" "xyz", 7)));
    EXPECT_EQ(Bytes(*Packet::CreateError(static_cast<unsigned short>(3), "full")),
              Bytes(std::string("\x00\x05\x00\x03" "full\x00", 9)));
    EXPECT_EQ(Bytes(*Packet::CreateWriteRequest("dir/f", TransferMode::Octet)),
              Bytes(std::string("\x00\x02" "dir/f\x00" "octet\x00", 14)));
    EXPECT_EQ(Bytes(*Packet::CreateReadRequest("f", TransferMode::Mail)),
              Bytes(std::string("\x00\x01" "f\x00" "mail\x00", 9)));
}

TEST(PacketTest, BuiltPacketsAreExactlyFull)
{
    for (const auto& packet : {Packet::CreateAcknowledge(1), Packet::CreateData(1, "ab", 2),
                               Packet::CreateError(ErrorCode::FileNotFound), Packet::CreateReadRequest("a", TransferMode::Octet)})
    {
        EXPECT_FALSE(packet->Write(static_cast<unsigned char>(0))) << "a built packet has no room left";
    }
}

TEST(PacketTest, NetAsciiRequestCarriesTheWordAscii)
{
    // Deliberately "ascii", not "netascii".
    const auto packet = Packet::CreateReadRequest("a", TransferMode::NetAscii);
    EXPECT_EQ(Bytes(*packet), Bytes(std::string("\x00\x01" "a\x00" "ascii\x00", 10)));
}

TEST(PacketTest, UnknownTransferModeWordIsOctet)
{
    EXPECT_EQ(Packet::GetTransferMode(static_cast<TransferMode>(9)), "octet");
    EXPECT_EQ(Packet::GetTransferMode(TransferMode::Undefined), "undefined");
}

TEST(PacketTest, EmptyDataPacketIsTheFourByteLastBlockMarker)
{
    const auto packet = Packet::CreateData(1, "", 0);
    EXPECT_EQ(Bytes(*packet), Bytes(std::string("\x00\x03\x00\x01", 4)));
    EXPECT_EQ(packet->GetData(), packet->GetRawData() + 4);
}

TEST(PacketTest, ErrorWithTableMessage)
{
    EXPECT_EQ(Bytes(*Packet::CreateError(ErrorCode::UnknownTransferId)),
              Bytes(std::string("\x00\x05\x00\x05" "Unknown transfer ID.\x00", 25)));
    EXPECT_EQ(Bytes(*Packet::CreateError(ErrorCode::AccessViolation, "x")),
              Bytes(std::string("\x00\x05\x00\x02" "x\x00", 6)));
}

TEST(PacketTest, UnknownErrorCodeKeepsItsNumberWithTheTextOfCodeZero)
{
    const auto packet = Packet::CreateError(static_cast<ErrorCode>(9));
    EXPECT_EQ(Bytes(*packet), Bytes(std::string("\x00\x05\x00\x09" "Not defined, see error message (if any).\x00", 45)));
}

TEST(PacketTest, ErrorTableHoldsAllEightCodes)
{
    ASSERT_EQ(Packet::errorMessages.size(), 8U);
    EXPECT_EQ(Packet::errorMessages.at(ErrorCode::DiskFull), "Disk full or allocation exceeded.");
    EXPECT_EQ(Packet::errorMessages.at(ErrorCode::FileAlreadyExists), "File already exists.");
    EXPECT_EQ(Packet::errorMessages.at(ErrorCode::NoSuchUser), "No such user.");
}

TEST(PacketTest, ReceivedPacketIsACopyOfTheDatagram)
{
    std::string datagram("\x00\x03\x00\x07" "abc", 7);
    const auto packet = Received(datagram);
    datagram[4] = 'z';
    EXPECT_EQ(packet->GetLength(), 7U);
    EXPECT_EQ(packet->GetOpCode(), OpCode::Data);
    EXPECT_EQ(packet->GetBlockNumber(), 7);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(packet->GetData()), 3), "abc");
    EXPECT_FALSE(packet->Write(static_cast<unsigned char>(0)));
}

TEST(PacketTest, ShortDataPacketHasNoBlockNumberAndPayloadAtStart)
{
    const auto packet = Received(std::string("\x00\x03", 2));
    EXPECT_EQ(packet->GetOpCode(), OpCode::Data);
    EXPECT_EQ(packet->GetBlockNumber(), -1);
    EXPECT_EQ(packet->GetData(), packet->GetRawData());
    const auto threeBytes = Received(std::string("\x00\x04\x01", 3));
    EXPECT_EQ(threeBytes->GetBlockNumber(), -1);
}

TEST(PacketTest, BlockNumberOnlyForDataAcknowledgeAndOptionAcknowledge)
{
    EXPECT_EQ(Received(std::string("\x00\x04\xFF\xFF", 4))->GetBlockNumber(), 65535);
    EXPECT_EQ(Received(std::string("\x00\x06\x00\x02", 4))->GetBlockNumber(), 2);
    EXPECT_EQ(Received(std::string("\x00\x05\x00\x02x\x00", 6))->GetBlockNumber(), -1);
    EXPECT_EQ(Received(std::string("\x00\x01\x00\x02", 4))->GetBlockNumber(), -1);
}

TEST(PacketTest, PayloadOfOtherPacketsStartsBehindTheOpCode)
{
    const auto packet = Received(std::string("\x00\x05\x00\x01m\x00", 6));
    EXPECT_EQ(packet->GetData(), packet->GetRawData() + 2);
}

TEST(PacketTest, OneByteDatagramHasNoOpCode)
{
    const auto packet = Received(std::string("\x03", 1));
    OpCode opCode = OpCode::Acknowledge;
    EXPECT_EQ(packet->Read(opCode), 2U) << "the opcode read always reports 2";
    EXPECT_EQ(opCode, OpCode::Acknowledge) << "a failed read leaves the value unchanged";
    EXPECT_EQ(static_cast<int>(packet->GetOpCode()), 0);
    EXPECT_EQ(packet->GetFilepath(), "");
    EXPECT_EQ(packet->GetMode(), TransferMode::Undefined);
}

TEST(PacketTest, RequestFieldsAndModeWords)
{
    const auto netascii = Received(std::string("\x00\x01" "a\x00" "NETASCII\x00", 13));
    EXPECT_EQ(netascii->GetFilepath(), "a");
    EXPECT_EQ(netascii->GetMode(), TransferMode::NetAscii);
    EXPECT_EQ(Received(std::string("\x00\x02" "a\x00" "Ascii\x00", 10))->GetMode(), TransferMode::NetAscii);
    EXPECT_EQ(Received(std::string("\x00\x01" "a\x00" "MAIL\x00", 9))->GetMode(), TransferMode::Mail);
    EXPECT_EQ(Received(std::string("\x00\x01" "a\x00" "octet\x00", 10))->GetMode(), TransferMode::Octet);
    EXPECT_EQ(Received(std::string("\x00\x01" "a\x00" "binary\x00", 11))->GetMode(), TransferMode::Octet);
    EXPECT_EQ(Received(std::string("\x00\x01" "a\x00", 4))->GetMode(), TransferMode::Octet) << "no mode word";
    EXPECT_EQ(Received(std::string("\x00\x01" "a", 3))->GetMode(), TransferMode::Octet) << "unterminated name";
}

TEST(PacketTest, RequestFieldsOfOtherPacketsAreEmpty)
{
    const auto data = Received(std::string("\x00\x03\x00\x01" "name\x00", 9));
    EXPECT_EQ(data->GetFilepath(), "");
    EXPECT_EQ(data->GetMode(), TransferMode::Undefined);
}

TEST(PacketTest, UnterminatedNameEndsAtTheBufferEnd)
{
    // The byte behind the capacity is zero: the read stops there and never leaves the buffer.
    const auto packet = Received(std::string("\x00\x01" "abc", 5));
    EXPECT_EQ(packet->GetFilepath(), "abc");
    std::string text;
    EXPECT_EQ(packet->Read(2, text), 6U);
    EXPECT_EQ(packet->Read(5, text), 0U) << "an offset at the length does not fit";
}

TEST(PacketTest, ReadsStayWithinLength)
{
    const auto packet = Received(std::string("\x01\x02\x03", 3));
    unsigned short word = 0;
    unsigned char byte = 0;
    EXPECT_EQ(packet->Read(1, word), 3U);
    EXPECT_EQ(word, 0x0203);
    EXPECT_EQ(packet->Read(2, word), 0U);
    EXPECT_EQ(packet->Read(2, byte), 3U);
    EXPECT_EQ(byte, 0x03);
    EXPECT_EQ(packet->Read(3, byte), 0U);
    EXPECT_EQ(Packet::Create(std::size_t{0})->Read(0, word), 0U);
}

TEST(PacketTest, ReadsAreBoundByLengthNotCapacity)
{
    Packet packet(16);
    ASSERT_TRUE(packet.Write(static_cast<unsigned short>(0x0102)));
    unsigned short word = 0;
    EXPECT_EQ(packet.Read(2, word), 0U) << "bytes behind the length are not data";
    std::string text;
    EXPECT_EQ(packet.Read(2, text), 0U);
}

TEST(PacketTest, AppendingWritesRefuseWhatDoesNotFit)
{
    Packet packet(5);
    EXPECT_TRUE(packet.Write(static_cast<unsigned short>(0xA1B2)));
    EXPECT_FALSE(packet.Write("abcd", 4));
    EXPECT_EQ(packet.GetLength(), 2U) << "a refused write writes nothing";
    EXPECT_FALSE(packet.Write(std::string("abc"))) << "the string takes its zero too";
    EXPECT_TRUE(packet.Write(std::string("ab")));
    EXPECT_FALSE(packet.Write(static_cast<unsigned char>(1)));
    EXPECT_FALSE(packet.Write(static_cast<unsigned short>(1)));
    EXPECT_EQ(Bytes(packet), Bytes(std::string("\xA1\xB2" "ab\x00", 5)));
}

TEST(PacketTest, OpCodeWriteKeepsALargerLength)
{
    Packet packet(12);
    ASSERT_TRUE(packet.Write("0123456789", 10));
    EXPECT_TRUE(packet.Write(OpCode::Error));
    EXPECT_EQ(packet.GetLength(), 10U);
    EXPECT_EQ(packet.GetOpCode(), OpCode::Error);
    EXPECT_EQ(Bytes(packet), Bytes(std::string("\x00\x05" "23456789", 10)));
}

TEST(PacketTest, OpCodeWriteRaisesAShortLengthAndNeedsTwoBytes)
{
    Packet empty(4);
    EXPECT_TRUE(empty.SetOpCode(OpCode::Acknowledge));
    EXPECT_EQ(empty.GetLength(), 2U);
    Packet tiny(1);
    EXPECT_FALSE(tiny.Write(OpCode::Data));
    EXPECT_EQ(tiny.GetLength(), 0U);
}

TEST(PacketTest, ClearEmptiesAndZeroes)
{
    const auto packet = Packet::CreateAcknowledge(7);
    packet->Clear();
    EXPECT_EQ(packet->GetLength(), 0U);
    EXPECT_EQ(packet->GetRawData()[3], 0);
    EXPECT_TRUE(packet->Write(static_cast<unsigned short>(1))) << "the cleared buffer can be written again";
}

TEST(PacketTest, CopyIsDeliberatelyShallow)
{
    const auto original = Packet::CreateData(0x0102, "abc", 3);
    const Packet copy(*original);
    EXPECT_EQ(copy.GetLength(), original->GetLength());
    EXPECT_NE(copy.GetRawData(), original->GetRawData());
    EXPECT_EQ(copy.GetRawData()[0], original->GetRawData()[0]);
    EXPECT_EQ(copy.GetRawData()[1], 0) << "only the first byte is copied";
    EXPECT_EQ(copy.GetRawData()[4], 0);
}

} // namespace
