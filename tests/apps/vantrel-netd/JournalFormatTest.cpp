// Tests of the journal's log lines: syslog priorities and one prefix per line.
#include "JournalFormat.hpp"

#include <gtest/gtest.h>

using Qib::System::Commons::Diagnostics::Logging::LogRecord;
using VantrelNetd::JournalFormat;

TEST(JournalFormatTest, HostLevelsMapToSyslogPriorities)
{
    // Host: 3 error, 5 warning, 6 info, 7 debug, 8 trace.
    const std::pair<int, int> cases[] = {{3, 3}, {5, 4}, {6, 6}, {7, 7}, {8, 7}};
    for (const auto& [level, priority] : cases)
    {
        EXPECT_EQ(JournalFormat::Priority(level), priority) << "level " << level;
    }
}

TEST(JournalFormatTest, EveryLineOfAMessageCarriesThePriority)
{
    const LogRecord record{"VantrelNetd.Daemon", 5, "first\nsecond\n", {}, {}, {}};
    EXPECT_EQ(JournalFormat::Line(record), "<4>VantrelNetd.Daemon: first\n<4>second\n\n");
    EXPECT_EQ(JournalFormat::Line(LogRecord{"L", 6, "one", {}, {}, {}}), "<6>L: one\n");
}
