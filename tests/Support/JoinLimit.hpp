// Sets the host's join limit for one test and restores the default at its end.
#pragma once

#include "Qib/System/Commons/Threading/Thread.hpp"

namespace VantrelTest
{

struct JoinLimit
{
    explicit JoinLimit(unsigned long milliseconds)
    {
        Qib::System::Commons::Threading::Thread::SetJoinLimit(milliseconds);
    }
    ~JoinLimit() { Qib::System::Commons::Threading::Thread::SetJoinLimit(1000); }
    JoinLimit(const JoinLimit&) = delete;
    JoinLimit& operator=(const JoinLimit&) = delete;
};

} // namespace VantrelTest
