// Tests of the host mutex: recursion by its owner and exclusion of other threads.
#include "Qib/System/Commons/Threading/Mutex.hpp"

#include <gtest/gtest.h>

#include <thread>

using Qib::System::Commons::Threading::Mutex;

namespace
{

bool OtherThreadCanLock(Mutex& mutex)
{
    bool locked = false;
    std::thread([&] {
        locked = mutex.TryLock();
        if (locked)
        {
            mutex.Unlock();
        }
    }).join();
    return locked;
}

} // namespace

TEST(MutexTest, OnlyARecursiveMutexLetsItsOwnerRelockAndNoneLetsOthersIn)
{
    for (const bool recursive : {true, false})
    {
        Mutex mutex(recursive);
        {
            Mutex::ScopedLock lock(mutex);
            EXPECT_EQ(mutex.TryLock(), recursive);
            if (recursive)
            {
                mutex.Unlock();
            }
            EXPECT_FALSE(OtherThreadCanLock(mutex));
        }
        EXPECT_TRUE(OtherThreadCanLock(mutex)) << "the scoped lock was not released";
    }
}
