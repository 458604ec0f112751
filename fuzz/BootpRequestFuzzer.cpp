// Fuzzes the BOOTP request handling over the server's 700-byte buffer: a sequence of arbitrary
// datagrams (any length, any hlen) is received into the one buffer, looked up, described for the
// log and, when it is a request of a known device, rewritten into its reply with a boot file name
// of any length. The steps are those of the server loop, through the server's own functions.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "FuzzCheck.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::BootpServer;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;

namespace
{

class Harness : public BootpServer
{
public:
    using BootpServer::BootpServer;
    using BootpServer::Buffer;
    using BootpServer::BufferSize;
    using BootpServer::BuildReply;
    using BootpServer::FormatHardware;
    using BootpServer::ReplySize;
    using BootpServer::TryGetIpConfiguration;
};

constexpr std::size_t FileOffset = 108;

void CheckHardwareText(const Harness::Buffer& buffer, const std::string& text)
{
    const std::size_t hlen = buffer[2];
    if (hlen == 0)
    {
        FUZZ_CHECK(text == "(unknown hardware address)");
        return;
    }
    FUZZ_CHECK(text.size() == hlen * 3 - 1);
    for (std::size_t i = 0; i < hlen; ++i)
    {
        char pair[3];
        std::snprintf(pair, sizeof(pair), "%02X", static_cast<unsigned int>(buffer[28 + i]));
        FUZZ_CHECK(text.compare(i * 3, 2, pair) == 0);
    }
}

void CheckReply(const Harness::Buffer& before, const Harness::Buffer& after, const IpAddress& yours,
                const IpAddress& server, const std::string& bootfile)
{
    FUZZ_CHECK(after[0] == 2);
    const std::uint32_t yourValue = yours.GetValue();
    const std::uint32_t serverValue = server.GetValue();
    FUZZ_CHECK(std::memcmp(&after[16], &yourValue, 4) == 0);
    FUZZ_CHECK(std::memcmp(&after[20], &serverValue, 4) == 0);
    // The name and its zero, cut only where the buffer ends.
    const std::size_t written = std::min(bootfile.size(), Harness::BufferSize - FileOffset - 1);
    FUZZ_CHECK(std::memcmp(&after[FileOffset], bootfile.data(), written) == 0);
    FUZZ_CHECK(after[FileOffset + written] == 0);
    // Everything else goes back as the client sent it.
    for (std::size_t i = 0; i < Harness::BufferSize; ++i)
    {
        const bool rewritten = i == 0 || (i >= 16 && i < 24) || (i >= FileOffset && i <= FileOffset + written);
        if (!rewritten)
        {
            FUZZ_CHECK(after[i] == before[i]);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);

    // A table of 1 to 4 devices (an empty table would ask the kernel's ARP table instead).
    BootpServerSettings settings;
    const std::size_t devices = input.ConsumeIntegralInRange<std::size_t>(1, 4);
    std::vector<MacAddress> keys;
    for (std::size_t i = 0; i < devices; ++i)
    {
        MacAddress key;
        for (auto& byte : key.bytes)
        {
            byte = input.ConsumeIntegral<std::uint8_t>();
        }
        keys.push_back(key);
        settings.ipConfigurations.insert({key, IpAddress(input.ConsumeIntegral<std::uint32_t>())});
    }
    Harness server(settings);
    server.SetBootserver(IpAddress(input.ConsumeIntegral<std::uint32_t>()));
    const std::string bootfile = input.ConsumeRandomLengthString(800);
    server.SetBootfile(bootfile);

    Harness::Buffer buffer{};
    while (input.remaining_bytes() > 0)
    {
        // A datagram of any length; the receive keeps at most the buffer's size, and leaves the
        // bytes behind a short one as earlier datagrams left them.
        const std::string datagram = input.ConsumeRandomLengthString(1000);
        std::memcpy(buffer.data(), datagram.data(), std::min(datagram.size(), buffer.size()));

        const MacAddress client(buffer[28], buffer[29], buffer[30], buffer[31], buffer[32], buffer[33]);
        IpAddress assigned;
        const bool found = server.TryGetIpConfiguration(client, assigned);
        if (found)
        {
            // Only ever an address the table holds, for a key the table holds.
            FUZZ_CHECK(std::find(keys.begin(), keys.end(), client) != keys.end());
        }
        if (devices == 1)
        {
            // A table of one entry always finds it, and only it.
            FUZZ_CHECK(found == (client == keys.front()));
        }
        CheckHardwareText(buffer, Harness::FormatHardware(buffer));

        if (buffer[0] == 1 && buffer[1] == 1 && buffer[2] == 6 && found)
        {
            const Harness::Buffer before = buffer;
            Harness::BuildReply(buffer, assigned, IpAddress(0x0A4D0001U), bootfile);
            CheckReply(before, buffer, assigned, IpAddress(0x0A4D0001U), bootfile);
        }
    }
    return 0;
}
