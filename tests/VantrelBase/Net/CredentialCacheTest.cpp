// Tests of the credential store: keys, invariants and the failure messages.
#include "VantrelBase/Net/CredentialCache.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using Qib::System::Commons::ArgumentException;
using VantrelBase::Net::CredentialCache;
using VantrelBase::Net::NetworkCredential;

namespace
{

const NetworkCredential Basic("operator", "s3cret");

// The message of the ArgumentException `operation` throws; a test failure when it throws none.
std::string ArgumentMessage(const std::function<void()>& operation)
{
    try
    {
        operation();
    }
    catch (const ArgumentException& exception)
    {
        return exception.GetMessage();
    }
    ADD_FAILURE() << "no ArgumentException thrown";
    return std::string();
}

// Checks that `message` was the one record written, at debug level, by the cache's logger.
void ExpectOnlyDebugRecord(const VantrelTest::LogCapture& capture, const std::string& message)
{
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Message, message);
    EXPECT_EQ(records[0].Level, 7);
    EXPECT_EQ(records[0].LoggerName, "VantrelBase.Net.CredentialCache");
}

} // namespace

TEST(CredentialCacheTest, CredentialsAreKeyedByDeviceAndType)
{
    VantrelTest::LogCapture capture;
    CredentialCache cache;
    cache.Add("10.77.0.5", "basic", Basic);
    cache.Add("10.77.0.5", "digest", Basic);
    cache.Add("plc-7", "basic", Basic);
    cache.Add("", "", Basic); // keys are free text

    EXPECT_TRUE(cache.HasCredential("10.77.0.5", "basic"));
    EXPECT_TRUE(cache.HasCredential("10.77.0.5", "digest"));
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic"));
    EXPECT_TRUE(cache.HasCredential("", ""));
    EXPECT_FALSE(cache.HasCredential("plc-7", "digest"));
    EXPECT_FALSE(cache.HasCredential("10.77.0.6", "basic"));
    EXPECT_FALSE(cache.HasCredential("10.77.0.5", "Basic"));

    // Deliberate: a stored credential is a copy, and copies report empty texts.
    const NetworkCredential found = cache.GetCredential("10.77.0.5", "digest");
    EXPECT_EQ(found.GetUsername(), "");
    EXPECT_EQ(found.GetPassword(), "");
    EXPECT_EQ(found.GetDomain(), "");
    EXPECT_TRUE(capture.Records().empty()) << "successful operations and misses of HasCredential log nothing";
}

TEST(CredentialCacheTest, AddingTwiceThrowsAndKeepsOneCredential)
{
    CredentialCache cache;
    cache.Add("10.77.0.5", "basic", Basic);
    VantrelTest::LogCapture capture;

    EXPECT_EQ(ArgumentMessage([&] { cache.Add("10.77.0.5", "basic", NetworkCredential("x", "y")); }),
              "Credential already exists: device=10.77.0.5, authType=basic");
    ExpectOnlyDebugRecord(capture, "Credential already exists: device=10.77.0.5, authType=basic");

    // Exactly one credential: removing it empties the device, so the device is gone too.
    cache.Remove("10.77.0.5", "basic");
    EXPECT_FALSE(cache.HasCredential("10.77.0.5", "basic"));
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("10.77.0.5"); }), "Credential not found: device=10.77.0.5");
}

TEST(CredentialCacheTest, RemovingTheLastCredentialRemovesTheDevice)
{
    CredentialCache cache;
    cache.Add("plc-7", "basic", Basic);
    cache.Add("plc-7", "digest", Basic);

    cache.Remove("plc-7", "basic");
    EXPECT_TRUE(cache.HasCredential("plc-7", "digest")) << "the device keeps its other credential";
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-7", "basic"); }),
              "Credential not found (unknown authType): device=plc-7, authType=basic");

    cache.Remove("plc-7", "digest");
    VantrelTest::LogCapture capture;
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-7"); }), "Credential not found: device=plc-7");
    ExpectOnlyDebugRecord(capture, "Credential not found: device=plc-7");
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-7", "digest"); }),
              "Credential not found (unknown device): device=plc-7, authType=digest");
}

