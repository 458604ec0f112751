// Abstract threaded server: main thread frame, start and stop.
#include "VantrelBase/Net/ServerBase.hpp"

namespace VantrelBase::Net
{

using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;

IServer::~IServer() = default;

ServerBase::ServerBase(const std::string& name, unsigned long poolThreads, unsigned long poolQueue,
                       unsigned long poolReserved1, unsigned long poolReserved2)
    : threadPool(poolThreads, poolQueue, poolReserved1, poolReserved2), name(name)
{
}

ServerBase::~ServerBase()
{
    mainThread.reset();
}

std::string ServerBase::GetName()
{
    return name;
}

bool ServerBase::IsRunning()
{
    return mainThread && mainThread->IsRunning();
}

void ServerBase::Start()
{
    if (mainThread && mainThread->IsRunning())
    {
        Stop();
    }
    log.Info("Attempt to start server {0}", GetName());
    stopRequested = false;
    const ThreadSettings settings(GetName(), 1, 0, 0);
    mainThread = std::make_shared<Thread>(settings, [this](void* argument) { MainThread(argument); }, nullptr);
    // Deliberately acts on the calling thread, not on the new one.
    Thread::SetAsynchronousCancelability(true);
    mainThread->Start();
}

void ServerBase::Stop()
{
    // The same value Start writes: the loop never ends by itself, so stopping rests on termination.
    stopRequested = false;
    if (!mainThread)
    {
        return;
    }
    if (Thread::pCurrentThread == mainThread.get())
    {
        log.Info("Attempt to stop server {0} asynchronously", GetName());
    }
    else
    {
        log.Info("Attempt to stop server {0}", GetName());
        if (mainThread->IsRunning() && mainThread->IsJoinable())
        {
            mainThread->Join();
        }
    }
    if (mainThread->IsRunning())
    {
        mainThread->Terminate();
    }
    mainThread.reset();
}

void ServerBase::StartUp() {}

void ServerBase::ShutDown() {}

void ServerBase::MainThread(void*)
{
    log.Info("Main thread spawned");
    StartUp();
    NotifyAll(startedCallbacks);
    log.Info("Start main thread work");
    while (!stopRequested)
    {
        MainThreadWorker();
        Thread::Sleep(1);
    }
    log.Info("Terminate main thread work");
    ShutDown();
    NotifyAll(stoppedCallbacks);
}

void ServerBase::NotifyAll(const std::vector<std::function<void(IServer&)>>& callbacks)
{
    // By index and by copy, so that a callback may change the list it was called from.
    for (std::size_t i = 0; i < callbacks.size(); ++i)
    {
        const std::function<void(IServer&)> call = callbacks[i];
        call(*this);
    }
}

} // namespace VantrelBase::Net
