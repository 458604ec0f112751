// Tests of the URL value: its parts, malformed text, the empty URL and printing.
#include "Qib/System/Commons/Net/Url.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <gtest/gtest.h>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::Url;

TEST(UrlTest, PartsOfAFullUrl)
{
    const Url url = Url::Parse("tls://10.0.0.1:41100");
    EXPECT_EQ(url.GetScheme(), String("tls"));
    EXPECT_EQ(url.GetHost(), String("10.0.0.1"));
    EXPECT_EQ(url.GetPort(), 41100U);
    EXPECT_EQ(url.GetPath(), String(""));
}

TEST(UrlTest, PortAndPathAreOptional)
{
    const Url plain = Url::Parse("http://controller.local");
    EXPECT_EQ(plain.GetHost(), String("controller.local"));
    EXPECT_EQ(plain.GetPort(), 0U);

    const Url withPath = Url::Parse("http://host_1:8080/api/v1");
    EXPECT_EQ(withPath.GetHost(), String("host_1"));
    EXPECT_EQ(withPath.GetPort(), 8080U);
    EXPECT_EQ(withPath.GetPath(), String("/api/v1"));
}

TEST(UrlTest, ToStringRoundTrips)
{
    for (const char* text : {"tls://10.0.0.1:41100", "http://controller.local", "http://h:1/a/b", "svn+ssh://h/x",
                             "tls://h:65535"})
    {
        EXPECT_EQ(Url::Parse(text).ToString(), String(text));
        EXPECT_EQ(Url::Parse(Url::Parse(text).ToString()), Url::Parse(text));
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

TEST(UrlTest, EmptyIsTheDefaultAndPrintsAsNothing)
{
    EXPECT_EQ(Url(), Url::Empty);
    EXPECT_EQ(Url::Empty.ToString(), String(""));
    EXPECT_EQ(Url::Empty.GetPort(), 0U);
    EXPECT_NE(Url::Parse("tls://h"), Url::Empty);
}

TEST(UrlTest, EqualityComparesEveryPart)
{
    EXPECT_EQ(Url::Parse("tls://h:1/p"), Url::Parse("tls://h:1/p"));
    EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse("tcp://h:1/p"));
    EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse("tls://g:1/p"));
    EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse("tls://h:2/p"));
    EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse("tls://h:1/q"));
}
