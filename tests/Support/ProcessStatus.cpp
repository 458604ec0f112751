// Counts of this process's threads and open file descriptors.
#include "Support/ProcessStatus.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include <dirent.h>
#include <pthread.h>
#include <signal.h>

#include <thread>

namespace VantrelTest
{

namespace
{

using Qib::System::Commons::Diagnostics::Logging::LogManager;

std::size_t CountEntries(const char* folder)
{
    std::size_t count = 0;
    DIR* directory = ::opendir(folder);
    if (directory == nullptr)
    {
        return 0;
    }
    while (const dirent* entry = ::readdir(directory))
    {
        if (entry->d_name[0] != '.')
        {
            ++count;
        }
    }
    ::closedir(directory);
    return count;
}

} // namespace

std::size_t CountThreads()
{
    // The log writer comes and goes with records; it is ended first, so that only the threads under
    // test are counted.
    LogManager::Flush();
    return CountEntries("/proc/self/task");
}

std::size_t CountOpenDescriptors()
{
    // The directory stream itself holds one descriptor while it is read.
    return CountEntries("/proc/self/fd") - 1;
}

const std::vector<int>& AsynchronousSignals()
{
    static const std::vector<int> signals{SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGALRM};
    return signals;
}

bool IsBlockedHere(int signal)
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

std::size_t WaitForThreadCount(std::size_t expected, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::size_t count = CountThreads();
    while (count > expected && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        count = CountThreads();
    }
    return count;
}

} // namespace VantrelTest
