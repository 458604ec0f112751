// Tests of what a reload restarts: every setting of a server counts, and the line names the changes.
#include "ConfigChange.hpp"

#include <gtest/gtest.h>

#include <functional>

using VantrelNetd::BootpHost;
using VantrelNetd::Config;
using VantrelNetd::ConfigChange;
using Qib::System::Commons::Net::IpAddress;

namespace
{

BootpHost Host(const std::string& mac, const std::string& ip)
{
    return {mac, IpAddress::Parse(Qib::String(ip)), "", {}, ""};
}

Config Running()
{
    Config config;
    config.Tftp.Enabled = true;
    config.Tftp.HomePaths = {{"/", "/srv/tftp"}};
    config.Bootp.Enabled = true;
    config.Bootp.Hosts = {Host("02:00:00:00:00:01", "10.77.0.2"), Host("02:00:00:00:00:02", "10.77.0.3")};
    return config;
}

} // namespace

TEST(ConfigChangeTest, RestartsExactlyTheServersWhoseSettingsDifferAndSaysWhy)
{
    struct Case
    {
        std::function<void(Config&)> edit;
        std::string line;
    };
    const Case cases[] = {
        {[](Config&) {}, "bootp unchanged; tftp unchanged"},
        {[](Config& c) { c.Bootp.Hosts.push_back(Host("02:00:00:00:00:03", "10.77.0.4")); c.Bootp.BootFile = "x.0"; },
         "bootp: 1 host added, boot file changed; tftp unchanged"},
        // Where an entry stands in the file (its key) is no setting.
        {[](Config& c) {
             c.Bootp.Hosts.erase(c.Bootp.Hosts.begin());
             c.Bootp.Hosts[0] = {c.Bootp.Hosts[0].MacAddress, IpAddress::Parse("10.77.0.9"), "moved", {}, ""};
         },
         "bootp: 1 host removed, 1 host changed; tftp unchanged"},
        {[](Config& c) { std::swap(c.Bootp.Hosts[0], c.Bootp.Hosts[1]); }, "bootp: hosts reordered; tftp unchanged"},
        {[](Config& c) { c.Tftp.HomePaths[0].Path = "/srv/other"; c.Tftp.Retries = 3; c.Bootp.Timeout = 50; },
         "bootp: timeout changed; tftp: homes changed, retries changed"},
        {[](Config& c) { c.Tftp.Enabled = false; c.Logging.Level = 3; },
         "bootp unchanged; tftp: stopped; logging: level changed"},
    };
    for (const Case& item : cases)
    {
        Config next = Running();
        item.edit(next);
        const ConfigChange change(Running(), next);
        EXPECT_EQ(change.Describe(), item.line);
        EXPECT_EQ(change.BootpChanged(), item.line.rfind("bootp unchanged", 0) != 0) << item.line;
        EXPECT_EQ(change.TftpChanged(), item.line.find("tftp unchanged") == std::string::npos) << item.line;
    }
}
