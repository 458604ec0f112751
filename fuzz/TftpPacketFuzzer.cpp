// Fuzzes the TFTP packet codec: every accessor of a received datagram of any content and length
// stays inside the datagram, and what the factories build reads back as it was built.
#include "VantrelBase/Net/Tftp/Packet.hpp"

#include "FuzzCheck.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using VantrelBase::Net::Tftp::ErrorCode;
using VantrelBase::Net::Tftp::OpCode;
using VantrelBase::Net::Tftp::Packet;
using VantrelBase::Net::Tftp::TransferMode;

namespace
{

std::uint16_t BigEndian(const unsigned char* bytes)
{
    return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
}

void CheckReceived(const std::vector<unsigned char>& raw)
{
    const auto packet = Packet::Create(raw.data(), raw.size());
    const std::size_t length = raw.size();
    FUZZ_CHECK(packet->GetLength() == length);
    FUZZ_CHECK(length == 0 || std::memcmp(packet->GetRawData(), raw.data(), length) == 0);
    // The byte behind the datagram is always the terminating zero.
    FUZZ_CHECK(packet->GetRawData()[length] == 0);

    const OpCode opCode = packet->GetOpCode();
    if (length >= 2)
    {
        FUZZ_CHECK(static_cast<std::uint16_t>(opCode) == BigEndian(raw.data()));
    }
    const std::string path = packet->GetFilepath();
    const TransferMode mode = packet->GetMode();
    const std::int64_t block = packet->GetBlockNumber();
    const bool request = length >= 2 && (opCode == OpCode::ReadRequest || opCode == OpCode::WriteRequest);
    if (!request)
    {
        FUZZ_CHECK(path.empty());
        FUZZ_CHECK(length < 2 || mode == TransferMode::Undefined);
    }
    else
    {
        FUZZ_CHECK(mode != TransferMode::Undefined);
        FUZZ_CHECK(path.size() <= length - 2 && path.find('\0') == std::string::npos);
        FUZZ_CHECK(std::memcmp(path.data(), raw.data() + 2, path.size()) == 0);
    }
    const bool numbered = opCode == OpCode::Data || opCode == OpCode::Acknowledge || opCode == OpCode::OptionAcknowledge;
    if (length >= 4 && numbered)
    {
        FUZZ_CHECK(block == BigEndian(raw.data() + 2));
    }
    else if (length >= 2 && !numbered)
    {
        FUZZ_CHECK(block == -1);
    }
    // The payload pointer never lies past the datagram, so the write path's payload length
    // (length minus the header) cannot underflow.
    const unsigned char* payload = packet->GetData();
    FUZZ_CHECK(payload >= packet->GetRawData());
    if (opCode == OpCode::Data && length >= 2)
    {
        FUZZ_CHECK(static_cast<std::size_t>(payload - packet->GetRawData()) <= length);
    }

    // Bounded reads at every offset the datagram has, and one past it.
    for (std::size_t offset = 0; offset <= length + 1 && offset < 64; ++offset)
    {
        std::string text;
        const std::size_t afterText = packet->Read(offset, text);
        FUZZ_CHECK(offset >= length ? afterText == 0 : afterText == offset + text.size() + 1);
        FUZZ_CHECK(text.find('\0') == std::string::npos);
        // A string runs at most to the guaranteed zero behind the datagram.
        FUZZ_CHECK(afterText == 0 || offset + text.size() <= length);
        unsigned short value = 0;
        const std::size_t afterValue = packet->Read(offset, value);
        FUZZ_CHECK(offset + 2 <= length ? afterValue == offset + 2 : afterValue == 0);
        unsigned char byte = 0;
        const std::size_t afterByte = packet->Read(offset, byte);
        FUZZ_CHECK(offset + 1 <= length ? afterByte == offset + 1 : afterByte == 0);
    }
}

void CheckBuilt(FuzzedDataProvider& input)
{
    const auto block = input.ConsumeIntegral<unsigned short>();
    const std::string text = input.ConsumeRandomLengthString(600);
    const auto mode = static_cast<TransferMode>(input.ConsumeIntegralInRange<int>(0, 4));

    const auto data = Packet::CreateData(block, text.data(), text.size());
    FUZZ_CHECK(data->GetLength() == text.size() + 4 && data->GetBlockNumber() == block);
    FUZZ_CHECK(data->GetData() == data->GetRawData() + 4);
    FUZZ_CHECK(text.empty() || std::memcmp(data->GetData(), text.data(), text.size()) == 0);

    const auto ack = Packet::CreateAcknowledge(block);
    FUZZ_CHECK(ack->GetLength() == 4 && ack->GetOpCode() == OpCode::Acknowledge && ack->GetBlockNumber() == block);

    const auto error = Packet::CreateError(block, text);
    FUZZ_CHECK(error->GetLength() == text.size() + 5 && error->GetOpCode() == OpCode::Error);
    const auto known = Packet::CreateError(static_cast<ErrorCode>(block));
    std::string message;
    FUZZ_CHECK(known->Read(4, message) == known->GetLength());
    FUZZ_CHECK(!message.empty());

    // A request of a name without zero bytes reads back as built; the mode word of an unknown
    // mode is "octet", and "undefined" reads back as octet.
    if (text.find('\0') == std::string::npos)
    {
        const auto read = Packet::CreateReadRequest(text, mode);
        const auto write = Packet::CreateWriteRequest(text, mode);
        FUZZ_CHECK(read->GetOpCode() == OpCode::ReadRequest && write->GetOpCode() == OpCode::WriteRequest);
        FUZZ_CHECK(read->GetFilepath() == text && write->GetFilepath() == text);
        const TransferMode expected =
            mode == TransferMode::NetAscii || mode == TransferMode::Mail ? mode : TransferMode::Octet;
        FUZZ_CHECK(read->GetMode() == expected && write->GetMode() == expected);
        FUZZ_CHECK(read->GetLength() == text.size() + Packet::GetTransferMode(mode).size() + 4);
    }

    // Appending writes never pass the capacity.
    const auto capacity = input.ConsumeIntegralInRange<std::size_t>(0, 40);
    const auto packet = Packet::Create(capacity);
    while (input.remaining_bytes() > 0)
    {
        const std::uint64_t before = packet->GetLength();
        switch (input.ConsumeIntegralInRange<int>(0, 4))
        {
        case 0: {
            const std::string piece = input.ConsumeRandomLengthString(20);
            const bool fits = before + piece.size() <= capacity;
            FUZZ_CHECK(packet->Write(piece.data(), piece.size()) == fits);
            FUZZ_CHECK(packet->GetLength() == (fits ? before + piece.size() : before));
            break;
        }
        case 1: {
            const std::string piece = input.ConsumeRandomLengthString(20);
            const bool fits = before + piece.size() + 1 <= capacity;
            FUZZ_CHECK(packet->Write(piece) == fits);
            break;
        }
        case 2:
            FUZZ_CHECK(packet->Write(input.ConsumeIntegral<unsigned char>()) == (before < capacity));
            break;
        case 3:
            FUZZ_CHECK(packet->Write(input.ConsumeIntegral<unsigned short>()) == (before + 2 <= capacity));
            break;
        default:
            FUZZ_CHECK(packet->Write(static_cast<OpCode>(input.ConsumeIntegral<std::uint16_t>())) == (capacity >= 2));
            FUZZ_CHECK(packet->GetLength() == (capacity >= 2 && before < 2 ? 2 : before));
            break;
        }
        FUZZ_CHECK(packet->GetLength() <= capacity);
        FUZZ_CHECK(packet->GetRawData()[capacity] == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CheckReceived(std::vector<unsigned char>(data, data + size));
    FuzzedDataProvider input(data, size);
    CheckBuilt(input);
    return 0;
}
