// Abstract threaded server: a named main thread running start-up, a 1 ms polling loop and shut-down.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "VantrelBase/Core/Os/Threading/ThreadPool.hpp"
#include "VantrelBase/Net/IServer.hpp"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VantrelBase::Net
{

/// Base of the library's threaded servers. Start and Stop are meant for one controlling thread at a
/// time. The loop flag is deliberately never raised, so Stop ends the main thread by a bounded join
/// followed by termination: derived classes must not rely on ShutDown or the stopped callbacks at Stop.
class VANTRELBASE_NET_EXPORT ServerBase : public IServer,
                                          private Qib::System::Commons::Diagnostics::Logging::Loggable<ServerBase>
{
public:
    /// Called in order on the main thread after StartUp, before the work loop.
    std::vector<std::function<void(IServer&)>> startedCallbacks;
    /// Called in order on the main thread after ShutDown, as the thread's last act.
    std::vector<std::function<void(IServer&)>> stoppedCallbacks;

    /// The four pool values are handed unchanged to the worker pool.
    ServerBase(const std::string& name, unsigned long poolThreads, unsigned long poolQueue, unsigned long poolReserved1,
               unsigned long poolReserved2);
    /// Releases the main thread object without stopping it: a derived class stops its own thread.
    ~ServerBase() override;

    std::string GetName() override;
    void Start() override;
    void Stop() override;
    bool IsRunning() override;

protected:
    virtual void StartUp();
    virtual void ShutDown();
    /// One pass of the server's work.
    virtual void MainThreadWorker() = 0;

    VantrelBase::Core::Os::Threading::ThreadPool threadPool;

private:
    void MainThread(void* argument);
    void NotifyAll(const std::vector<std::function<void(IServer&)>>& callbacks);

    std::string name;
    std::shared_ptr<Qib::System::Commons::Threading::Thread> mainThread;
    std::atomic<bool> stopRequested{false};
};

} // namespace VantrelBase::Net
