// Tests of the credential value.
#include "VantrelBase/Net/NetworkCredential.hpp"

#include <gtest/gtest.h>

using VantrelBase::Net::NetworkCredential;

// Deliberate: the accessors never report what the credential was built with, nor do copies.
TEST(NetworkCredentialTest, AccessorsReportEmptyTextsWhateverItHolds)
{
    const NetworkCredential original("operator", "s3cret", "plant.local");
    NetworkCredential assigned("other", "pw");
    assigned = original;
    for (const NetworkCredential& credential : {original, NetworkCredential("operator", "s3cret"), NetworkCredential(original), assigned})
    {
        EXPECT_EQ(credential.GetUsername(), "");
        EXPECT_EQ(credential.GetPassword(), "");
        EXPECT_EQ(credential.GetDomain(), "");
    }
}
