// Tests of the URL value: its parts, malformed text, the empty URL and equality.
#include "Qib/System/Commons/Net/Url.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::Url;

TEST(UrlTest, PartsAreReadAndPrintedBackAndEveryPartCountsForEquality)
{
    using Parts = std::tuple<String, String, unsigned int, String>;
    const std::pair<const char*, Parts> cases[] = {{"http://controller.local", {"http", "controller.local", 0, ""}},
                                                   {"http://host_1:8080/api/v1", {"http", "host_1", 8080, "/api/v1"}},
                                                   {"svn+ssh://h:65535/x", {"svn+ssh", "h", 65535, "/x"}}};
    for (const auto& [text, parts] : cases)
    {
        const Url url = Url::Parse(text);
        EXPECT_EQ(Parts(url.GetScheme(), url.GetHost(), url.GetPort(), url.GetPath()), parts) << text;
        EXPECT_EQ(url.ToString(), String(text));
    }
    EXPECT_EQ(Url::Empty.ToString(), String(""));
    for (const char* other : {"tcp://h:1/p", "tls://g:1/p", "tls://h:2/p", "tls://h:1/q", "tls://h:1"})
    {
        EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse(other)) << other;
    }
}

TEST(UrlTest, MalformedTextIsRefused)
{
    for (const char* text : {"", "10.0.0.1:41100", "tls:/10.0.0.1", "tls://", "://host", "1tls://host", "tl s://host",
                             "tls://:41100", "tls://host:", "tls://host:0", "tls://host:65536", "tls://host:123456",
                             "tls://host:12a", "tls://host:-1", "tls://ho st", "tls://host:1:2", "tls://host/a b",
                             "tls://host/a\tb"})
    {
        EXPECT_THROW(Url::Parse(text), InvalidFormatException) << "'" << text << "'";
    }
}
