// Tests of the BOOTP server's settings, address table rule, hardware text and in-place reply.
#include "VantrelBase/Net/Bootp/BootpServer.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"
#include "Support/LogCapture.hpp"
#include "TestableBootpServer.hpp"

#include <gtest/gtest.h>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::MacAddress;
using VantrelBase::Net::Bootp::Configuration::BootpServerSettings;
using VantrelTest::TestableBootpServer;

namespace
{

IpAddress Ip(const char* text)
{
    return IpAddress::Parse(text);
}

// A message buffer whose every byte differs from its neighbours, so a stray write shows.
TestableBootpServer::Buffer PatternBuffer()
{
    TestableBootpServer::Buffer buffer{};
    for (std::size_t i = 0; i < buffer.size(); ++i)
    {
        buffer[i] = static_cast<std::uint8_t>((i * 7 + 3) & 0xFF);
    }
    return buffer;
}

} // namespace

TEST(BootpServerTest, PairConstructorHoldsOneEntryAndDefaults)
{
    TestableBootpServer server("00:11:22:33:44:55", "192.168.1.10");
    const BootpServerSettings& settings = server.settings;
    ASSERT_EQ(settings.ipConfigurations.size(), 1U);
    EXPECT_EQ(settings.ipConfigurations.begin()->first, MacAddress(0x00, 0x11, 0x22, 0x33, 0x44, 0x55));
    EXPECT_EQ(settings.ipConfigurations.begin()->second, Ip("192.168.1.10"));
    EXPECT_EQ(settings.localPort, 67);
    EXPECT_EQ(settings.localAddress, IpAddress());
    EXPECT_TRUE(settings.bindSocket);
    EXPECT_TRUE(settings.broadcast);
    EXPECT_EQ(settings.timeout, 0);
    EXPECT_EQ(settings.bootfile, "");
    EXPECT_EQ(settings.bootserver, IpAddress());
    EXPECT_FALSE(server.IsRunning());
}

TEST(BootpServerTest, PairConstructorKeysDashFormUnderZeroAddress)
{
    // Deliberate: only the colon form is read, so the key is all zero and the device is not found.
    TestableBootpServer server("00-11-22-33-44-55", "192.168.1.10");
    ASSERT_EQ(server.settings.ipConfigurations.size(), 1U);
    EXPECT_EQ(server.settings.ipConfigurations.begin()->first, MacAddress());
    IpAddress found;
    EXPECT_FALSE(server.TryGetIpConfiguration(MacAddress(0x00, 0x11, 0x22, 0x33, 0x44, 0x55), found));
    EXPECT_TRUE(server.TryGetIpConfiguration(MacAddress(), found));
    EXPECT_EQ(found, Ip("192.168.1.10"));
}

TEST(BootpServerTest, PairConstructorRefusesUnreadableIp)
{
    EXPECT_THROW(TestableBootpServer("00:11:22:33:44:55", "192.168.1"), InvalidFormatException);
}

TEST(BootpServerTest, SettingsConstructorCopiesTheRecord)
{
    BootpServerSettings settings;
    settings.timeout = 200;
    settings.localPort = 1067;
    settings.bootfile = "boot.img";
    settings.ipConfigurations[MacAddress(1, 2, 3, 4, 5, 6)] = Ip("10.0.0.6");
    TestableBootpServer server(settings);
    server.SetBootfile("other.img");
    EXPECT_EQ(server.settings.timeout, 200);
    EXPECT_EQ(server.settings.localPort, 1067);
    EXPECT_EQ(server.settings.ipConfigurations, settings.ipConfigurations);
    EXPECT_EQ(settings.bootfile, "boot.img");
}

