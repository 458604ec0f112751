// Tests of how the TFTP server takes its settings: the time-out rule and the mapping of requested
// paths onto the home folders and aliases.
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"

#include "../TftpTestSupport.hpp"

#include <gtest/gtest.h>

namespace
{

using VantrelBase::Net::Tftp::Configuration::HomePathSetting;
using VantrelTest::Tftp::Settings;
using VantrelTest::Tftp::TestServer;

TEST(TftpServerSettingsTest, TimeoutZeroMeansTenAndLargeValuesAreCapped)
{
    const std::pair<std::uint16_t, std::uint16_t> cases[] = {{0, 10}, {1, 1}, {255, 255}, {256, 255}, {65535, 255}};
    for (const auto& [given, taken] : cases)
    {
        Settings settings;
        settings.Timeout = given;
        settings.ThreadCount = 1;
        EXPECT_EQ(TestServer(settings).GetTimeout(), taken) << "setting " << given;
    }
}

TEST(TftpServerSettingsTest, RequestedPathsMapOntoTheHomeOrTheFirstMatchingAlias)
{
    struct Case
    {
        std::vector<HomePathSetting> homes;
        std::string requested;
        std::string mapped;
    };
    const Case cases[] = {
        {{{"/", "/srv/d"}}, "a\\b\\c.txt", "/srv/d/a/b/c.txt"},
        {{{"/", "/srv/d"}, {"/cfg", "/etc/c"}}, "/cfg/x.xml", "/etc/c/x.xml"},
        {{{"/", "/srv/d"}, {"/cfg", "/etc/c"}}, "cfg\\sub\\x.xml", "/etc/c/sub/x.xml"},
        // Deliberately a plain, case-sensitive text prefix: no slash is needed behind the alias.
        {{{"/log", "/var/l"}}, "/logbook.txt", "/var/l/book.txt"},
        {{{"/Log", "/var/l"}, {"/", "/d"}}, "/log/x", "/d/log/x"},
        {{{"/a", "/one"}, {"/ab", "/two"}}, "/abc", "/one/bc"},
        {{{"/ab", "/two"}, {"/a", "/one"}}, "/abc", "/two/c"},
        {{{"/", "/first"}, {"/", "/second"}}, "f", "/second/f"},
        {{{"/", "/first"}, {"/x", "/alias"}, {"/", "/later"}}, "/y", "/later/y"},
        {{}, "dir\\f.bin", "/dir/f.bin"},
        {{}, "", "/"},
        // Deliberate, and a documented risk: parent components are passed on.
        {{{"/", "/srv"}}, "../etc/passwd", "/srv/../etc/passwd"},
    };
    for (const auto& c : cases)
    {
        Settings settings;
        settings.HomePaths = c.homes;
        settings.ThreadCount = 1;
        EXPECT_EQ(TestServer(settings).GetAbsoluteFilepath(c.requested), c.mapped) << c.requested;
    }
}

} // namespace
