// Tests of the one-instance holder.
#include "Qib/Singleton.hpp"

#include "Support/ExceptionMessage.hpp"

#include <gtest/gtest.h>

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

TEST(SingletonTest, HoldsOneInstanceFromCreationToDisposal)
{
    EXPECT_EQ(VantrelTest::ErrorOf([] { Service::GetInstance(); }),
              "Singleton instance of type 'SingletonSamples.Service' was not created yet!");
    Service& created = Service::CreateInstance(7);
    EXPECT_EQ(&Service::GetInstance(), &created);
    EXPECT_THROW(Service::CreateInstance(2), Qib::Exception);
    EXPECT_EQ(Service::GetInstance().value, 7);
    Service::DisposeInstance();
    EXPECT_FALSE(Service::IsCreated());
    Service::DisposeInstance(); // disposing an empty holder does nothing
}
