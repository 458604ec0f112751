// The client side of the daemon's control socket, for commands such as `vantrel-netd status`.
#include "ControlClient.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace VantrelNetd
{

namespace
{

// Closes the descriptor on every way out.
struct Descriptor
{
    int value;
    ~Descriptor()
    {
        if (value >= 0)
        {
            ::close(value);
        }
    }
};

[[noreturn]] void FailToConnect(const std::string& path, int error)
{
    if (error == EACCES || error == EPERM)
    {
        throw DaemonExit(NoPrivilege, fmt::format("no permission to use the control socket {} (run as the "
                                                  "daemon's user or root)",
                                                  path));
    }
    throw DaemonExit(PortInUse, fmt::format("no vantrel-netd is running: nothing listens on {} ({})", path,
                                            std::strerror(error)));
}

} // namespace

nlohmann::json ControlClient::Request(const std::string& path, const nlohmann::json& request)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
    {
        throw DaemonExit(BadCommandLine, fmt::format("control socket path {} is too long", path));
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const Descriptor connection{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (connection.value < 0 ||
        ::connect(connection.value, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    {
        FailToConnect(path, errno);
    }
    const timeval limit{5, 0};
    ::setsockopt(connection.value, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    const std::string line = request.dump() + "\n";
    ::send(connection.value, line.data(), line.size(), MSG_NOSIGNAL);
    std::string reply;
    char buffer[4096];
    for (ssize_t count = 0; (count = ::recv(connection.value, buffer, sizeof(buffer), 0)) > 0;)
    {
        reply.append(buffer, static_cast<std::size_t>(count));
    }
    const nlohmann::json parsed = nlohmann::json::parse(reply, nullptr, false);
    if (!parsed.is_object() || !parsed.contains("ok") || !parsed.at("ok").is_boolean())
    {
        throw DaemonExit(ProtocolError, fmt::format("the daemon at {} gave no readable answer", path));
    }
    if (!parsed.at("ok").get<bool>())
    {
        const nlohmann::json& given = parsed.contains("error") ? parsed.at("error") : nlohmann::json("unknown error");
        const std::string error = given.is_string() ? given.get<std::string>() : given.dump();
        const int status = parsed.value("exit_status", 0);
        const ExitStatus exitStatus = status == BadData || status == CannotCreate ? static_cast<ExitStatus>(status)
                                 : error.find("permission denied") != std::string::npos ? NoPrivilege
                                                                                        : RuntimeFailure;
        throw DaemonExit(exitStatus, fmt::format("the daemon at {} refused: {}", path, error));
    }
    return parsed;
}

} // namespace VantrelNetd
