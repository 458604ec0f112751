// `vantrel-netd status`: asks the running daemon over its control socket and prints the answer.
#include "StatusCommand.hpp"

#include "ConfigLoader.hpp"
#include "ControlClient.hpp"
#include "ControlServer.hpp"
#include "StatusReport.hpp"

#include <cstdio>

namespace VantrelNetd
{

std::string StatusCommand::SocketPath(const Options& options)
{
    if (!options.SocketPath.empty())
    {
        return options.SocketPath;
    }
    if (!options.ConfigFile.empty())
    {
        const Config config = ConfigLoader::LoadFile(options.ConfigFile);
        if (!config.Control.Socket.empty())
        {
            return config.Control.Socket;
        }
    }
    return ControlServer::DefaultPath(options.ConfigFile);
}

int StatusCommand::Run(const Options& options)
{
    nlohmann::json reply = ControlClient::Request(SocketPath(options), {{"command", "status"}});
    reply.erase("ok");
    const std::string text = options.Json ? reply.dump(2) + "\n" : StatusReport::Render(reply);
    std::fputs(text.c_str(), stdout);
    return 0;
}

} // namespace VantrelNetd
