// Tests of the URL value: its parts, malformed text, the empty URL, equality and printing.
#include "Qib/System/Commons/Net/Url.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <gtest/gtest.h>

using Qib::String;
using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::Url;

TEST(UrlTest, PartsAreReadAndPrintedBack)
{
    struct Case
    {
        const char* text;
        const char* scheme;
        const char* host;
        unsigned int port;
        const char* path;
    };
    const Case cases[] = {{"tls://10.0.0.1:41100", "tls", "10.0.0.1", 41100, ""},
                          {"http://controller.local", "http", "controller.local", 0, ""},
                          {"http://host_1:8080/api/v1", "http", "host_1", 8080, "/api/v1"},
                          {"svn+ssh://h/x", "svn+ssh", "h", 0, "/x"},
                          {"tls://h:65535", "tls", "h", 65535, ""}};
    for (const Case& url : cases)
    {
        const Url parsed = Url::Parse(url.text);
        EXPECT_EQ(parsed.GetScheme(), String(url.scheme)) << url.text;
        EXPECT_EQ(parsed.GetHost(), String(url.host)) << url.text;
        EXPECT_EQ(parsed.GetPort(), url.port) << url.text;
        EXPECT_EQ(parsed.GetPath(), String(url.path)) << url.text;
        EXPECT_EQ(parsed.ToString(), String(url.text));
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

TEST(UrlTest, EqualityComparesEveryPartAndTheEmptyUrlPrintsAsNothing)
{
    EXPECT_EQ(Url(), Url::Empty);
    EXPECT_EQ(Url::Empty.ToString(), String(""));
    EXPECT_EQ(Url::Parse("tls://h:1/p"), Url::Parse("tls://h:1/p"));
    for (const char* other : {"tcp://h:1/p", "tls://g:1/p", "tls://h:2/p", "tls://h:1/q", "tls://h:1"})
    {
        EXPECT_NE(Url::Parse("tls://h:1/p"), Url::Parse(other)) << other;
        EXPECT_FALSE(Url::Parse("tls://h:1/p") == Url::Parse(other)) << other;
    }
    EXPECT_NE(Url::Parse("tls://h"), Url::Empty);
}
