// Tests of the daemon's log: what the user's level shows, and repeats of a library line collapsed.
#include "DaemonLog.hpp"

#include "RepeatCollapser.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using VantrelNetd::RepeatCollapser;

namespace
{

std::size_t CountIn(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    {
        ++count;
    }
    return count;
}

} // namespace

TEST(DaemonLogTest, TheLibrarysInfoLinesShowFromDebugAndItsRepeatsAreCollapsedUpToInfo)
{
    const std::string file =
        (std::filesystem::temp_directory_path() / ("daemon-log-" + std::to_string(::getpid()) + ".log")).string();
    LoggerBase library;
    library.Initialize("VantrelBase.Net.Tftp.TftpServer");
    LoggerBase daemon;
    daemon.Initialize("VantrelNetd.Daemon");
    struct Case
    {
        int level;
        std::size_t repeats; // of the library's warning, out of RepeatCollapser::Allowed + 5
        std::size_t libraryInfo;
    };
    const Case cases[] = {{6, RepeatCollapser::Allowed, 0}, {7, RepeatCollapser::Allowed + 5, 1}};
    for (const Case& item : cases)
    {
        std::filesystem::remove(file);
        {
            VantrelNetd::DaemonLog log;
            log.Apply(item.level, VantrelNetd::LogTarget::File, file);
            for (std::size_t line = 0; line < RepeatCollapser::Allowed + 5; ++line)
            {
                library.Warning("Client {0} has transmitted a duplicate block number", line);
            }
            library.Info("Main thread spawned");
            daemon.Info("Reload done");
        }
        std::ifstream stream(file);
        std::ostringstream text;
        text << stream.rdbuf();
        EXPECT_EQ(CountIn(text.str(), "has transmitted a duplicate block number"), item.repeats) << text.str();
        EXPECT_EQ(CountIn(text.str(), "Main thread spawned"), item.libraryInfo) << text.str();
        EXPECT_EQ(CountIn(text.str(), "Reload done"), 1U) << text.str();
    }
    std::filesystem::remove(file);
}
