// Tests of the host mutex's recursion (exclusion of other threads is shown by every concurrent test
// and by the thread's termination tests).
#include "Qib/System/Commons/Threading/Mutex.hpp"

#include <gtest/gtest.h>

using Qib::System::Commons::Threading::Mutex;

TEST(MutexTest, OnlyARecursiveMutexLetsItsOwnerLockItAgain)
{
    for (const bool recursive : {true, false})
    {
        Mutex mutex(recursive);
        Mutex::ScopedLock lock(mutex);
        EXPECT_EQ(mutex.TryLock(), recursive);
        if (recursive)
        {
            mutex.Unlock();
        }
    }
}