TEST(BootpServerTest, BootserverSettersAgreeAndBadTextKeepsTheValue)
{
    TestableBootpServer server("00:11:22:33:44:55", "192.168.1.10");
    server.SetBootserver("10.1.2.3");
    const IpAddress fromText = server.settings.bootserver;
    server.SetBootserver(IpAddress());
    server.SetBootserver(Ip("10.1.2.3"));
    EXPECT_EQ(server.settings.bootserver, fromText);
    EXPECT_EQ(fromText, Ip("10.1.2.3"));
    EXPECT_THROW(server.SetBootserver("not an address"), InvalidFormatException);
    EXPECT_EQ(server.settings.bootserver, Ip("10.1.2.3"));
}

TEST(BootpServerTest, NonEmptyTableIsSearchedWithItsOwnOrdering)
{
    BootpServerSettings settings;
    settings.ipConfigurations[MacAddress(0x01, 0x02, 0, 0, 0, 0)] = Ip("10.0.0.1");
    settings.ipConfigurations[MacAddress(0x02, 0x01, 0, 0, 0, 0)] = Ip("10.0.0.2");
    TestableBootpServer server(settings);
    IpAddress found;
    EXPECT_TRUE(server.TryGetIpConfiguration(MacAddress(0x01, 0x02, 0, 0, 0, 0), found));
    EXPECT_EQ(found, Ip("10.0.0.1"));
    // Deliberate: the second entry is held but the search cannot reach it; the device gets no reply.
    found = Ip("192.0.2.1");
    EXPECT_FALSE(server.TryGetIpConfiguration(MacAddress(0x02, 0x01, 0, 0, 0, 0), found));
    EXPECT_FALSE(server.TryGetIpConfiguration(MacAddress(0x00, 0x01, 0, 0, 0, 0), found));
}

TEST(BootpServerTest, HardwareTextRunsOnToTheLargestHlen)
{
    // hlen 0, 6 and 20 are seen on the wire; here the ends of the range.
    auto buffer = PatternBuffer();
    buffer[2] = 1;
    EXPECT_EQ(TestableBootpServer::FormatHardware(buffer), fmt::format("{0:02X}", static_cast<unsigned int>(buffer[28])));
    buffer[2] = 255;
    const std::string longest = TestableBootpServer::FormatHardware(buffer);
    ASSERT_EQ(longest.size(), 255U * 3 - 1);
    for (std::size_t i = 0; i < 255; ++i)
    {
        ASSERT_EQ(longest.substr(i * 3, 2), fmt::format("{0:02X}", static_cast<unsigned int>(buffer[28 + i]))) << i;
    }
}

TEST(BootpServerTest, LongBootfileRunsIntoVendAndStopsAtBufferEnd)
{
    auto buffer = PatternBuffer();
    // Deliberate: no limit at the file field's end; 200 bytes reach into vend.
    const std::string twoHundred(200, 'f');
    TestableBootpServer::BuildReply(buffer, IpAddress(), IpAddress(), twoHundred);
    EXPECT_EQ(buffer[307], 'f');
    EXPECT_EQ(buffer[308], 0);
    EXPECT_EQ(buffer[309], PatternBuffer()[309]);

    // 591 characters and the zero fill the buffer exactly; a longer name is cut there.
    for (const std::size_t length : {591U, 592U, 1000U})
    {
        buffer = PatternBuffer();
        TestableBootpServer::BuildReply(buffer, IpAddress(), IpAddress(), std::string(length, 'g'));
        EXPECT_EQ(buffer[107], PatternBuffer()[107]) << length;
        EXPECT_EQ(buffer[108], 'g') << length;
        EXPECT_EQ(buffer[698], 'g') << length;
        EXPECT_EQ(buffer[699], 0) << length;
    }
}

TEST(BootpServerTest, StopBeforeStartLogsNothing)
{
    VantrelTest::LogCapture capture;
    TestableBootpServer server("00:11:22:33:44:55", "192.168.1.10");
    server.Stop();
    EXPECT_FALSE(server.IsRunning());
    EXPECT_TRUE(capture.Messages().empty());
}
