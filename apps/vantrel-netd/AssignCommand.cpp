// `vantrel-netd assign` and `unassign`: change the running daemon's BOOTP table over its control socket.
#include "AssignCommand.hpp"

#include "AssignmentCsv.hpp"
#include "ControlClient.hpp"
#include "ExitStatus.hpp"
#include "StatusCommand.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace VantrelNetd
{

namespace
{

// The list is read here: the confined daemon does not see the user's files.
nlohmann::json EntriesFrom(const std::string& file)
{
    std::ifstream stream(file);
    if (!stream)
    {
        throw DaemonExit(NoInput, fmt::format("{}: cannot read the list: {}", file, std::strerror(errno)));
    }
    std::ostringstream text;
    text << stream.rdbuf();
    nlohmann::json entries = nlohmann::json::array();
    for (const AssignmentCsv::Row& row : AssignmentCsv::Parse(text.str(), file))
    {
        entries.push_back({{"hardware", row.Hardware}, {"ip", row.Address}, {"name", row.Name}, {"where", row.Where}});
    }
    if (entries.empty())
    {
        throw DaemonExit(BadData, fmt::format("{}: the list holds no assignment", file));
    }
    return entries;
}

} // namespace

nlohmann::json AssignCommand::Request(const Options& options)
{
    if (options.Unassign)
    {
        return {{"command", "unassign"}, {"hardware", options.Values.at(0)}};
    }
    const nlohmann::json entries =
        options.From.empty()
            ? nlohmann::json::array({{{"hardware", options.Values.at(0)}, {"ip", options.Values.at(1)},
                                      {"name", options.Name}}})
            : EntriesFrom(options.From);
    return {{"command", "assign"}, {"entries", entries}, {"force", options.Force}};
}

int AssignCommand::Run(const Options& options)
{
    const nlohmann::json request = Request(options);
    const nlohmann::json reply = ControlClient::Request(StatusCommand::SocketPath(options), request);
    const std::string what = options.Unassign ? fmt::format("unassigned {}", options.Values.at(0))
                                              : fmt::format("assigned {} device(s)", request.at("entries").size());
    std::printf("%s; the BOOTP table has %zu entries, rebuilt in %lld ms\n", what.c_str(),
                reply.value("entries", std::size_t{0}), reply.value("milliseconds", 0LL));
    for (const auto& hidden : reply.value("hidden", nlohmann::json::array()))
    {
        std::printf("warning: forced: %s gets no reply now\n", hidden.get<std::string>().c_str());
    }
    return 0;
}

} // namespace VantrelNetd
