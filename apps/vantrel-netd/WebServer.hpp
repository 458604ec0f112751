// The commissioning page's HTTP server: the page, its JSON API and the token that guards changes.
#pragma once

#include "Config.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace httplib
{
class Server;
}

namespace VantrelNetd
{

/// Serves GET / (the page), GET /api/status (what `status --json` gives), GET /api/changes and POST
/// /api/assign, /api/unassign. Changes need [web] allow_changes and the token in an X-Token header.
/// Built (and bound) on the main thread before any thread starts; Start runs the serving threads; the
/// destructor stops them.
class WebServer : private Qib::System::Commons::Diagnostics::Logging::Loggable<WebServer>
{
public:
    /// The daemon's dispatcher of control requests ({"command": "status"}, "assign", "unassign").
    using Handler = std::function<nlohmann::json(const nlohmann::json& request)>;

    /// Binds the configured address and reads (or makes) the token. Throws DaemonExit: 69 when the port
    /// is taken, 78 for a token file that cannot be read or is too short.
    explicit WebServer(const WebSection& web);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    void Start(Handler handler);

    /// The line the daemon logs at start: the address and how changes are allowed.
    std::string Describe() const;

private:
    void Route();
    /// An empty string when the change may go on, or why not.
    std::string Refusal(const std::string& token) const;

    WebSection web;
    std::string token;
    bool tokenMade = false;
    Handler handler;
    std::unique_ptr<httplib::Server> server;
    std::thread worker;
};

} // namespace VantrelNetd
