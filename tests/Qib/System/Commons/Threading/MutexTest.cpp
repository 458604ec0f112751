// Tests of the host mutex: recursion and exclusion between threads.
#include "Qib/System/Commons/Threading/Mutex.hpp"

#include <gtest/gtest.h>

#include <thread>

using Qib::System::Commons::Threading::Mutex;

TEST(MutexTest, RecursiveMutexCanBeRelockedByItsOwner)
{
    Mutex mutex(true);
    Mutex::ScopedLock outer(mutex);
    ASSERT_TRUE(mutex.TryLock());
    {
        Mutex::ScopedLock inner(mutex);
    }
    mutex.Unlock();
    bool otherGotIt = true;
    std::thread other([&] { otherGotIt = mutex.TryLock(); });
    other.join();
    EXPECT_FALSE(otherGotIt);
}

TEST(MutexTest, PlainMutexRefusesASecondLockByItsOwner)
{
    Mutex mutex(false);
    Mutex::ScopedLock lock(mutex);
    EXPECT_FALSE(mutex.TryLock());
}

TEST(MutexTest, ScopedLockReleasesAtEndOfScope)
{
    Mutex mutex(false);
    {
        Mutex::ScopedLock lock(mutex);
    }
    bool otherGotIt = false;
    std::thread other([&] {
        otherGotIt = mutex.TryLock();
        if (otherGotIt)
        {
            mutex.Unlock();
        }
    });
    other.join();
    EXPECT_TRUE(otherGotIt);
}

TEST(MutexTest, LockSerialisesIncrements)
{
    Mutex mutex(false);
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i)
        {
            Mutex::ScopedLock lock(mutex);
            ++counter;
        }
    };
    std::thread a(work);
    std::thread b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 40000);
}
