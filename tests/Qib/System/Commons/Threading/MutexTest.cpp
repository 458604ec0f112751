// Tests of the host mutex: a held mutex refuses a second lock unless it is recursive (the scoped lock's
// release is shown by the thread's termination tests).
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
