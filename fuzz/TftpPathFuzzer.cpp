// Fuzzes the mapping of requested names to local paths. A mapped path always begins with the
// directory that served it; one without ".." components stays below that directory (".." itself is
// passed on as it stands, a documented risk); backslashes and slashes, and a leading slash or none,
// map alike.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "FuzzCheck.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using VantrelBase::Net::Tftp::TftpServer;
using VantrelBase::Net::Tftp::Configuration::HomePathSetting;
using VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

namespace
{

class Harness : public TftpServer
{
public:
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::TftpServer;
};

bool HasParentComponent(const std::string& path)
{
    std::size_t start = 0;
    while (start <= path.size())
    {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (path.compare(start, end - start, "..") == 0 && end - start == 2)
        {
            return true;
        }
        start = end + 1;
    }
    return false;
}

bool StartsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

const std::vector<HomePathSetting>& Homes()
{
    // A longer alias before its own prefix, the default home between aliases, and an alias without
    // its own directory separator at the end.
    static const std::vector<HomePathSetting> homes{
        {"/logs", "/srv/tftp/logs"}, {"/", "/srv/tftp/home"}, {"/log", "/srv/tftp/log"}, {"/cfg/", "/srv/tftp/cfg/"}};
    return homes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Harness* server = [] {
        TftpServerSettings settings;
        settings.HomePaths = Homes();
        settings.ThreadCount = 1;
        return new Harness(settings);
    }();

    FuzzedDataProvider input(data, size);
    // A request name ends at its zero byte on the wire.
    std::string path = input.ConsumeRemainingBytesAsString();
    path = path.substr(0, path.find('\0'));

    const std::string mapped = server->GetAbsoluteFilepath(path);
    FUZZ_CHECK(mapped.find('\\') == std::string::npos);

    std::string directory;
    for (const auto& home : Homes())
    {
        if (StartsWith(mapped, home.Path))
        {
            directory = home.Path;
            break;
        }
    }
    FUZZ_CHECK(!directory.empty());
    if (!HasParentComponent(mapped))
    {
        const std::string below = mapped.substr(directory.size());
        FUZZ_CHECK(directory.back() == '/' || below.empty() || below.front() == '/');
    }

    std::string slashes = path;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    FUZZ_CHECK(server->GetAbsoluteFilepath(slashes) == mapped);
    std::string backslashes = path;
    std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
    FUZZ_CHECK(server->GetAbsoluteFilepath(backslashes) == mapped);
    if (slashes.empty() || slashes.front() != '/')
    {
        FUZZ_CHECK(server->GetAbsoluteFilepath("/" + slashes) == mapped);
    }
    return 0;
}
