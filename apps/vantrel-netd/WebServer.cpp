// The commissioning page's HTTP server: the page, its JSON API and the token that guards changes.
#include "WebServer.hpp"

#include "ExitStatus.hpp"
#include "WebPage.hpp"

#include <fmt/format.h>
#include <httplib.h>

#include <sys/random.h>

#include <array>
#include <fstream>

namespace VantrelNetd
{

namespace
{

constexpr std::size_t ShortestToken = 16;
// The page and API answer a few people at once; a small pool keeps the daemon light.
constexpr std::size_t ServingThreads = 2;

std::string MakeToken()
{
    std::array<unsigned char, 16> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    {
        throw DaemonExit(RuntimeFailure, "cannot make the web page's token: no random bytes");
    }
    std::string text;
    for (const unsigned char byte : bytes)
    {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

std::string ReadToken(const std::string& file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
    {
        line.pop_back();
    }
    if (!stream && line.empty())
    {
        throw ConfigError(fmt::format("web.token_file: cannot read {}", file));
    }
    if (line.size() < ShortestToken)
    {
        throw ConfigError(fmt::format("web.token_file: the token in {} has {} characters; give at least {}", file,
                                      line.size(), ShortestToken));
    }
    return line;
}

// Compares every character whatever the first difference, so that timing tells nothing.
bool SameToken(const std::string& given, const std::string& expected)
{
    unsigned difference = given.size() == expected.size() ? 0U : 1U;
    for (std::size_t index = 0; index < expected.size(); ++index)
    {
        difference |= static_cast<unsigned>(index < given.size() ? given[index] ^ expected[index] : 1);
    }
    return difference == 0;
}

void Reply(httplib::Response& response, int status, const nlohmann::json& body)
{
    response.status = status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(body.dump(), "application/json");
}

} // namespace

WebServer::WebServer(const WebSection& section) : web(section), server(std::make_unique<httplib::Server>())
{
    tokenMade = web.TokenFile.empty();
    token = tokenMade ? MakeToken() : ReadToken(web.TokenFile);
    server->new_task_queue = [] { return new httplib::ThreadPool(ServingThreads); };
    server->set_payload_max_length(64 * 1024);
    if (!server->bind_to_port(web.Host, web.Port))
    {
        throw DaemonExit(PortInUse, fmt::format("web page: cannot listen on {}:{} (in use, or not an address of "
                                                "this host); change [web] listen",
                                                web.Host, web.Port));
    }
    Route();
}

WebServer::~WebServer()
{
    server->stop();
    if (worker.joinable())
    {
        worker.join();
    }
}

void WebServer::Start(Handler newHandler)
{
    handler = std::move(newHandler);
    worker = std::thread([this] { server->listen_after_bind(); });
}

std::string WebServer::Describe() const
{
    const std::string address = fmt::format("http://{}:{}/", web.Host, web.Port);
    if (!web.AllowChanges)
    {
        return fmt::format("Web page on {} (read-only: [web] allow_changes is off)", address);
    }
    return tokenMade ? fmt::format("Web page on {}: changes need the token {}", address, token)
                     : fmt::format("Web page on {}: changes need the token in {}", address, web.TokenFile);
}

std::string WebServer::Refusal(const std::string& given) const
{
    if (!web.AllowChanges)
    {
        return "changes from the page are off ([web] allow_changes = false)";
    }
    if (!SameToken(given, token))
    {
        return "wrong or missing token (the daemon logs it at start)";
    }
    return "";
}

void WebServer::Route()
{
    server->Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(WebPage::Html(), "text/html; charset=utf-8");
    });
    server->Get("/api/status", [this](const httplib::Request&, httplib::Response& response) {
        Reply(response, 200, handler({{"command", "status"}}));
    });
    server->Get("/api/changes", [this](const httplib::Request&, httplib::Response& response) {
        Reply(response, 200, {{"allowed", web.AllowChanges}});
    });
    const auto change = [this](const std::string& command) {
        return [this, command](const httplib::Request& request, httplib::Response& response) {
            const std::string refusal = Refusal(request.get_header_value("X-Token"));
            if (!refusal.empty())
            {
                Reply(response, 403, {{"ok", false}, {"error", refusal}});
                return;
            }
            const nlohmann::json body = nlohmann::json::parse(request.body, nullptr, false);
            if (!body.is_object())
            {
                Reply(response, 400, {{"ok", false}, {"error", "the body is not a JSON object"}});
                return;
            }
            nlohmann::json forwarded = {{"command", command}, {"hardware", body.value("hardware", "")}};
            if (command == "assign")
            {
                forwarded["entries"] = nlohmann::json::array(
                    {{{"hardware", body.value("hardware", "")}, {"ip", body.value("ip", "")}, {"name", body.value("name", "")}}});
                forwarded["force"] = body.value("force", false);
            }
            nlohmann::json answer = handler(forwarded);
            const bool done = !answer.contains("error");
            answer["ok"] = done;
            Reply(response, done ? 200 : 409, answer);
            log.Info("Web page: {0} {1}: {2}", command, body.value("hardware", ""),
                     done ? "done" : answer.value("error", ""));
        };
    };
    server->Post("/api/assign", change("assign"));
    server->Post("/api/unassign", change("unassign"));
}

} // namespace VantrelNetd
