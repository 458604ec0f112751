// Tests of the one-instance holder.
#include "Qib/Singleton.hpp"

#include <gtest/gtest.h>

#include <string>

namespace SingletonSamples
{
class Service : public Qib::Singleton<Service>
{
public:
    explicit Service(int value) : value(value) {}
    int value;
};
} // namespace SingletonSamples

using SingletonSamples::Service;

namespace
{
// Leaves the holder empty for the next test, whatever the test did.
struct SingletonReset
{
    SingletonReset() { Service::DisposeInstance(); }
    ~SingletonReset() { Service::DisposeInstance(); }
};
} // namespace

TEST(SingletonTest, GetInstanceBeforeCreationThrowsNamingTheType)
{
    SingletonReset reset;
    EXPECT_FALSE(Service::IsCreated());
    try
    {
        Service::GetInstance();
        FAIL() << "GetInstance did not throw";
    }
    catch (const Qib::Exception& exception)
    {
        EXPECT_EQ(exception.GetMessage(),
                  "Singleton instance of type 'SingletonSamples.Service' was not created yet!");
    }
}

TEST(SingletonTest, CreatedInstanceIsReturnedByGetInstance)
{
    SingletonReset reset;
    Service& created = Service::CreateInstance(7);
    EXPECT_TRUE(Service::IsCreated());
    EXPECT_EQ(&Service::GetInstance(), &created);
    EXPECT_EQ(Service::pInstance, &created);
    EXPECT_EQ(Service::GetInstance().value, 7);
}

TEST(SingletonTest, SecondCreationThrowsAndKeepsTheFirst)
{
    SingletonReset reset;
    Service& first = Service::CreateInstance(1);
    EXPECT_THROW(Service::CreateInstance(2), Qib::Exception);
    EXPECT_EQ(&Service::GetInstance(), &first);
    EXPECT_EQ(first.value, 1);
}

TEST(SingletonTest, DisposeEmptiesTheHolder)
{
    SingletonReset reset;
    Service::CreateInstance(3);
    Service::DisposeInstance();
    EXPECT_FALSE(Service::IsCreated());
    EXPECT_THROW(Service::GetInstance(), Qib::Exception);
    Service::DisposeInstance(); // disposing an empty holder does nothing
}
