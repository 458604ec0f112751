// Holds off asynchronous signals on the calling thread while new threads are created.
#include "Qib/System/Commons/Threading/AsynchronousSignalBlock.hpp"

#include <pthread.h>

#include <initializer_list>

namespace Qib::System::Commons::Threading
{

AsynchronousSignalBlock::AsynchronousSignalBlock()
{
    sigset_t asynchronous;
    sigfillset(&asynchronous);
    for (const int synchronous : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
    {
        sigdelset(&asynchronous, synchronous);
    }
    pthread_sigmask(SIG_BLOCK, &asynchronous, &previous);
}

AsynchronousSignalBlock::~AsynchronousSignalBlock()
{
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

} // namespace Qib::System::Commons::Threading
