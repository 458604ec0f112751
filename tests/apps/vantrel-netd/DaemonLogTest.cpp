// Tests of the daemon's log: what the user's level shows, and repeats of a library line collapsed.
#include "DaemonLog.hpp"

#include "RepeatCollapser.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"
#include "Support/CountOf.hpp"
#include "Support/Files.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using VantrelNetd::RepeatCollapser;
using VantrelTest::CountOf;

TEST(DaemonLogTest, TheLibrarysInfoLinesShowFromDebugAndItsRepeatsAreCollapsedUpToInfo)
{
    const VantrelTest::TempDirectory folder;
    LoggerBase library;
    library.Initialize("VantrelBase.Net.Tftp.TftpServer");
    LoggerBase daemon;
    daemon.Initialize("VantrelNetd.Daemon");
    // Level; repeats of the library's warning shown out of RepeatCollapser::Allowed + 5; library info lines shown.
    const std::tuple<int, std::size_t, std::size_t> cases[] = {{6, RepeatCollapser::Allowed, 0},
                                                               {7, RepeatCollapser::Allowed + 5, 1}};
    for (const auto& [level, repeats, libraryInfo] : cases)
    {
        const std::string file = folder / ("level-" + std::to_string(level) + ".log");
        {
            VantrelNetd::DaemonLog log;
            log.Apply(level, VantrelNetd::LogTarget::File, file);
            for (std::size_t line = 0; line < RepeatCollapser::Allowed + 5; ++line)
            {
                library.Warning("Client {0} has transmitted a duplicate block number", line);
            }
            library.Info("Main thread spawned");
            daemon.Info("Reload done");
        }
        const std::string text = VantrelTest::ReadFile(file).value_or("");
        EXPECT_EQ(CountOf(text, "has transmitted a duplicate block number"), repeats) << text;
        EXPECT_EQ(CountOf(text, "Main thread spawned"), libraryInfo) << text;
        EXPECT_EQ(CountOf(text, "Reload done"), 1U) << text;
    }
}
