// The daemon's control socket: a Unix stream socket that answers one JSON request per connection.
#include "ControlServer.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace VantrelNetd
{

namespace
{

// A request is one line; the longest, an assignment list, holds a few thousand devices at most.
constexpr std::size_t RequestLimit = 1024 * 1024;

sockaddr_un AddressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
    {
        throw DaemonExit(CannotCreate, fmt::format("control socket path {} is longer than {} characters", path,
                                                   sizeof(address.sun_path) - 1));
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

bool SomeoneListens(const sockaddr_un& address)
{
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool listening =
        probe >= 0 && ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    if (probe >= 0)
    {
        ::close(probe);
    }
    return listening;
}

void SendLine(int connection, const nlohmann::json& reply)
{
    const std::string text = reply.dump() + "\n";
    std::size_t sent = 0;
    while (sent < text.size())
    {
        const ssize_t count = ::send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
        {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

} // namespace

std::string ControlServer::DefaultPath(const std::string& configFile)
{
    if (::geteuid() == 0)
    {
        return "/run/vantrel-netd.sock";
    }
    if (configFile.empty())
    {
        return (std::filesystem::current_path() / "vantrel-netd.sock").string();
    }
    return (std::filesystem::absolute(configFile).parent_path() / "vantrel-netd.sock").string();
}

ControlServer::ControlServer(const std::string& path) : path(path), owner(::geteuid())
{
    const sockaddr_un address = AddressOf(path);
    if (SomeoneListens(address))
    {
        throw DaemonExit(PortInUse, fmt::format("control socket {} is in use: another vantrel-netd runs (give "
                                                "[control] socket another path)",
                                                path));
    }
    ::unlink(path.c_str());
    listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // Owner-only from its creation on: no other user can connect between bind and chmod.
    const mode_t previous = ::umask(0177);
    const bool bound = listener >= 0 && ::bind(listener, reinterpret_cast<const sockaddr*>(&address),
                                               sizeof(address)) == 0;
    const int error = errno;
    ::umask(previous);
    struct stat status
    {
    };
    if (!bound || ::listen(listener, 8) != 0 || ::stat(path.c_str(), &status) != 0 || ::pipe2(stopPipe, O_CLOEXEC) != 0)
    {
        const std::string reason = std::strerror(bound ? errno : error);
        if (listener >= 0)
        {
            ::close(listener);
        }
        throw DaemonExit(CannotCreate, fmt::format("cannot create control socket {}: {}", path, reason));
    }
    inode = status.st_ino;
    folder = ::open(std::filesystem::path(path).parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

ControlServer::~ControlServer()
{
    if (worker.joinable())
    {
        const char stop = 0;
        [[maybe_unused]] const ssize_t written = ::write(stopPipe[1], &stop, 1);
        worker.join();
    }
    ::close(listener);
    ::close(stopPipe[0]);
    ::close(stopPipe[1]);
    // Only our own socket file: another daemon may have taken the path since.
    const std::string name = std::filesystem::path(path).filename().string();
    struct stat status
    {
    };
    if (folder >= 0 && ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_ino == inode)
    {
        ::unlinkat(folder, name.c_str(), 0);
    }
    if (folder >= 0)
    {
        ::close(folder);
    }
}

void ControlServer::Start(Handler newHandler)
{
    handler = std::move(newHandler);
    worker = std::thread([this] { Serve(); });
}

void ControlServer::Serve()
{
    for (;;)
    {
        pollfd watched[2] = {{listener, POLLIN, 0}, {stopPipe[0], POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0)
        {
            continue; // interrupted (the user switch signals every thread); wait again
        }
        if (watched[1].revents != 0)
        {
            return;
        }
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
        {
            Answer(connection);
            ::close(connection);
        }
    }
}

void ControlServer::Answer(int connection)
{
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 ||
        (peer.uid != 0 && peer.uid != owner && peer.uid != ::geteuid()))
    {
        SendLine(connection, {{"ok", false}, {"error", "permission denied: only the daemon's user and root"}});
        return;
    }
    // A client gets one second to send its request; the daemon answers nobody else meanwhile.
    const timeval limit{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    std::string request;
    char buffer[4096];
    while (request.find('\n') == std::string::npos && request.size() < RequestLimit)
    {
        const ssize_t count = ::recv(connection, buffer, sizeof(buffer), 0);
        if (count <= 0)
        {
            break;
        }
        request.append(buffer, static_cast<std::size_t>(count));
    }
    const nlohmann::json parsed = nlohmann::json::parse(request.substr(0, request.find('\n')), nullptr, false);
    if (!parsed.is_object() || !parsed.contains("command"))
    {
        SendLine(connection, {{"ok", false}, {"error", "not a request: send {\"command\": \"status\"} on one line"}});
        return;
    }
    try
    {
        nlohmann::json reply = handler(parsed);
        reply["ok"] = !reply.contains("error");
        SendLine(connection, reply);
    }
    catch (const std::exception& error)
    {
        log.Error("Control request {0} failed: {1}", parsed.dump(), error.what());
        SendLine(connection, {{"ok", false}, {"error", error.what()}});
    }
}

} // namespace VantrelNetd
