// Serves one folder read-only over TFTP (UDP port 69) for a number of seconds, then stops.
//   tftp-serve-folder FOLDER SECONDS
#include "VantrelBase/Net/Tftp/Configuration/TftpServerSettings.hpp"
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: tftp-serve-folder FOLDER SECONDS\n");
        return 64;
    }
    VantrelBase::Net::Tftp::Configuration::TftpServerSettings settings{};
    settings.HomePaths.push_back({"/", argv[1]});
    settings.ReadEnabled = true;
    settings.WriteEnabled = false;
    settings.OverwriteEnabled = false;
    settings.Timeout = 5;
    settings.MaxRetries = 5;
    settings.ThreadCount = 2;

    VantrelBase::Net::Tftp::TftpServer server(settings);
    server.Start();
    std::printf("serving %s\n", argv[1]);
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::seconds(std::atoi(argv[2])));
    server.Stop();
    std::printf("stopped\n");
    return 0;
}
