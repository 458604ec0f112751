// Tests of how the TFTP server takes its settings: the time-out rule and the mapping of requested
// paths onto the home folders and aliases.
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"

#include "../TftpTestSupport.hpp"

#include <gtest/gtest.h>

namespace
{

using VantrelTest::LogCapture;
using VantrelTest::Tftp::Settings;
using VantrelTest::Tftp::TestServer;

std::string MapWith(const std::vector<VantrelBase::Net::Tftp::Configuration::HomePathSetting>& homes,
                    const std::string& path)
{
    Settings settings;
    settings.HomePaths = homes;
    settings.ThreadCount = 1;
    TestServer server(settings);
    return server.GetAbsoluteFilepath(path);
}

TEST(TftpServerSettingsTest, TimeoutZeroMeansTenAndLargeValuesAreCapped)
{
    const std::pair<std::uint16_t, std::uint16_t> cases[] = {{0, 10}, {1, 1}, {254, 254}, {255, 255}, {256, 255},
                                                             {300, 255}, {1000, 255}, {65535, 255}};
    for (const auto& [given, taken] : cases)
    {
        Settings settings;
        settings.Timeout = given;
        settings.MaxRetries = 7;
        settings.ThreadCount = 1;
        const TestServer server(settings);
        EXPECT_EQ(server.GetTimeout(), taken) << "setting " << given;
        EXPECT_EQ(server.GetMaxRetries(), 7);
    }
}

TEST(TftpServerSettingsTest, BackslashesBecomeSlashesUnderTheDefaultHome)
{
    LogCapture logs(8);
    EXPECT_EQ(MapWith({{"/", "/srv/d"}}, "a\\b\\c.txt"), "/srv/d/a/b/c.txt");
    EXPECT_TRUE(logs.Contains("Alias not found, home: /srv/d, /a/b/c.txt", 8));
}

TEST(TftpServerSettingsTest, AliasMapsIntoItsDirectoryWithoutTrace)
{
    LogCapture logs(8);
    const std::vector<VantrelBase::Net::Tftp::Configuration::HomePathSetting> homes = {{"/", "/srv/d"},
                                                                                        {"/cfg", "/etc/c"}};
    EXPECT_EQ(MapWith(homes, "/cfg/x.xml"), "/etc/c/x.xml");
    EXPECT_EQ(logs.IndexOf("Alias not found, home: /srv/d, /cfg/x.xml"), -1);
    EXPECT_EQ(MapWith(homes, "cfg/x.xml"), "/etc/c/x.xml") << "the leading slash is added before matching";
    EXPECT_EQ(MapWith(homes, "cfg\\sub\\x.xml"), "/etc/c/sub/x.xml");
}

TEST(TftpServerSettingsTest, AliasIsAPlainTextPrefix)
{
    // Deliberately no check for a slash behind the alias.
    EXPECT_EQ(MapWith({{"/log", "/var/l"}}, "/logbook.txt"), "/var/l/book.txt");
    EXPECT_EQ(MapWith({{"/Log", "/var/l"}, {"/", "/d"}}, "/log/x"), "/d/log/x") << "case-sensitive";
}

TEST(TftpServerSettingsTest, FirstMatchingAliasWinsAndLastDefaultBeforeItCounts)
{
    EXPECT_EQ(MapWith({{"/a", "/one"}, {"/ab", "/two"}}, "/abc"), "/one/bc");
    EXPECT_EQ(MapWith({{"/ab", "/two"}, {"/a", "/one"}}, "/abc"), "/two/c");
    EXPECT_EQ(MapWith({{"/", "/first"}, {"/", "/second"}}, "f"), "/second/f");
    EXPECT_EQ(MapWith({{"/", "/first"}, {"/x", "/alias"}, {"/", "/later"}}, "/y"), "/later/y");
}

TEST(TftpServerSettingsTest, NoHomeLeavesTheNormalizedPath)
{
    LogCapture logs(8);
    EXPECT_EQ(MapWith({}, "dir\\f.bin"), "/dir/f.bin");
    EXPECT_TRUE(logs.Contains("Alias not found, home: , /dir/f.bin"));
    EXPECT_EQ(MapWith({}, ""), "/");
}

TEST(TftpServerSettingsTest, ParentComponentsArePassedOn)
{
    EXPECT_EQ(MapWith({{"/", "/srv"}}, "../etc/passwd"), "/srv/../etc/passwd");
}

} // namespace
