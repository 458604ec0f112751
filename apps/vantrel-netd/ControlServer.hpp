// The daemon's control socket: a Unix stream socket that answers one JSON request per connection.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <nlohmann/json.hpp>

#include <sys/types.h>

#include <functional>
#include <string>
#include <thread>

namespace VantrelNetd
{

/// The protocol: a client connects, writes one JSON object on one line ({"command": "status"}) and
/// reads one JSON object on one line: {"ok": true, ...the command's fields} or {"ok": false,
/// "error": "one line"}; then the daemon closes the connection. Only the socket's owner and root may
/// connect (mode 0600, and the peer's user checked). Built on the main thread; Start runs the
/// answering thread; the destructor stops it and removes the socket file.
class ControlServer : private Qib::System::Commons::Diagnostics::Logging::Loggable<ControlServer>
{
public:
    using Handler = std::function<nlohmann::json(const nlohmann::json& request)>;

    /// Creates and listens on `path`, replacing a stale socket file that nothing listens on. Throws
    /// DaemonExit: 69 when a daemon already listens there, 73 when the socket cannot be created.
    explicit ControlServer(const std::string& path);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// Answers requests with `handler` on a thread of its own, until destruction.
    void Start(Handler handler);

    const std::string& GetPath() const { return path; }

    /// The default path: /run/vantrel-netd.sock for root, else beside the config file (or in the
    /// current folder without one).
    static std::string DefaultPath(const std::string& configFile);

private:
    void Serve();
    void Answer(int connection);

    std::string path;
    int listener = -1;
    int stopPipe[2] = {-1, -1};
    ino_t inode = 0;
    /// The socket's folder, opened at creation: the file is removed through it also once the daemon's
    /// view of the file system no longer holds the folder.
    int folder = -1;
    uid_t owner = 0;
    Handler handler;
    std::thread worker;
};

} // namespace VantrelNetd
