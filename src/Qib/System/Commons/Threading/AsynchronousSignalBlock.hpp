// Holds off asynchronous signals on the calling thread while new threads are created.
#pragma once

#include "Qib/QibExport.hpp"

#include <signal.h>

namespace Qib::System::Commons::Threading
{

/// Blocks every asynchronous signal on the calling thread for the object's lifetime and restores
/// the thread's previous mask afterwards. Threads created meanwhile inherit the blocked set, so a
/// signal sent to the process never interrupts their system calls (a `select` that fails with
/// EINTR, for example); it waits for a thread that takes it. Signals the hardware raises for the
/// thread itself (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS) stay open.
class QIB_EXPORT AsynchronousSignalBlock
{
public:
    AsynchronousSignalBlock();
    ~AsynchronousSignalBlock();
    AsynchronousSignalBlock(const AsynchronousSignalBlock&) = delete;
    AsynchronousSignalBlock& operator=(const AsynchronousSignalBlock&) = delete;

private:
    sigset_t previous{};
};

} // namespace Qib::System::Commons::Threading
