// Measures how many passes per second the TFTP engine's main loop can make on this machine when a
// datagram always waits: one receive and two 1 ms pauses, on a platform thread, as the engine runs
// them during a transfer. Each pass first sends itself the datagram it receives, standing in for the
// client's acknowledgement; that send (a few microseconds) is counted in the pass.
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
    bool received = true;
    Threading::Thread thread(Threading::ThreadSettings("PassCeiling", 1), [&](void*) {
        Net::Socket socket(Net::SocketType::Datagram, Net::SocketDomain::Ipv4, Net::SocketBlockingMode::NonBlocking);
        const Net::IpAddress loopback = Net::IpAddress::Parse("127.0.0.1");
        socket.Bind(loopback, 0);
        const int self = socket.GetLocalPort();
        static unsigned char buffer[65528];
        const unsigned char ack[4] = {0, 4, 0, 1};
        Net::IpAddress address;
        int port = 0;
        Net::SocketError error = Net::SocketError::Success;
        const auto start = std::chrono::steady_clock::now();
        do
        {
            socket.SendTo(ack, sizeof(ack), loopback, self, error);
            received = received && socket.ReceiveFrom(buffer, sizeof(buffer) - 1, address, port, error) == 4;
            Threading::Thread::Sleep(1);
            Threading::Thread::Sleep(1);
            ++passes;
            elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        } while (elapsed < seconds);
    }, nullptr);
    Threading::Thread::SetJoinLimit(static_cast<unsigned long>(seconds * 1000) + 5000);
    thread.Start();
    thread.Join();
    if (!received || passes == 0)
    {
        std::fprintf(stderr, "a pass found no datagram waiting\n");
        return 1;
    }
    std::printf("%.1f\n", static_cast<double>(passes) / elapsed);
    return 0;
}
