// Tests of the credential store and its credential value: keys, invariants and the failure messages.
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

const NetworkCredential Basic("operator", "s3cret", "plant.local");

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

} // namespace

TEST(CredentialCacheTest, CredentialsAreKeyedByDeviceAndTypeRemovedWithTheirDeviceAndReportEmptyTexts)
{
    VantrelTest::LogCapture capture;
    CredentialCache cache;
    cache.Add("10.77.0.5", "basic", Basic);
    cache.Add("10.77.0.5", "digest", Basic);
    cache.Add("", "", Basic); // keys are free text
    EXPECT_TRUE(cache.HasCredential("10.77.0.5", "digest"));
    EXPECT_TRUE(cache.HasCredential("", ""));
    EXPECT_FALSE(cache.HasCredential("10.77.0.6", "basic"));
    EXPECT_FALSE(cache.HasCredential("10.77.0.5", "Basic"));
    EXPECT_TRUE(capture.Records().empty()) << "successful operations and misses of HasCredential log nothing";

    // Deliberate: a credential, built or copied, stored or assigned, reports empty texts.
    NetworkCredential assigned("other", "pw");
    assigned = Basic;
    for (const NetworkCredential& credential : {Basic, cache.GetCredential("10.77.0.5", "digest"), assigned})
    {
        EXPECT_EQ(credential.GetUsername() + credential.GetPassword() + credential.GetDomain(), "");
    }

    // Removing one credential keeps the device's others; removing its last one removes the device;
    // removing the device drops them all.
    cache.Remove("10.77.0.5", "basic");
    EXPECT_TRUE(cache.HasCredential("10.77.0.5", "digest"));
    cache.Add("10.77.0.6", "basic", Basic);
    cache.Remove("10.77.0.6", "basic");
    EXPECT_EQ(ArgumentMessage([&] { cache.Remove("10.77.0.6"); }), "Credential not found: device=10.77.0.6");
    cache.Remove("10.77.0.5");
    EXPECT_FALSE(cache.HasCredential("10.77.0.5", "digest"));
    cache.Add("10.77.0.5", "digest", Basic); // the pair is free again
    cache.Clear();
    EXPECT_FALSE(cache.HasCredential("10.77.0.5", "digest"));
}

TEST(CredentialCacheTest, EveryFailureThrowsItsTextAndLogsTheKeysAtDebug)
{
    CredentialCache cache;
    cache.Add("plc-7", "basic", Basic);
    cache.Add("{0}", "{1}", Basic);
    struct Failure
    {
        std::function<void()> operation;
        const char* thrown;
        const char* logged; // when not the thrown text
    };
    // Deliberate: GetCredential throws fixed texts while logging the keys, unlike Remove.
    const Failure failures[] = {
        {[&] { cache.Add("plc-7", "basic", Basic); }, "Credential already exists: device=plc-7, authType=basic", ""},
        {[&] { cache.Add("{0}", "{1}", Basic); }, "Credential already exists: device={0}, authType={1}", ""},
        {[&] { cache.Remove("plc-9"); }, "Credential not found: device=plc-9", ""},
        {[&] { cache.Remove("plc-9", "basic"); }, "Credential not found (unknown device): device=plc-9, authType=basic",
         ""},
        {[&] { cache.Remove("plc-7", "digest"); },
         "Credential not found (unknown authType): device=plc-7, authType=digest", ""},
        {[&] { cache.GetCredential("plc-9", "basic"); }, "Device address not found",
         "Credential not found (unknown device): device=plc-9, authType=basic"},
        {[&] { cache.GetCredential("plc-7", "digest"); }, "Authentication type not found",
         "Credential not found (unknown authType): device=plc-7, authType=digest"},
    };
    for (const Failure& failure : failures)
    {
        SCOPED_TRACE(failure.thrown);
        VantrelTest::LogCapture capture;
        EXPECT_EQ(ArgumentMessage(failure.operation), failure.thrown);
        const auto records = capture.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].Message, *failure.logged != '\0' ? failure.logged : failure.thrown);
        EXPECT_EQ(records[0].Level, 7);
        EXPECT_EQ(records[0].LoggerName, "VantrelBase.Net.CredentialCache");
    }
    EXPECT_TRUE(cache.HasCredential("plc-7", "basic")) << "failures change nothing";
    EXPECT_FALSE(cache.HasCredential("plc-9", "basic")) << "a failed lookup creates no device";
}
