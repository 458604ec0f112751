// Tests of the one-instance holder.
#include "Qib/Singleton.hpp"

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

// The error texts and disposing an empty holder are shown by the network library's tests.
TEST(SingletonTest, HoldsOneInstanceFromCreationToDisposal)
{
    Service& created = Service::CreateInstance(7);
    EXPECT_THROW(Service::CreateInstance(2), Qib::Exception);
    EXPECT_EQ(&Service::GetInstance(), &created);
    EXPECT_EQ(created.value, 7);
    Service::DisposeInstance();
    EXPECT_FALSE(Service::IsCreated());
}
