// Tests of the credential value.
#include "VantrelBase/Net/NetworkCredential.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

TEST(NetworkCredentialTest, CopiesMayBeMadeAndDroppedOnAnyThread)
{
    const NetworkCredential shared("operator", "s3cret", "plant.local");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([&shared] {
            for (int i = 0; i < 200; ++i)
            {
                std::vector<NetworkCredential> copies(3, shared);
                copies.erase(copies.begin());
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    ExpectEmpty(shared);
}
