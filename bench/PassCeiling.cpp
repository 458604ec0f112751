// Measures how many empty passes per second the TFTP engine's main loop can make on this machine:
// one non-blocking receive and two 1 ms pauses, on a platform thread, exactly as the engine runs them.
#include "Qib/System/Commons/Net/Socket.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace Qib::System::Commons;

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
    unsigned long passes = 0;
    double elapsed = 0;
    Threading::Thread thread(Threading::ThreadSettings("PassCeiling", 1), [&](void*) {
        Net::Socket socket(Net::SocketType::Datagram, Net::SocketDomain::Ipv4, Net::SocketBlockingMode::NonBlocking);
        socket.Bind(Net::IpAddress(), 0);
        unsigned char buffer[65528];
        Net::IpAddress address;
        int port = 0;
        Net::SocketError error = Net::SocketError::Success;
        const auto start = std::chrono::steady_clock::now();
        do
        {
            socket.ReceiveFrom(buffer, sizeof(buffer) - 1, address, port, error);
            Threading::Thread::Sleep(1);
            Threading::Thread::Sleep(1);
            ++passes;
            elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        } while (elapsed < seconds);
    }, nullptr);
    Threading::Thread::SetJoinLimit(static_cast<unsigned long>(seconds * 1000) + 5000);
    thread.Start();
    thread.Join();
    std::printf("%.1f\n", static_cast<double>(passes) / elapsed);
    return 0;
}
