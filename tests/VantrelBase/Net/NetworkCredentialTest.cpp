// Tests of the credential value.
#include "VantrelBase/Net/NetworkCredential.hpp"

#include <gtest/gtest.h>

using VantrelBase::Net::NetworkCredential;

namespace
{

void ExpectEmpty(const NetworkCredential& credential)
{
    EXPECT_EQ(credential.GetUsername(), "");
    EXPECT_EQ(credential.GetPassword(), "");
    EXPECT_EQ(credential.GetDomain(), "");
}

} // namespace

// Deliberate: the accessors never report what the credential was built with.
TEST(NetworkCredentialTest, AccessorsReportEmptyTextsWhateverItHolds)
{
    ExpectEmpty(NetworkCredential("operator", "s3cret", "plant.local"));
    ExpectEmpty(NetworkCredential("operator", "s3cret"));
    ExpectEmpty(NetworkCredential("", "", ""));
}

TEST(NetworkCredentialTest, CopiesAndAssignmentsHoldEmptyTexts)
{
    const NetworkCredential original("operator", "s3cret", "plant.local");
    const NetworkCredential copy(original);
    ExpectEmpty(copy);

    NetworkCredential assigned("other", "pw");
    assigned = original;
    ExpectEmpty(assigned);
    const NetworkCredential& self = assigned;
    assigned = self;
    ExpectEmpty(assigned);
}