TEST(CredentialCacheTest, RemovingADeviceDropsAllItsCredentialsOnly)
{
    CredentialCache cache;
    cache.Add("plc-7", "basic", Basic);
    cache.Add("plc-7", "digest", Basic);
    cache.Add("plc-8", "basic", Basic);

    cache.Remove("plc-7");
    EXPECT_FALSE(cache.HasCredential("plc-7", "basic"));
    EXPECT_FALSE(cache.HasCredential("plc-7", "digest"));
    EXPECT_TRUE(cache.HasCredential("plc-8", "basic"));
    cache.Add("plc-7", "basic", Basic); // the pair is free again
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic"));
}

TEST(CredentialCacheTest, RemoveOfOneCredentialNamesBothKeys)
{
    CredentialCache cache;
    cache.Add("plc-7", "basic", Basic);
    {
        VantrelTest::LogCapture capture;
        EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-9", "basic"); }),
                  "Credential not found (unknown device): device=plc-9, authType=basic");
        ExpectOnlyDebugRecord(capture, "Credential not found (unknown device): device=plc-9, authType=basic");
    }
    {
        VantrelTest::LogCapture capture;
        EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-7", "digest"); }),
                  "Credential not found (unknown authType): device=plc-7, authType=digest");
        ExpectOnlyDebugRecord(capture, "Credential not found (unknown authType): device=plc-7, authType=digest");
    }
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic")) << "failed removals change nothing";
}

// Deliberate: GetCredential throws fixed texts while logging the keys, unlike Remove.
TEST(CredentialCacheTest, GetCredentialThrowsFixedTextsAndLogsTheKeys)
{
    CredentialCache cache;
    cache.Add("plc-7", "basic", Basic);
    {
        VantrelTest::LogCapture capture;
        EXPECT_EQ(ArgumentMessage([&] { cache.GetCredential("plc-9", "basic"); }), "Device address not found");
        ExpectOnlyDebugRecord(capture, "Credential not found (unknown device): device=plc-9, authType=basic");
    }
    {
        VantrelTest::LogCapture capture;
        EXPECT_EQ(ArgumentMessage([&] { cache.GetCredential("plc-7", "digest"); }), "Authentication type not found");
        ExpectOnlyDebugRecord(capture, "Credential not found (unknown authType): device=plc-7, authType=digest");
    }
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic"));
    EXPECT_FALSE(cache.HasCredential("plc-9", "basic")) << "a failed lookup creates no device";
}

TEST(CredentialCacheTest, FailuresThrowEvenWhenDebugIsOff)
{
    CredentialCache cache;
    VantrelTest::LogCapture capture(6);
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-7"); }), "Credential not found: device=plc-7");
    EXPECT_EQ(ArgumentMessage([&] { cache.GetCredential("plc-7", "basic"); }), "Device address not found");
    EXPECT_TRUE(capture.Records().empty());
}

TEST(CredentialCacheTest, BracesInKeysAreNotTemplates)
{
    CredentialCache cache;
    cache.Add("{0}", "{1}", Basic);
    EXPECT_EQ(ArgumentMessage([&] { cache.Add("{0}", "{1}", Basic); }),
              "Credential already exists: device={0}, authType={1}");
}

TEST(CredentialCacheTest, ClearRemovesEverything)
{
    CredentialCache cache;
    cache.Clear();
    EXPECT_FALSE(cache.HasCredential("", ""));
    cache.Add("plc-7", "basic", Basic);
    cache.Add("plc-8", "digest", Basic);
    cache.Clear();
    EXPECT_FALSE(cache.HasCredential("plc-7", "basic"));
    EXPECT_FALSE(cache.HasCredential("plc-8", "digest"));
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("plc-8"); }), "Credential not found: device=plc-8");
    cache.Add("plc-7", "basic", Basic);
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic"));
}
